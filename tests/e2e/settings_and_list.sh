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

"$program" settings > out.json
[ "$(grep -c '^  "' out.json)" = 21 ] || fail "not 21 fields"
[ ! -e "$file" ] || fail "reading wrote a file"

# Twenty processes each set a different key at once: every change is kept.
keys=(isMuted screenSaverAudioEnabled screenSaverAllDisplays welcomeSeen reviewRequested screenSaverChosen)
for key in "${keys[@]}"; do "$program" settings set "$key" true > /dev/null & done
for i in $(seq 1 14); do "$program" settings set favouriteWorldIDs "[\"w$i\"]" > /dev/null & done
"$program" settings set framing wholeScene > /dev/null &
wait
for key in "${keys[@]}"; do grep -q "\"$key\": true" "$file" || fail "$key lost by a concurrent set"; done
grep -q '"framing": "wholeScene"' "$file" || fail "framing lost by a concurrent set"
cp "$file" before.json

# Refusals say what is allowed, on one short line, and change nothing.
cases=(
  "nope|1|unknown setting nope"
  "musicVolume|1.7|bad value for musicVolume: 1.7 (allowed: a number from 0 to 1, or null)"
  "framing|sideways|bad value for framing: sideways (allowed: one of fill, wholeScene)"
  "isMuted|maybe|bad value for isMuted: maybe (allowed: true or false)"
  "worldMixes|$(printf '[%.0s' $(seq 65000))|bad value for worldMixes: [[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[… (allowed: an object of world ids to {\"music\": 0 to 1, \"ambience\": 0 to 1})"
)
for case in "${cases[@]}"; do
  IFS='|' read -r key value message <<< "$case"
  set +e; "$program" settings set "$key" "$value" > /dev/null 2> err.txt; status=$?; set -e
  [ "$status" = 1 ] || fail "$key $status"
  [ "$(cat err.txt)" = "hushmeadows settings: $message" ] || fail "$key: $(head -c 300 err.txt)"
done
cmp -s "$file" before.json || fail "a refused change touched the file"

# Only a regular file that fails to decode is set aside, and a person is told.
set +e; "$program" settings --file /dev/null > /dev/null 2>&1; set -e
[ -c /dev/null ] || fail "/dev/null was moved"
echo "{ not json" > "$file"
"$program" settings > out.json 2> err.txt
grep -q "Settings.json was not valid settings JSON; moved it to .*Settings.unreadable-.*json and used the defaults" err.txt || fail "no notice"
[ ! -e "$file" ] || fail "unreadable file left in place"

# The library: user folder first, then the system folder; the choice marked;
# names escaped; a user world hiding a bundled one is named.
ffmpeg -hide_banner -loglevel error -y -f lavfi -i testsrc2=size=32x18:rate=12 -t 0.5 -pix_fmt yuv420p loop.mp4
package() { mkdir -p "$1"; cp loop.mp4 "$1/loop.mp4"; printf '{"formatVersion":1,"id":"%s","name":"%s","visual":{"file":"loop.mp4"}}' "$2" "$3" > "$1/world.json"; }
package "$XDG_DATA_HOME/hushmeadows/Worlds/lake.hushmeadow" lake "Calm\u001b[2J Lake"
package "$XDG_DATA_HOME/hushmeadows/Worlds/forest.hushmeadow" forest "Deep Forest"
package "$work/system/hushmeadows/Worlds/dunes.hushmeadow" dunes "Dunes"
mkdir -p "$work/system/hushmeadows/Worlds/bad"$'\n'"x: ok.hushmeadow"
bundled=$(sed -n 's/.*"id" *: *"\([^"]*\)".*/\1/p' "$(dirname "$program")"/Resources/Worlds/*.hushmeadow/world.json | head -1)
[ -n "$bundled" ] && package "$XDG_DATA_HOME/hushmeadows/Worlds/zz.hushmeadow" "$bundled" "Mine"

"$program" settings set selectedWorldID forest > /dev/null
"$program" list > list.txt 2>/dev/null
{ printf '*\tforest\tDeep Forest\t%s\tuser\n \tlake\tCalm\\x1b[2J Lake\t%s\tuser\n' \
    "$XDG_DATA_HOME/hushmeadows/Worlds/forest.hushmeadow" "$XDG_DATA_HOME/hushmeadows/Worlds/lake.hushmeadow"
  [ -n "$bundled" ] && printf ' \t%s\tMine\t%s\tuser\n' "$bundled" "$XDG_DATA_HOME/hushmeadows/Worlds/zz.hushmeadow"
  printf ' \tdunes\tDunes\t%s\tsystem\n' "$work/system/hushmeadows/Worlds/dunes.hushmeadow"
  [ -n "$bundled" ] && printf 'hidden\t%s\tthe bundled world is hidden by %s\n' "$bundled" "$XDG_DATA_HOME/hushmeadows/Worlds/zz.hushmeadow"
  printf 'failed\tbad\\nx: ok.hushmeadow: No world.json in bad\\nx: ok.hushmeadow\n'; } > expected.txt
grep -v "	bundled$" list.txt > seen.txt || true
diff -u expected.txt seen.txt || fail "list differs"

echo "settings and list: all cases passed"
