#!/usr/bin/env bash
# `hushmeadows check` as a world author runs it: real packages on disk, real
# media made with ffmpeg, output lines and exit status compared exactly.
set -euo pipefail
program=$1
work=$2
rm -rf "$work"; mkdir -p "$work"
cd "$work"

fail() { echo "FAIL: $*" >&2; exit 1; }
quiet=(-hide_banner -loglevel error -y)

ffmpeg "${quiet[@]}" -f lavfi -i testsrc2=size=32x18:rate=12 -t 0.5 -pix_fmt yuv420p loop.mp4
ffmpeg "${quiet[@]}" -f lavfi -i sine=frequency=440:sample_rate=48000 -t 0.25 music.wav
echo "no movie here" > broken.mp4

package() { # folder id video-file [extra json for visual]
  mkdir -p "$1"
  cp "$3" "$1/loop.mp4"
  printf '{"formatVersion":1,"id":"%s","name":"World","visual":{"file":"loop.mp4"%s}}' "$2" "${4:-}" > "$1/world.json"
}

mkdir -p Worlds Other
package Worlds/a.hushmeadow calm loop.mp4
package Worlds/b.hushmeadow broken-video broken.mp4
package Worlds/c.hushmeadow calm loop.mp4
package Worlds/d.hushmeadow Bad loop.mp4
package Worlds/e.hushmeadow skips loop.mp4 ',"variations":["gone.mp4"]'
echo "notes" > Worlds/readme.txt
package Other/lone.hushmeadow lone loop.mp4

# Without --media the broken video is not opened.
set +e
"$program" check Worlds > out.txt 2> err.txt; status=$?
set -e
[ "$status" = 1 ] || fail "exit status $status, expected 1"
cat > expected.txt <<'OUT'
a.hushmeadow: ok
b.hushmeadow: ok
c.hushmeadow: dropped: id calm is already loaded from a.hushmeadow
d.hushmeadow: Invalid value for id: use lowercase letters, digits and hyphens
e.hushmeadow: ok
OUT
diff -u expected.txt out.txt || fail "check output differs"
grep -qx 'hushmeadows\[worlds\] error: Skipping variation in e.hushmeadow: Missing resource for visual.variations: gone.mp4' err.txt \
  || { cat err.txt; fail "skipped variation not reported on stderr"; }

# With --media the video is probed.
set +e
"$program" check --media Worlds/b.hushmeadow > out.txt 2>/dev/null; status=$?
set -e
[ "$status" = 1 ] || fail "--media exit status $status, expected 1"
echo "b.hushmeadow: visual.file (loop.mp4) can't be decoded: not a readable movie" > expected.txt
diff -u expected.txt out.txt || fail "--media output differs"

# --media also decodes the poster and the first second of each sound; a
# folder name cannot forge a line, on stdout or in the log on stderr.
ffmpeg "${quiet[@]}" -f lavfi -i color=c=blue:size=16x9 -frames:v 1 poster.png
head -c 60 poster.png > cut.png
python3 -c "
import struct, sys
d = bytearray(open('music.wav', 'rb').read()); i = d.find(b'fmt ')
struct.pack_into('<H', d, i + 10, 200); open('wide.wav', 'wb').write(d)
struct.pack_into('<H', d, i + 10, 1); struct.pack_into('<I', d, i + 12, 2000000000); open('fast.wav', 'wb').write(d)"
mkdir -p Media
for case in "cut.png|music.wav|visual.poster (poster.png) can't be decoded: not a readable image" \
            "poster.png|wide.wav|audio.music.file (music.wav) can't be decoded: not a readable audio file" \
            "poster.png|fast.wav|audio.music.file (music.wav) can't be decoded: not a readable audio file"; do
  IFS='|' read -r poster sound message <<< "$case"
  rm -rf Media/*; folder="Media/x"$'\n'"y: ok"$'\e'"[2J.hushmeadow"
  package "$folder" media loop.mp4 ',"poster":"poster.png"},"audio":{"music":{"file":"music.wav","defaultVolume":0.5}'
  cp "$poster" "$folder/poster.png"; cp "$sound" "$folder/music.wav"
  set +e; "$program" check --media Media > out.txt 2>/dev/null; status=$?; set -e
  [ "$status" = 1 ] || fail "$sound: status $status"
  printf 'x\\ny: ok\\x1b[2J.hushmeadow: %s\n' "$message" > expected.txt
  diff -u expected.txt out.txt || fail "--media $poster $sound"
done
rm -rf Media/*; package "$folder" media loop.mp4 ',"variations":["gone.mp4"]'
"$program" check Media > out.txt 2> err.txt
grep -qF 'Skipping variation in x\ny: ok\x1b[2J.hushmeadow' err.txt || { cat err.txt >&2; fail "log line not escaped"; }

# All good: exit 0, one line per package, packages named directly.
"$program" check --media Other/lone.hushmeadow Worlds/a.hushmeadow > out.txt
printf 'lone.hushmeadow: ok\na.hushmeadow: ok\n' > expected.txt
diff -u expected.txt out.txt || fail "passing output differs"

# Usage errors: no PATH, an unknown option (a single-dash word is one too).
for args in "" "--fast Worlds" "-s Worlds"; do
  set +e; "$program" check $args > /dev/null 2>&1; status=$?; set -e
  [ "$status" = 2 ] || fail "check $args: exit status $status, expected 2"
done

echo "check command: all cases passed"
