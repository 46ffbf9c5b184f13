#!/usr/bin/env bash
# `hushmeadows play` on a virtual X display: a poster whose every pixel has a
# known colour is shown at several window sizes and framings, and each
# screenshot is checked pixel by pixel against the layout rules (scale and
# place of the picture, edge strips in the margins, average colour in the
# corners). A video whose frames carry their index is recorded off the screen
# to see it advance at the clip's rate and loop. The program must leave
# promptly and cleanly on SIGTERM or SIGINT.
set -euo pipefail
program=$1
work=$2
rm -rf "$work"; mkdir -p "$work"
cd "$work"
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
pixels=$here/scene_pixels.py

fail() { echo "FAIL: $*" >&2; exit 1; }
quiet=(-hide_banner -loglevel error -y)

export HOME=$work/home
export XDG_CONFIG_HOME=$work/config
export XDG_DATA_HOME=$work/data
export XDG_DATA_DIRS=$work/system
unset HUSHMEADOWS_DEBUG

poster_w=40
poster_h=24
python3 "$pixels" poster poster.ppm $poster_w $poster_h && convert poster.ppm poster.png
ffmpeg "${quiet[@]}" -f lavfi -i testsrc2=size=32x18:rate=12 -t 0.5 -pix_fmt yuv420p loop.mp4

package() { # folder id [extra json for visual] [poster file]
  mkdir -p "$1"
  cp loop.mp4 "$1/loop.mp4"
  local poster=""
  if [ -n "${4-poster.png}" ]; then cp "${4-poster.png}" "$1/poster.png"; poster=',"poster":"poster.png"'; fi
  printf '{"formatVersion":1,"id":"%s","name":"%s","visual":{"file":"loop.mp4"%s%s}}' "$2" "$2" "$poster" "${3:-}" > "$1/world.json"
}
# Protecting the safe area: framing fill keeps the whole safe area, framing
# wholeScene shows the whole picture with margins.
package edges.hushmeadow edges ',"protectsSafeArea":true'
# Without protection: fill covers the window, wholeScene may still crop.
package cover.hushmeadow cover
package bare.hushmeadow bare '' ''
mkdir -p broken.hushmeadow
echo '{"formatVersion":1,"id":"broken"' > broken.hushmeadow/world.json

# A load failure is reported before any window opens.
set +e
DISPLAY= "$program" play broken.hushmeadow > out.txt 2> err.txt; status=$?
set -e
[ "$status" = 1 ] || fail "broken package: exit status $status, expected 1"
grep -q '^hushmeadows play: broken.hushmeadow: ' err.txt || { cat err.txt >&2; fail "broken package: no description on stderr"; }

