#!/usr/bin/env bash
# `hushmeadows play` on Xvfb: a poster of known pixels at several sizes and
# framings, each screenshot checked pixel by pixel (picture at the place and
# scale written beside each case, edge strips over the margins, their average
# in the corners); a video whose frames carry their index recorded off the
# screen must advance at the clip's rate and loop; SIGTERM/SIGINT end it promptly.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$here/support/begin.sh" "$@"
quiet=(-hide_banner -loglevel error -y)
export HOME=$work/home XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data XDG_DATA_DIRS=$work/system
unset HUSHMEADOWS_DEBUG

# `pixels poster FILE` writes the 40 x 24 poster (every pixel distinct);
# `pixels check SHOT.rgb SCREEN_WIDTH WINDOW_X,Y,WxH FRAME` checks the window
# against the poster drawn at FRAME (X,Y,WxH in the window) or "black",
# computed from the layout rules, not from the program.
pixels() { python3 - "$@" <<'PY'
import math, sys
W, H, DEPTH = 40, 24, 3  # DEPTH: the edge bands of the poster store
P = [[(x * 6 % 256, y * 10 % 256, (x * 37 + y * 11) % 256) for x in range(W)] for y in range(H)]
if sys.argv[1] == "poster":
    open(sys.argv[2], "wb").write(b"P6 %d %d 255\n" % (W, H) + bytes(c for r in P for p in r for c in p))
    sys.exit()
shot, sw, window, frame = sys.argv[2], int(sys.argv[3]), sys.argv[4], sys.argv[5]
wx, wy, size = window.split(","); wx, wy = int(wx), int(wy); pw, ph = map(int, size.split("x"))
data = open(shot, "rb").read()
def row(y): start = ((wy + y) * sw + wx) * 3; return data[start:start + pw * 3]
if frame == "black":
    sys.exit(next((f"window row {y} is not black" for y in range(ph) if row(y).strip(b"\0")), None))
fx, fy, size = frame.split(","); fx, fy = int(fx), int(fy); fw, fh = map(int, size.split("x"))

def strip(bx, by, bw, bh, vertical):
    """Band means along the edge, then a box of three cut short at the ends (wider only from 200 px)."""
    length, depth = (bh, bw) if vertical else (bw, bh)
    prefix = [(0.0, 0.0, 0.0)]
    for i in range(length):
        band = [P[by + i][bx + k] if vertical else P[by + k][bx + i] for k in range(depth)]
        prefix.append(tuple(prefix[-1][c] + sum(p[c] for p in band) / depth for c in range(3)))
    box = [(max(i - 1, 0), min(i + 2, length)) for i in range(length)]
    return [tuple(min(max(int((prefix[hi][c] - prefix[lo][c]) / (hi - lo)), 0), 255) for c in range(3)) for lo, hi in box]

left, right = strip(0, 0, DEPTH, H, True), strip(W - DEPTH, 0, DEPTH, H, True)
top, bottom = strip(0, 0, W, DEPTH, False), strip(0, H - DEPTH, W, DEPTH, False)
every = left + right + top + bottom
lround = lambda v: math.floor(v) + (v - math.floor(v) >= 0.5)
average = tuple(lround(sum(p[c] for p in every) / len(every) / 255.0 * 255.0) for c in range(3))
x0, y0 = min(max(fx, 0), pw), min(max(fy, 0), ph)
x1, y1 = min(max(fx + fw, x0), pw), min(max(fy + fh, y0), ph)
index = lambda p, origin, span, n: min(max(int((p - origin + 0.5) * n / span), 0), n - 1)
columns = [index(x, fx, fw, W) for x in range(pw)]
whole = fw % W == 0 and fh % H == 0 and fw // W == fh // H
problems = []
for y in range(ph):
    if y0 <= y < y1:
        strip_row = (y - fy) * H // fh
        want = [left[strip_row]] * x0 + [P[index(y, fy, fh, H)][columns[x]] for x in range(x0, x1)] + [right[strip_row]] * (pw - x1)
    else:
        edge = top if y < y0 else bottom
        want = [average] * x0 + [edge[(x - fx) * W // fw] for x in range(x0, x1)] + [average] * (pw - x1)
    got = row(y)
    if got == bytes(c for p in want for c in p):
        continue
    for x in range(pw):
        have, inside = tuple(got[x * 3:x * 3 + 3]), x0 <= x < x1 and y0 <= y < y1
        if have == want[x]:
            continue
        if inside and not whole:
            # Fractional nearest: the sample may fall one source pixel either
            # way of the nominal one at a block boundary.
            cx, cy = int((x - fx + 0.5) * W / fw), int((y - fy + 0.5) * H / fh)
            if have in {P[j][i] for j in range(max(cy - 1, 0), min(cy + 2, H)) for i in range(max(cx - 1, 0), min(cx + 2, W))}:
                continue
        problems.append(f"({x},{y}) {'picture' if inside else 'margin'}: {have}, expected {want[x]}")
    if len(problems) >= 5:
        break
sys.exit(f"{pw}x{ph} drawn at {frame}: wrong pixels, first: " + "; ".join(problems[:5]) if problems else None)
PY
}

pixels poster poster.ppm && convert poster.ppm poster.png
ffmpeg "${quiet[@]}" -f lavfi -i testsrc2=size=32x18:rate=12 -t 0.5 -pix_fmt yuv420p loop.mp4
package() { # folder id [extra json for visual] [poster file]
  mkdir -p "$1"
  cp loop.mp4 "$1/loop.mp4"
  local poster=""
  if [ -n "${4-poster.png}" ]; then cp "${4-poster.png}" "$1/poster.png"; poster=',"poster":"poster.png"'; fi
  printf '{"formatVersion":1,"id":"%s","name":"%s","visual":{"file":"loop.mp4"%s%s}}' "$2" "$2" "$poster" "${3:-}" > "$1/world.json"
}
# With the safe area protected, fill keeps all of it and wholeScene shows the
# whole picture; without, fill covers the window and wholeScene may crop.
package edges.hushmeadow edges ',"protectsSafeArea":true'
package cover.hushmeadow cover
package bare.hushmeadow bare '' ''
mkdir -p broken.hushmeadow
echo '{"formatVersion":1,"id":"broken"' > broken.hushmeadow/world.json

# A load failure is reported before any window opens.
status=0; DISPLAY= "$program" play broken.hushmeadow > out.txt 2> err.txt || status=$?
[ "$status" = 1 ] || fail "broken package: exit status $status, expected 1"
grep -q '^hushmeadows play: broken.hushmeadow: ' err.txt || { cat err.txt >&2; fail "broken package: no description on stderr"; }

screen_w=1280 xvfb_pid="" player=""
cleanup() {
  [ -n "$player" ] && kill -KILL "$player" 2>/dev/null || true
  [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null || true
}
trap cleanup EXIT
source "$here/../../tools/xvfb.sh"
# Display numbers apart from those of the other scripts, which ctest may run meanwhile.
start_xvfb ${screen_w}x800 || fail "no X display could be started"

geometry_of() { # xwininfo arguments: prints X,Y,WxH
  xwininfo "$@" | awk '/Absolute upper-left X/ {x=$NF} /Absolute upper-left Y/ {y=$NF} /Width:/ {w=$NF} /Height:/ {h=$NF}
                       END {print x "," y "," w "x" h}'
}

# Starts the player, waits for its window and sets `geometry` to X,Y,WxH.
start() { # arguments for play
  "$program" play "$@" > out.txt 2> err.txt &
  player=$!
  for _ in $(seq 100); do
    if xwininfo -name Hushmeadows 2>/dev/null | grep -q 'Map State: IsViewable'; then
      geometry=$(geometry_of -name Hushmeadows)
      return
    fi
    kill -0 "$player" 2>/dev/null || { cat err.txt >&2; fail "play $* exited before its window showed"; }
    sleep 0.05
  done
  fail "play $*: no window"
}

# The screenshot must match; the poster is decoded in the background, so the
# first shots may still be black.
expect() { # frame of the picture in the window, or black
  for _ in $(seq 25); do
    xwd -root -silent | convert xwd:- -depth 8 rgb:shot.rgb
    pixels check shot.rgb $screen_w "$geometry" "$1" > check.txt 2>&1 && return
    sleep 0.2
  done
  cat check.txt err.txt >&2
  fail "screenshot differs"
}

stop() { # signal: the player must be gone within 1 s, with status 0
  kill "-$1" "$player"
  timeout 1 tail --pid="$player" -s 0.02 -f /dev/null || fail "still running 1 s after SIG$1"
  local status=0
  wait "$player" || status=$?
  player=""
  [ "$status" = 0 ] || { cat err.txt >&2; fail "exit status $status after SIG$1, expected 0"; }
}

show() { # package WxH framing frame [more play arguments]
  start "$1" --window "$2" --framing "$3" --poster-only "${@:5}"
  [ "${geometry##*,}" = "$2" ] || fail "window is ${geometry##*,}, expected $2"
  expect "$4"
  stop TERM
}

# Whole scales: every poster pixel an s x s block.
show edges.hushmeadow 300x200 wholeScene 10,16,280x168   # fit, scale 7, margins on all sides
show edges.hushmeadow 131x101 wholeScene 6,15,120x72     # scale 3, odd spare pixels: larger half left and top
show edges.hushmeadow 240x120 fill 0,-12,240x144         # scale 6 within the safe area, cropped top and bottom
show cover.hushmeadow 196x117 fill -2,-2,200x120         # snapped up to 5, cropped on every side
# Fractional scales, nearest sampling.
show edges.hushmeadow 130x100 wholeScene 0,11,130x78 --no-pixel-perfect  # 3.25, margins top and bottom
show cover.hushmeadow 400x300 wholeScene -50,0,500x300   # 12.5 (the safe area's bound), cropped left and right

# Full screen, world and framing from the library and the settings; SIGINT.
mkdir -p "$XDG_DATA_HOME/hushmeadows/Worlds"
cp -r cover.hushmeadow edges.hushmeadow "$XDG_DATA_HOME/hushmeadows/Worlds/"
"$program" settings set selectedWorldID cover > /dev/null
start --poster-only
[ "$geometry" = "0,0,${screen_w}x800" ] || fail "full-screen window is $geometry"
expect -40,-8,1360x816   # snapped up to 34
stop INT
"$program" settings set framing wholeScene > /dev/null
start edges --window 300x200 --poster-only
expect 10,16,280x168
stop TERM

# A window another program made, as XScreenSaver hands a hack its window:
# xlogo's top-level window is covered by a child, so the picture goes there.
start_xlogo 220x120 || fail "xlogo shows no window"
host=$xlogo_pid
"$program" play edges.hushmeadow --window-id "$child" --poster-only > out.txt 2> err.txt &
player=$!
geometry=$(geometry_of -id "$child")
[ "${geometry##*,}" = 220x120 ] || fail "xlogo's window is ${geometry##*,}, not 220x120"
expect 10,0,200x120   # fit, scale 5
stop TERM
xwininfo -id "$child" > /dev/null 2>&1 || fail "the foreign window did not outlive the player"
# Its owner going away destroys the window, and the player ends with it.
"$program" play edges.hushmeadow --window-id "$child" --poster-only > out.txt 2> err.txt &
player=$!
# The screen already shows the first player's picture: wait for this one's start.
for _ in $(seq 200); do grep -q 'role=preview' err.txt && break; sleep 0.05; done
grep -q 'role=preview' err.txt || { cat err.txt >&2; fail "the second player did not start"; }
kill "$host"; wait "$host" 2>/dev/null || true
timeout 5 tail --pid="$player" -s 0.02 -f /dev/null || fail "still playing 5 s after its window was destroyed"
status=0; wait "$player" || status=$?; player=""
[ "$status" = 0 ] && grep -q 'the window was destroyed' err.txt || { cat err.txt >&2; fail "ended with status $status, not for the destroyed window"; }

# No poster: black, and the log says why.
start bare.hushmeadow --window 160x90 --poster-only
said='World bare has no poster; the picture stays black until its video plays'
for _ in $(seq 100); do grep -qF "$said" err.txt && break; sleep 0.05; done
grep -qF "$said" err.txt || { cat err.txt >&2; fail "no poster: not logged"; }
expect black
stop TERM

# Frame i of a lossless 6 fps clip is flat red = 40 i. Recorded at 30 fps, the
# index must step by one at the clip's rate through every frame and start over.
ffmpeg "${quiet[@]}" -f lavfi -i "color=s=64x36:r=6,format=rgb24,geq=r='40*N':g='90':b='0'" -frames:v 6 -c:v libx264rgb -qp 0 clip.mp4
mkdir -p motion.hushmeadow && cp clip.mp4 motion.hushmeadow/clip.mp4
echo '{"formatVersion":1,"id":"motion","name":"motion","visual":{"file":"clip.mp4"}}' > motion.hushmeadow/world.json
start motion.hushmeadow --window 192x108
# Recording starts once the clip's green of 90 shows (no poster: black before).
origin="${geometry%,*}"
for _ in $(seq 100); do
  green=$(xwd -root -silent | convert xwd:- -crop "1x1+$((${origin%,*} + 4))+$((${origin#*,} + 4))" -format '%[fx:int(255*g+0.5)]' info:)
  [ "$green" -ge 88 ] && [ "$green" -le 92 ] && break
  sleep 0.1
done
[ "$green" -ge 88 ] && [ "$green" -le 92 ] || fail "the clip never showed"
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
