#!/usr/bin/env bash
# `hushmeadows check` as a world author runs it: real packages on disk, real
# media made with ffmpeg, output lines and exit status compared exactly.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/support/begin.sh" "$@"
quiet=(-hide_banner -loglevel error -y)
# Runs check with the arguments given, stdout to out.txt; its exit status in $status.
check() { status=0; "$program" check "$@" > out.txt 2> err.txt || status=$?; }

ffmpeg "${quiet[@]}" -f lavfi -i testsrc2=size=32x18:rate=12 -t 0.5 -pix_fmt yuv420p loop.mp4
echo "no movie here" > broken.mp4

package() { # folder id video-file [extra json for visual]
  mkdir -p "$1"; cp "$3" "$1/loop.mp4"
  printf '{"formatVersion":1,"id":"%s","name":"World","visual":{"file":"loop.mp4"%s}}' "$2" "${4:-}" > "$1/world.json"
}

mkdir -p Worlds Other
package Worlds/a.hushmeadow calm loop.mp4
package Worlds/b.hushmeadow broken-video broken.mp4
package Worlds/c.hushmeadow calm loop.mp4
package Worlds/d.hushmeadow Bad loop.mp4
echo "notes" > Worlds/readme.txt
package Other/lone.hushmeadow lone loop.mp4

# Without --media the broken video is not opened.
check Worlds
[ "$status" = 1 ] || fail "exit status $status, expected 1"
cat > expected.txt <<'OUT'
a.hushmeadow: ok
b.hushmeadow: ok
c.hushmeadow: dropped: id calm is already loaded from a.hushmeadow
d.hushmeadow: Invalid value for id: use lowercase letters, digits and hyphens
OUT
diff -u expected.txt out.txt || fail "check output differs"

# With --media the video is probed.
check --media Worlds/b.hushmeadow
[ "$status" = 1 ] || fail "--media exit status $status, expected 1"
echo "b.hushmeadow: visual.file (loop.mp4) can't be decoded: not a readable movie" > expected.txt
diff -u expected.txt out.txt || fail "--media output differs"

# A folder name cannot forge a line, on stdout or in the log on stderr.
folder="Media/x"$'\n'"y: ok"$'\e'"[2J.hushmeadow"
package "$folder" Bad loop.mp4
check Media
[ "$status" = 1 ] || fail "bad id: status $status"
printf 'x\\ny: ok\\x1b[2J.hushmeadow: %s\n' "Invalid value for id: use lowercase letters, digits and hyphens" > expected.txt
diff -u expected.txt out.txt || fail "a failing package's name not escaped"
rm -rf Media/*; package "$folder" media loop.mp4 ',"variations":["gone.mp4"]'
check Media; [ "$status" = 0 ] || fail "a skipped variation fails the package"
grep -qF 'Skipping variation in x\ny: ok\x1b[2J.hushmeadow' err.txt || { cat err.txt >&2; fail "log line not escaped"; }

# All good: exit 0, one line per package, packages named directly.
"$program" check --media Other/lone.hushmeadow Worlds/a.hushmeadow > out.txt
printf 'lone.hushmeadow: ok\na.hushmeadow: ok\n' > expected.txt
diff -u expected.txt out.txt || fail "passing output differs"

# Usage errors: no PATH, an unknown option (a single-dash word is one too).
for args in "" "--fast Worlds" "-s Worlds"; do
  check $args
  [ "$status" = 2 ] || fail "check $args: exit status $status, expected 2"
done

echo "check command: all cases passed"
