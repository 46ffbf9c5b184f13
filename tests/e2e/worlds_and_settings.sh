#!/usr/bin/env bash
# The world that ships beside the program, generated at build time by
# tools/worldgen, as the program loads it and the generator checks it; then
# `hushmeadows settings` and `hushmeadows list` against real XDG folders.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/support/begin.sh" "$@"

bin=$(cd "$(dirname "$program")" && pwd)
worlds=$bin/Resources/Worlds
meadow=$worlds/meadow.hushmeadow
generator=$bin/../../tools/worldgen/hushmeadows-worldgen
[ -f "$meadow/world.json" ] || fail "no bundled world in $worlds (the bundled-worlds target makes it)"
[ -x "$generator" ] || fail "no generator at $generator"

# The program accepts the package, media included, and keeps its night version.
status=0; "$program" check --media "$worlds" > out.txt 2> err.txt || status=$?
[ "$status" = 0 ] || { cat out.txt err.txt >&2; fail "check exit status $status, expected 0"; }
echo "meadow.hushmeadow: ok" > expected.txt
diff -u expected.txt out.txt || fail "check output differs"
if grep -q "Skipping" err.txt; then cat err.txt >&2; fail "part of the package was skipped"; fi

# The generator's own check of the shipped package: exact loop lengths, frame
# 144 of the art is frame 0, every decoded frame faithful to the art, one
# keyframe at the loop point, posters exactly frame 0, sounds below -6 dBFS
# with no click at their seam.
"$generator" --out "$worlds" --check > generator-check.txt || { cat generator-check.txt >&2; fail "generator check failed"; }

export HOME=$work/home XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data XDG_DATA_DIRS=$work/system:relative/ignored
file=$XDG_CONFIG_HOME/hushmeadows/Settings.json
mkdir elsewhere

# Commands that only read leave every entry of the work folder as it was (its
# kind, mode, size and modification time, which any write or any file made
# and removed changes): no lock file beside the settings or beside --file, no
# configuration folder, no home. Checked now, with nothing there, and at the
# end with settings and worlds.
reads=(
  "|settings"
  "|list"
  "|settings --file $work/elsewhere/Settings.json"
  "|list --file $work/elsewhere/Settings.json"
  "HOME=$work/nohome XDG_CONFIG_HOME=|settings"
  "HOME=$work/nohome XDG_CONFIG_HOME=|list"
)
tree_state() { find "$work" ! -name read.txt ! -name before.txt -printf '%p %y %m %s %T@\n' | sort; }
reads_leave_nothing() {
  local entry assignments arguments
  touch before.txt read.txt # made before the first look, rewritten in place after
  for entry in "${reads[@]}"; do
    IFS='|' read -r assignments arguments <<< "$entry"
    read -ra assignments <<< "$assignments"; read -ra arguments <<< "$arguments"
    tree_state > before.txt
    env "${assignments[@]}" "$program" "${arguments[@]}" > read.txt 2>&1 || { cat read.txt >&2; fail "$entry failed"; }
    tree_state | diff -u before.txt - || fail "$entry changed the folders"
  done
}
reads_leave_nothing

# A change that cannot be saved says why on one line (the store's unit tests
# hold every reason, a missing home and a file in the way among them).
write_fails() { # message command...
  local message=$1 status=0; shift
  "$@" > /dev/null 2> err.txt || status=$?
  [ "$status" = 1 ] && [ "$(cat err.txt)" = "hushmeadows settings: $message" ] \
    || fail "expected \"$message\", got status $status: $(head -c 300 err.txt)"
}
# A read-only folder. Root writes through permission bits, so where a private
# mount namespace can be had the folder is bind-mounted read-only inside it
# (nothing outlives the command); without one, a user other than root is
# stopped by the permission bits and told that instead.
mkdir ro; echo '{}' > ro/Settings.json
read_only() { unshare -rm sh -c 'mount --bind "$1" "$1" && mount -o remount,bind,ro "$1" && shift && exec "$@"' sh "$work/ro" "$@"; }
if read_only true 2> /dev/null; then
  write_fails "cannot lock $work/ro/Settings.json: the folder is read-only" read_only "$program" settings set isMuted true --file "$work/ro/Settings.json"
