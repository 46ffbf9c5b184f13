#!/usr/bin/env bash
# Showing worlds full screen under Xvfb, beside mpv on the same clips and
# screen sizes in the same run (mpv is installed from Debian for this
# benchmark only). Two clips: the bundled meadow (pixel art, a few percent of
# pixels change between frames) and a busy 640×360 48 fps clip in which every
# pixel changes in every frame; each at 1920×1080 and 3840×2160. Each player
# runs 2 s to settle, then 10 s are measured: its own CPU plus the X
# server's, as a share of one core, and its resident memory (the most seen).
# Ours also reports how late its frames came (50th, 99th percentile, maximum)
# and how many it passed over. Then start-up: from process start to the first
# picture on screen (a first-pixel timer polling the root window every 2 ms)
# for `hushmeadows saver` with one world and with 200 worlds in the user's
# folder, beside mpv, and `--version` of both. Last, the decode cost at the
# loop point.
# Usage: bash bench/video_cpu.sh   (builds the Release preset when needed)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
cmake --preset release -G Ninja > /dev/null
cmake --build build/release -j2 --target hushmeadows bundled-worlds VideoBench FirstPixel > /dev/null
program=$root/build/release/Apps/hushmeadows/hushmeadows
firstpixel=$root/build/release/bench/FirstPixel
meadow=$root/build/release/Apps/hushmeadows/Resources/Worlds/meadow.hushmeadow
command -v mpv > /dev/null || apt-get install -y mpv > /dev/null

work=$(mktemp -d)
xvfb=""
player=""
cleanup() {
  [ -n "$player" ] && kill "$player" 2> /dev/null || true
  [ -n "$xvfb" ] && kill "$xvfb" 2> /dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
export HOME=$work/home XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data XDG_DATA_DIRS=$work/system
echo "Machine: $(nproc) cores, load average $(cut -d' ' -f1-3 /proc/loadavg) at the start (shared with other work: figures are noisy)."

busy=$work/busy.hushmeadow
mkdir -p "$busy"
ffmpeg -hide_banner -loglevel error -f lavfi -i gradients=size=640x360:rate=48:speed=0.05 -t 5 -c:v libx264 -crf 20 -pix_fmt yuv420p "$busy/loop.mp4"
echo '{"formatVersion":1,"id":"busy","name":"busy","visual":{"file":"loop.mp4","pixelArt":true}}' > "$busy/world.json"
# The meadow plays its day or night video by the hour; mpv gets the same one.
hour=$(date +%-H)
meadow_clip=$meadow/meadow-day.mp4
{ [ "$hour" -lt 7 ] || [ "$hour" -gt 18 ]; } && meadow_clip=$meadow/meadow-night.mp4

source tools/xvfb.sh
ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
hz=$(getconf CLK_TCK)

# measure NAME COMMAND...: prints "cpu% xcpu% rssKiB" for 10 s of playback;
# the player's own output stays in $work/NAME.log.
measure() {
  local name=$1; shift
  "$@" > "$work/$name.log" 2>&1 &
  player=$!
  sleep 2
  kill -0 "$player" 2> /dev/null || { cat "$work/$name.log" >&2; echo "$name exited early" >&2; exit 1; }
  local p0 x0 p1 x1 rss=0 now
  p0=$(ticks "$player"); x0=$(ticks "$xvfb")
  for _ in $(seq 10); do
    sleep 1
    now=$(awk '/VmRSS/ {print $2}' "/proc/$player/status")
    [ "$now" -gt "$rss" ] && rss=$now
  done
  p1=$(ticks "$player"); x1=$(ticks "$xvfb")
  kill "$player"; wait "$player" 2> /dev/null || true
  player=""
  echo "$(( (p1 - p0) * 100 / (10 * hz) )) $(( (x1 - x0) * 100 / (10 * hz) )) $rss"
}

# lateness NAME: the run's frame report of our player.
lateness() { grep -o 'frames shown: .*' "$work/$1.log" | tail -1 || echo "no frame report"; }

printf '\nCPU over 10 s as %% of one core (player + X server), resident memory, frame lateness\n'
for size in 1920x1080 3840x2160; do
  start_xvfb "$size" || { echo "no free X display number" >&2; exit 1; }
  xvfb=$xvfb_pid
  for clip in meadow busy; do
    world=$meadow; file=$meadow_clip
    [ "$clip" = busy ] && { world=$busy; file=$busy/loop.mp4; }
    read -r ours ours_x ours_rss < <(measure "ours-$clip" "$program" play "$world")
    read -r mpv mpv_x mpv_rss < <(measure "mpv-$clip" mpv --vo=x11 --fs --no-audio --hwdec=no --loop=inf --really-quiet "$file")
    ours_total=$((ours + ours_x)); mpv_total=$((mpv + mpv_x))
    echo "$size $clip:"
    echo "  hushmeadows play  $ours + $ours_x = $ours_total %   RSS $((ours_rss / 1024)) MB"
    echo "  mpv --vo=x11      $mpv + $mpv_x = $mpv_total %   RSS $((mpv_rss / 1024)) MB"
    awk -v a="$ours_total" -v b="$mpv_total" -v clip="$clip" -v size="$size" 'BEGIN {
      printf "  ratio %.2f× mpv", (b > 0 ? a / b : 0)
      if (clip == "busy") printf " (target ≤ 0.40×)"
      if (clip == "meadow" && size == "3840x2160") printf "; ours %d %% of a core (target ≤ 5 %%)", a
      printf "\n" }'
    [ "$size" = 3840x2160 ] && echo "  resident memory target ≤ 120 MB: ours $((ours_rss / 1024)) MB"
    echo "  ours: $(lateness "ours-$clip")"
  done
  kill "$xvfb"; wait "$xvfb" 2> /dev/null || true
  xvfb=""
