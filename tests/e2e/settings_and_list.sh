#!/usr/bin/env bash
# `hushmeadows settings` and `hushmeadows list` against real XDG folders.
set -euo pipefail
program=$1
work=$2
rm -rf "$work"; mkdir -p "$work"
cd "$work"
fail() { echo "FAIL: $*" >&2; exit 1; }

export HOME=$work/home
export XDG_CONFIG_HOME=$work/config
export XDG_DATA_HOME=$work/data
export XDG_DATA_DIRS=$work/system:relative/ignored
file=$XDG_CONFIG_HOME/hushmeadows/Settings.json

# Defaults, every field shown, absent optionals as null; nothing written.
"$program" settings > out.json
grep -q '"musicVolume": null' out.json || fail "musicVolume not null"
grep -q '"framing": "fill"' out.json || fail "framing default"
grep -q '"musicStyleDefault": "studio"' out.json || fail "musicStyleDefault default"
[ "$(grep -c '^  "' out.json)" = 21 ] || fail "not 21 fields"
[ ! -e "$file" ] || fail "reading wrote a file"

"$program" settings set musicVolume 0.4 > /dev/null
"$program" settings set framing wholeScene > /dev/null
"$program" settings set selectedWorldID forest > /dev/null
"$program" settings set screenSaverAudioEnabled true > /dev/null
"$program" settings > out.json
grep -q '"musicVolume": 0.4' out.json || fail "musicVolume not saved"
grep -q '"framing": "wholeScene"' out.json || fail "framing not saved"
grep -q '"selectedWorldID": "forest"' out.json || fail "selectedWorldID not saved"
grep -q '"screenSaverAudioEnabled": true' out.json || fail "opt-in not saved"
cp "$file" before.json

set +e
"$program" settings set nope 1 2> err.txt; s1=$?
"$program" settings set musicVolume 1.7 2>> err.txt; s2=$?
"$program" settings set framing sideways 2>> err.txt; s3=$?
"$program" settings set 2>> err.txt; s4=$?
set -e
[ "$s1" = 1 ] && [ "$s2" = 1 ] && [ "$s3" = 1 ] || fail "bad sets did not fail ($s1 $s2 $s3)"
[ "$s4" = 2 ] || fail "usage error status $s4"
grep -q "unknown setting nope" err.txt || fail "no unknown-key message"
grep -q "bad value for musicVolume: 1.7" err.txt || fail "no bad-value message"
cmp -s "$file" before.json || fail "a refused change touched the file"

# A file that is not JSON is set aside, exactly as the saver would.
echo "{ not json" > "$file"
"$program" settings > out.json 2> err.txt
grep -q '"framing": "fill"' out.json || fail "defaults not used"
grep -q "Settings file unreadable, using defaults" err.txt || fail "no unreadable log"
ls "$XDG_CONFIG_HOME"/hushmeadows/Settings.unreadable-*.json > /dev/null || fail "not set aside"
[ ! -e "$file" ] || fail "unreadable file left in place"

# The library: user folder first, then the system folder; the choice is marked.
ffmpeg -hide_banner -loglevel error -y -f lavfi -i testsrc2=size=32x18:rate=12 -t 0.5 -pix_fmt yuv420p loop.mp4
package() { mkdir -p "$1"; cp loop.mp4 "$1/loop.mp4"; printf '{"formatVersion":1,"id":"%s","name":"%s","visual":{"file":"loop.mp4"}}' "$2" "$3" > "$1/world.json"; }
package "$XDG_DATA_HOME/hushmeadows/Worlds/lake.hushmeadow" lake "Calm Lake"
package "$XDG_DATA_HOME/hushmeadows/Worlds/forest.hushmeadow" forest "Deep Forest"
package "$work/system/hushmeadows/Worlds/lake.hushmeadow" lake "Older Lake"
package "$work/system/hushmeadows/Worlds/dunes.hushmeadow" dunes "Dunes"
mkdir -p "$work/system/hushmeadows/Worlds/bad.hushmeadow"

"$program" settings set selectedWorldID forest > /dev/null
"$program" list > list.txt 2>/dev/null
# forest sorts before lake by name within the user folder.
printf '*\tforest\tDeep Forest\t%s\tdirect\n \tlake\tCalm Lake\t%s\tdirect\n \tdunes\tDunes\t%s\tdirect\nfailed\tbad.hushmeadow: No world.json in bad.hushmeadow\n' \
  "$XDG_DATA_HOME/hushmeadows/Worlds/forest.hushmeadow" "$XDG_DATA_HOME/hushmeadows/Worlds/lake.hushmeadow" \
  "$work/system/hushmeadows/Worlds/dunes.hushmeadow" > expected.txt
grep -v "	fallback$" list.txt > list-without-bundled.txt || true
diff -u expected.txt list-without-bundled.txt || fail "list differs"

echo "settings and list: all cases passed"
