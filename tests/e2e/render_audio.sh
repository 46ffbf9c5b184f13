#!/usr/bin/env bash
# `hushmeadows render-audio`: the bundled world's sound rendered offline through
# the saver's own selection and engine, measured with sox.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/support/begin.sh" "$@"
export HOME=$work/home XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data XDG_DATA_DIRS=$work/none
world="$(dirname "$program")/Resources/Worlds/meadow.hushmeadow"
[ -d "$world" ] || fail "no bundled world at $world"

rms() { sox "$1" -n trim "$2" "$3" stat 2>&1 | awk '/RMS +amplitude/ {print $3}'; }

"$program" render-audio "$world" --seconds 6 --out day.wav --phase day > out.txt 2> err.txt
[ "$(soxi -r day.wav) $(soxi -c day.wav) $(soxi -s day.wav) $(soxi -b day.wav) $(soxi -e day.wav)" = "48000 2 288000 32 Floating Point PCM" ] \
  || fail "format: $(soxi day.wav)"
grep -q "audio acquired music=0.500000 ambience=0.700000 style=classic" err.txt || { cat err.txt; fail "not through the saver's arbiter"; }
# The 4 s fade-in: the first quarter second is far quieter than the fifth second.
start=$(rms day.wav 0 0.25); later=$(rms day.wav 5 0.5)
awk -v a="$start" -v b="$later" 'BEGIN { exit !(b > 0.01 && a < b / 8) }' || fail "no fade-in: $start vs $later"

# Without a fade the sound is there from the start.
"$program" render-audio "$world" --seconds 1 --out nofade.wav --fade-in 0 --phase night > /dev/null 2>&1
awk -v a="$(rms nofade.wav 0 0.25)" 'BEGIN { exit !(a > 0.01) }' || fail "--fade-in 0 still fades"

set +e
"$program" render-audio "$world" --out x.wav > /dev/null 2>&1; s1=$?
"$program" render-audio "$world" --seconds -1 --out x.wav > /dev/null 2>&1; s2=$?
"$program" render-audio missing.hushmeadow --seconds 1 --out x.wav > /dev/null 2>&1; s3=$?
set -e
[ "$s1" = 2 ] && [ "$s2" = 2 ] || fail "usage errors gave $s1 $s2"
[ "$s3" = 1 ] || fail "missing world gave $s3"
echo "render-audio: all cases passed"