# A display of our own, on the first free number from 90.
screen_w=1280
screen_h=800
xvfb_pid=""
player=""
cleanup() {
  [ -n "$player" ] && kill -KILL "$player" 2>/dev/null || true
  [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null || true
}
trap cleanup EXIT
for n in $(seq 90 140); do
  [ -e "/tmp/.X$n-lock" ] || [ -e "/tmp/.X11-unix/X$n" ] && continue
  # -noreset: a server that resets when its last client leaves drops the
  # connections that arrive meanwhile.
  Xvfb ":$n" -screen 0 ${screen_w}x${screen_h}x24 -nolisten tcp -noreset > xvfb.log 2>&1 &
  xvfb_pid=$!
  export DISPLAY=":$n"
  for _ in $(seq 50); do
    xdpyinfo > /dev/null 2>&1 && break
    kill -0 "$xvfb_pid" 2>/dev/null || break
    sleep 0.1
  done
  xdpyinfo > /dev/null 2>&1 && break
  kill "$xvfb_pid" 2>/dev/null || true
  xvfb_pid=""
done
[ -n "$xvfb_pid" ] || fail "no X display could be started"

# Starts the player, waits for its window and sets `geometry` to X,Y,WxH.
start() { # arguments for play
  "$program" play "$@" > out.txt 2> err.txt &
  player=$!
  geometry=""
  for _ in $(seq 100); do
    if xwininfo -name Hushmeadows > info.txt 2>/dev/null && grep -q 'Map State: IsViewable' info.txt; then
      geometry=$(awk '/Absolute upper-left X/ {x=$NF} /Absolute upper-left Y/ {y=$NF} /Width:/ {w=$NF} /Height:/ {h=$NF}
                      END {print x "," y "," w "x" h}' info.txt)
      return
    fi
    kill -0 "$player" 2>/dev/null || { cat err.txt >&2; fail "play $* exited before its window showed"; }
    sleep 0.05
  done
  fail "play $*: no window"
}

# The screenshot must match; the poster is decoded in the background, so the
# first shots may still be black.
expect() { # scene_pixels options
  for _ in $(seq 25); do
    xwd -root -silent | convert xwd:- -depth 8 rgb:shot.rgb
    if python3 "$pixels" check shot.rgb ${screen_w}x${screen_h} "$geometry" ${poster_w}x${poster_h} "$@" > check.txt 2>&1; then
      cat check.txt
      return
    fi
    sleep 0.2
  done
  cat check.txt err.txt >&2
  fail "screenshot differs"
}

stop() { # signal
  kill "-$1" "$player"
  local started=$(date +%s%N)
  while kill -0 "$player" 2>/dev/null; do
    [ $(( $(date +%s%N) - started )) -lt 1000000000 ] || fail "still running 1 s after SIG$1"
    sleep 0.02
  done
  set +e
  wait "$player"; local status=$?
  set -e
  player=""
  [ "$status" = 0 ] || { cat err.txt >&2; fail "exit status $status after SIG$1, expected 0"; }
}

show() { # package WxH framing pixelPerfect protects [more play arguments]
  local extra=()
  [ "$4" = 1 ] || extra+=(--no-pixel-perfect)
  start "$1" --window "$2" --framing "$3" --poster-only "${extra[@]}" "${@:6}"
  [ "${geometry##*,}" = "$2" ] || fail "window is ${geometry##*,}, expected $2"
  expect framing="$3" pixelPerfect="$4" protects="$5"
  stop TERM
}

# Whole scales: every poster pixel an s x s block.
show edges.hushmeadow 300x200 wholeScene 1 1   # fit, scale 7, margins on all sides
show edges.hushmeadow 131x101 wholeScene 1 1   # scale 3, odd spare pixels: larger half left and top
show edges.hushmeadow 240x120 fill 1 1         # scale 6, cropped top and bottom
show cover.hushmeadow 196x117 fill 1 0         # snapped up to 5, cropped on every side
# Fractional scales, nearest sampling.
show edges.hushmeadow 130x100 wholeScene 0 1   # 3.25, margins top and bottom
show cover.hushmeadow 400x300 wholeScene 1 0   # 12.5, cropped left and right

# Full screen, world and framing from the library and the settings; SIGINT.
mkdir -p "$XDG_DATA_HOME/hushmeadows/Worlds"
cp -r cover.hushmeadow edges.hushmeadow "$XDG_DATA_HOME/hushmeadows/Worlds/"
"$program" settings set selectedWorldID cover > /dev/null
start --poster-only
[ "$geometry" = "0,0,${screen_w}x${screen_h}" ] || fail "full-screen window is $geometry"
expect framing=fill pixelPerfect=1 protects=0
stop INT
"$program" settings set framing wholeScene > /dev/null
start edges --window 300x200 --poster-only
expect framing=wholeScene pixelPerfect=1 protects=1
stop TERM

# A window another program made, as XScreenSaver hands a hack its window:
# xlogo's top-level window is covered by a child, so the picture goes there.
xlogo -geometry 220x120+0+0 > /dev/null 2>&1 &
host=$!
for _ in $(seq 100); do
  xwininfo -name xlogo -children > info.txt 2>/dev/null && grep -q '^ *0x' info.txt && break
  sleep 0.05
done
child=$(awk '/^ +0x/ {print $1; exit}' info.txt)
[ -n "$child" ] || fail "xlogo shows no window"
"$program" play edges.hushmeadow --window-id "$child" --poster-only > out.txt 2> err.txt &
player=$!
geometry=$(xwininfo -id "$child" | awk '/Absolute upper-left X/ {x=$NF} /Absolute upper-left Y/ {y=$NF} /Width:/ {w=$NF} /Height:/ {h=$NF}
                                         END {print x "," y "," w "x" h}')
expect framing=wholeScene pixelPerfect=1 protects=1
stop TERM
xwininfo -id "$child" > /dev/null 2>&1 || fail "the foreign window did not outlive the player"
kill "$host"; wait "$host" 2>/dev/null || true

# No poster: black, and the log says why.
start bare.hushmeadow --window 160x90 --poster-only
grep -q 'has no poster' err.txt || { sleep 0.5; grep -q 'has no poster' err.txt; } || { cat err.txt >&2; fail "no poster: not logged"; }
expect black=1
stop TERM

# The video: frame i of a lossless 6 fps clip is flat red = 40 i. Recorded
# off the screen at 30 fps, the index must step by one at the clip's rate,
# run through every frame and start over, with nothing else in between.
ffmpeg "${quiet[@]}" -f lavfi -i "color=s=64x36:r=6,format=rgb24,geq=r='40*N':g='90':b='0'" -frames:v 6 -c:v libx264rgb -qp 0 clip.mp4
mkdir -p motion.hushmeadow && cp clip.mp4 motion.hushmeadow/clip.mp4
echo '{"formatVersion":1,"id":"motion","name":"motion","visual":{"file":"clip.mp4"}}' > motion.hushmeadow/world.json
start motion.hushmeadow --window 192x108
sleep 1
ffmpeg "${quiet[@]}" -f x11grab -framerate 30 -video_size 8x8 -i "$DISPLAY+${geometry%%,*},$(echo "$geometry" | cut -d, -f2)" -t 4 \
  -f rawvideo -pix_fmt rgb24 motion.raw
stop TERM
python3 - motion.raw <<'PY' || fail "the video does not move as it should"
import sys
data = open(sys.argv[1], "rb").read()
shots = [data[i + 4 * 24 + 12 : i + 4 * 24 + 15] for i in range(0, len(data), 192)]
assert all(abs(g - 90) <= 2 and b <= 2 and r % 40 <= 2 for r, g, b in shots), "a frame that is not the clip's"
runs = [shots[0][0] // 40]
for r, g, b in shots[1:]:
    if r // 40 != runs[-1]:
        runs.append(r // 40)
steps = [(b - a) % 6 for a, b in zip(runs, runs[1:])]
seconds = len(shots) / 30
print(f"motion: {len(shots)} shots, {len(steps)} frame changes in {seconds:.1f} s, {runs.count(0)} passes started")
assert steps and all(s == 1 for s in steps), f"frames skipped or repeated: {runs}"
assert abs(len(steps) / seconds - 6) <= 1.2, f"{len(steps) / seconds:.2f} frames a second, expected 6"
assert runs.count(0) >= 3, "it did not loop"
PY

echo "play: all cases passed"