done

printf '\nStart-up at 1920x1080, ms from process start to the first picture (median of 5)\n'
start_xvfb 1920x1080 || { echo "no free X display number" >&2; exit 1; }
xvfb=$xvfb_pid
median() { sort -n | awk '{ v[NR] = $1 } END { print (NR ? v[int((NR + 1) / 2)] : "n/a") }'; }
first_picture() { for _ in 1 2 3 4 5; do "$firstpixel" "$@" 2> /dev/null || true; done | median; }
mkdir -p "$XDG_DATA_HOME/hushmeadows/Worlds"
cp -al "$meadow" "$XDG_DATA_HOME/hushmeadows/Worlds/meadow.hushmeadow"
one=$(first_picture "$program" saver)
for i in $(seq 2 200); do
  cp -al "$meadow" "$XDG_DATA_HOME/hushmeadows/Worlds/meadow$i.hushmeadow"
  sed -i "s/\"id\" *: *\"[^\"]*\"/\"id\":\"meadow$i\"/" "$XDG_DATA_HOME/hushmeadows/Worlds/meadow$i.hushmeadow/world.json" 2> /dev/null || true
done
many=$(first_picture "$program" saver)
peer=$(first_picture mpv --vo=x11 --fs --no-audio --hwdec=no --really-quiet "$meadow_clip")
echo "  hushmeadows saver, 1 world      $one ms (target ≤ 100 ms)"
echo "  hushmeadows saver, 200 worlds   $many ms (target ≤ 100 ms)"
echo "  mpv --vo=x11 --fs               $peer ms"
awk -v a="$many" -v b="$peer" 'BEGIN { if (b > 0) printf "  ratio (200 worlds) %.2f× mpv\n", a / b }'
version_ms() { local t0 t1; for _ in 1 2 3 4 5; do t0=$(date +%s%N); "$@" > /dev/null 2>&1; t1=$(date +%s%N); echo $(( (t1 - t0) / 1000000 )); done | median; }
ours_version=$(version_ms "$program" --version)
mpv_version=$(version_ms mpv --version)
echo "  hushmeadows --version           $ours_version ms (target ≤ 15 ms); mpv --version $mpv_version ms"
kill "$xvfb"; wait "$xvfb" 2> /dev/null || true
xvfb=""

"$root/build/release/bench/VideoBench" --benchmark_format=csv 2> /dev/null | awk -F, '
  /BM_SteadyFrame/ { steady = $3 }
  /BM_FirstFrameAfterLoopPoint/ { first = $3 }
  END {
    printf "\nDecode: steady frame %.2f ms; first frame after the loop point %.2f ms = %.2f× a steady frame, %.2f of one frame time at 48 fps\n",
      steady, first, first / steady, first / (1000 / 48)
  }'
