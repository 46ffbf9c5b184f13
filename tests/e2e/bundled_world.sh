#!/usr/bin/env bash
# The world that ships beside the program: generated at build time by
# tools/worldgen, checked here as the program loads it and as a viewer would
# notice it (sizes, exact loop lengths, seams, one keyframe at the loop point).
set -euo pipefail
program=$1
work=$2
rm -rf "$work"; mkdir -p "$work"
cd "$work"

fail() { echo "FAIL: $*" >&2; exit 1; }

bin=$(cd "$(dirname "$program")" && pwd)
worlds=$bin/Resources/Worlds
package=$worlds/meadow.hushmeadow
generator=$bin/../../tools/worldgen/hushmeadows-worldgen
[ -f "$package/world.json" ] || fail "no bundled world in $worlds (the bundled-worlds target makes it)"
[ -x "$generator" ] || fail "no generator at $generator"

# What the generator promises with its default options: 12 s of video at
# 12 fps, a 48 s music loop and 24 s ambience loops at 48 kHz.
video_frames=144
music_frames=2304000
ambience_frames=1152000

# The program accepts the package, media included, and keeps its night version.
set +e
"$program" check --media "$worlds" > out.txt 2> err.txt; status=$?
set -e
[ "$status" = 0 ] || { cat out.txt err.txt >&2; fail "check exit status $status, expected 0"; }
echo "meadow.hushmeadow: ok" > expected.txt
diff -u expected.txt out.txt || fail "check output differs"
if grep -q "Skipping" err.txt; then cat err.txt >&2; fail "part of the package was skipped"; fi
probe() { ffprobe -v error -of default=nw=1:nk=1 "$@"; }

for phase in day night; do
  video=$package/meadow-$phase.mp4
  # Every frame decoded, and the only keyframe is the first: the loop point.
  probe -select_streams v:0 -show_entries frame=key_frame "$video" > keys.txt
  [ "$(wc -l < keys.txt)" = "$video_frames" ] || fail "meadow-$phase.mp4 has $(wc -l < keys.txt) frames, expected $video_frames"
  [ "$(head -1 keys.txt)" = 1 ] && [ "$(grep -c '^1$' keys.txt)" = 1 ] || fail "meadow-$phase.mp4 must have one keyframe, at frame 0"
done

# The seam of a sound loop: the step from its last sample to its first must
# not stand out from the steps around it (a click would).
seam_is_clean() { # raw-f32le-stereo-file
  local bytes=$((2049 * 8))
  { head -c "$bytes" "$1" | od -An -v -f -w8 | sed 's/^/s /'
    tail -c "$bytes" "$1" | od -An -v -f -w8 | sed 's/^/e /'; } |
  awk 'function abs(v) { return v < 0 ? -v : v }
       BEGIN { ns = 0; ne = 0 }
       $1 == "s" { s0[ns] = $2; s1[ns] = $3; ns++ }
       $1 == "e" { e0[ne] = $2; e1[ne] = $3; ne++ }
       END {
         for (c = 0; c < 2; c++) {
           seam = c ? abs(s1[0] - e1[ne-1]) : abs(s0[0] - e0[ne-1]); near = 0
           for (i = 1; i < ns; i++) { d = c ? abs(s1[i] - s1[i-1]) : abs(s0[i] - s0[i-1]); if (d > near) near = d }
           for (i = 1; i < ne; i++) { d = c ? abs(e1[i] - e1[i-1]) : abs(e0[i] - e0[i-1]); if (d > near) near = d }
           if (seam > near) { printf "channel %d: seam step %g, neighbouring steps up to %g\n", c, seam, near; bad = 1 }
         }
         exit bad }'
}

for sound in music:$music_frames ambience-day:$ambience_frames ambience-night:$ambience_frames; do
  name=${sound%%:*}; frames=${sound##*:}
  file=$package/$name.flac
  [ "$(probe -show_entries stream=codec_name,sample_rate,channels,duration_ts "$file" | paste -sd' ')" = "flac 48000 2 $frames" ] \
    || fail "$name.flac is not 48 kHz stereo FLAC of $frames frames"
  ffmpeg -hide_banner -loglevel error -y -i "$file" -f f32le -ac 2 "$name.raw"
  [ $(($(stat -c %s "$name.raw") / 8)) = "$frames" ] || fail "$name.flac decodes to $(($(stat -c %s "$name.raw") / 8)) frames, expected $frames"
  seam_is_clean "$name.raw" || fail "$name.flac clicks at its loop point"
  # Quiet: peaks below -6 dBFS.
  peak=$(ffmpeg -hide_banner -nostats -i "$file" -af astats=measure_perchannel=none:measure_overall=Peak_level -f null - 2>&1 |
         awk '/Peak level dB/ { print $NF }')
  awk -v p="$peak" 'BEGIN { exit !(p < -6) }' || fail "$name.flac peaks at $peak dBFS"
done

# The generator's own check on the shipped package: frame 144 of the art is
# frame 0, every decoded frame is faithful to the art, posters are exactly
# frame 0.
"$generator" --out "$worlds" --check > generator-check.txt || { cat generator-check.txt >&2; fail "generator check failed"; }

echo "bundled world: all checks passed"