elif [ "$(id -u)" != 0 ]; then
  chmod a-w ro
  write_fails "cannot lock $work/ro/Settings.json: no permission to write in the folder" "$program" settings set isMuted true --file "$work/ro/Settings.json"
  chmod u+w ro
else
  echo "note: root without a private mount namespace: a read-only folder cannot be made, not tested"
fi
[ "$(ls ro)" = Settings.json ] && [ "$(cat ro/Settings.json)" = "{}" ] || fail "the read-only folder changed"

# Twenty processes each set a different key at once: every change is kept.
keys=(isMuted screenSaverAudioEnabled screenSaverAllDisplays welcomeSeen reviewRequested screenSaverChosen)
for key in "${keys[@]}"; do "$program" settings set "$key" true > /dev/null & done
for i in $(seq 1 14); do "$program" settings set favouriteWorldIDs "[\"w$i\"]" > /dev/null & done
"$program" settings set framing wholeScene > /dev/null &
wait
for key in "${keys[@]}"; do grep -q "\"$key\": true" "$file" || fail "$key lost by a concurrent set"; done
grep -q '"framing": "wholeScene"' "$file" || fail "framing lost by a concurrent set"
cp "$file" before.json

# Refusals say what is allowed, on one short line, and change nothing (the
# completion test reads the allowed values of every other key from them).
cases=(
  "nope|1|unknown setting nope"
  "musicVolume|1.7|bad value for musicVolume: 1.7 (allowed: a number from 0 to 1, or null)"
  "worldMixes|$(printf '[%.0s' $(seq 65000))|bad value for worldMixes: [[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[… (allowed: an object of world ids to {\"music\": 0 to 1, \"ambience\": 0 to 1})"
)
for case in "${cases[@]}"; do
  IFS='|' read -r key value message <<< "$case"
  status=0; "$program" settings set "$key" "$value" > /dev/null 2> err.txt || status=$?
  [ "$status" = 1 ] || fail "$key $status"
  [ "$(cat err.txt)" = "hushmeadows settings: $message" ] || fail "$key: $(head -c 300 err.txt)"
done
cmp -s "$file" before.json || fail "a refused change touched the file"

# Only a regular file that fails to decode is set aside, and a person is told.
"$program" settings --file /dev/null > /dev/null 2>&1 || true
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
bundled=$(sed -n 's/.*"id" *: *"\([^"]*\)".*/\1/p' "$meadow/world.json" | head -1)
package "$XDG_DATA_HOME/hushmeadows/Worlds/zz.hushmeadow" "$bundled" "Mine"

"$program" settings set selectedWorldID forest > /dev/null
"$program" list > list.txt 2>/dev/null
{ printf '*\tforest\tDeep Forest\t%s\tuser\n \tlake\tCalm\\x1b[2J Lake\t%s\tuser\n' \
    "$XDG_DATA_HOME/hushmeadows/Worlds/forest.hushmeadow" "$XDG_DATA_HOME/hushmeadows/Worlds/lake.hushmeadow"
  printf ' \t%s\tMine\t%s\tuser\n' "$bundled" "$XDG_DATA_HOME/hushmeadows/Worlds/zz.hushmeadow"
  printf ' \tdunes\tDunes\t%s\tsystem\n' "$work/system/hushmeadows/Worlds/dunes.hushmeadow"
  printf 'hidden\t%s\tthe bundled world is hidden by %s\n' "$bundled" "$XDG_DATA_HOME/hushmeadows/Worlds/zz.hushmeadow"
  printf 'failed\tbad\\nx: ok.hushmeadow: No world.json in bad\\nx: ok.hushmeadow\n'; } > expected.txt
grep -v "	bundled$" list.txt > seen.txt || true
diff -u expected.txt seen.txt || fail "list differs"

# Another process holding the lock: waited for, then named as such.
exec 9> "$file.lock"
flock -x 9
write_fails "cannot lock $file: another process has held it for 10 s" "$program" settings set isMuted false
exec 9>&-

# Reads again, now among settings, worlds and a set-aside file, with no lock
# file yet.
rm "$file.lock"
echo '{"isMuted": true}' > elsewhere/Settings.json
reads_leave_nothing

echo "worlds and settings: all cases passed"
