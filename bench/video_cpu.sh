#!/usr/bin/env bash
# CPU and memory of showing a 640×360, 48 fps world full screen at 1920×1080
# under Xvfb, beside mpv playing the same clip on the same display in the same
# run (installed from Debian for this benchmark only). Each player runs 2 s to
# settle, then 10 s are measured: its own CPU plus the X server's, as a share
# of one core. Also the player's resident memory (the most seen during the
# 10 s) and the decode time of the first frame after the loop point.
# Usage: bash bench/video_cpu.sh   (builds the Release preset when needed)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
cmake --preset release -G Ninja > /dev/null
cmake --build build/release -j2 --target hushmeadows VideoBench > /dev/null
program=$root/build/release/Apps/hushmeadows/hushmeadows
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

world=$work/bench.hushmeadow
mkdir -p "$world"
ffmpeg -hide_banner -loglevel error -f lavfi -i testsrc2=size=640x360:rate=48 -t 5 -c:v libx264 -crf 20 -pix_fmt yuv420p "$world/loop.mp4"
echo '{"formatVersion":1,"id":"bench","name":"bench","visual":{"file":"loop.mp4","pixelArt":true}}' > "$world/world.json"

source tools/xvfb.sh
start_xvfb 160 199 1920x1080 || { echo "no free X display number" >&2; exit 1; }
xvfb=$xvfb_pid

ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
hz=$(getconf CLK_TCK)

# measure NAME COMMAND...: prints "NAME cpu% xcpu% rssKiB" for 10 s of playback.
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
  echo "$name $(( (p1 - p0) * 100 / (10 * hz) )) $(( (x1 - x0) * 100 / (10 * hz) )) $rss"
}

read -r _ ours ours_x ours_rss < <(measure hushmeadows "$program" play "$world")
read -r _ mpv mpv_x mpv_rss < <(measure mpv mpv --vo=x11 --fs --no-audio --hwdec=no --loop=inf --really-quiet "$world/loop.mp4")

ours_total=$((ours + ours_x))
mpv_total=$((mpv + mpv_x))
echo "CPU over 10 s, % of one core (player + X server):"
echo "  hushmeadows play  $ours + $ours_x = $ours_total %"
echo "  mpv --vo=x11      $mpv + $mpv_x = $mpv_total %"
awk -v a="$ours_total" -v b="$mpv_total" 'BEGIN { printf "  ratio %.2f× mpv (target ≤ 0.40×)\n", (b > 0 ? a / b : 0) }'
echo "Resident memory during playback: hushmeadows $((ours_rss / 1024)) MB (target ≤ 60 MB), mpv $((mpv_rss / 1024)) MB"

"$root/build/release/bench/VideoBench" --benchmark_format=csv 2> /dev/null | awk -F, '
  /BM_SteadyFrame/ { steady = $3 }
  /BM_FirstFrameAfterLoopPoint/ { first = $3 }
  END {
    printf "Decode: steady frame %.2f ms; first frame after the loop point %.2f ms = %.2f× a steady frame, %.2f of one frame time at 48 fps\n",
      steady, first, first / steady, first / (1000 / 48)
  }'
