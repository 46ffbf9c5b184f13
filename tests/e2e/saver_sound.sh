#!/usr/bin/env bash
# The standalone `hushmeadows saver` with sound through a real PulseAudio null
# sink: the monitor is recorded, the world's sound must be heard (fading in),
# and it must stop as soon as the saver gets SIGTERM.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
source "$(dirname "${BASH_SOURCE[0]}")/support/begin.sh" "$@"
source "$(dirname "${BASH_SOURCE[0]}")/support/sound.sh"

world="$(dirname "$program")/Resources/Worlds/meadow.hushmeadow"
. "$here/../../tools/xvfb.sh"
start_xvfb 640x360 || fail "no X server"
pids+=("$xvfb_pid")
start_null_sink
"$program" settings set screenSaverAudioEnabled true > /dev/null
start_recorder rec.raw
play_start=$(date +%s.%N)
SDL_AUDIODRIVER=pulseaudio "$program" saver > play.log 2>&1 &
player=$!
pids+=($player)
# Decoding takes longer on a loaded machine: time the run from the sound's start.
for _ in $(seq 300); do grep -q 'Sound started' play.log && break; sleep 0.1; done
grep -q 'Sound started' play.log || { cat play.log; fail "no sound started within 30 s"; }
sleep 5.5
term_at=$(date +%s.%N)
kill -TERM "$player"
for _ in $(seq 50); do kill -0 "$player" 2>/dev/null || break; sleep 0.05; done
kill -0 "$player" 2>/dev/null && fail "saver still running 2.5 s after SIGTERM"
echo "saver exited $(echo "($(date +%s.%N) - $term_at) * 1000" | bc -l | cut -d. -f1) ms after SIGTERM (polled every 50 ms)"
wait "$player" || fail "saver exited with $?"
# A second more of the sink, to hear that nothing follows.
size=$(stat -c %s rec.raw)
for _ in $(seq 200); do [ "$(stat -c %s rec.raw)" -ge $((size + 384000)) ] && break; sleep 0.05; done
kill "$recorder"; wait "$recorder" 2>/dev/null || true

# What the saver would render for the same 6 s, for comparison.
"$program" render-audio "$world" --seconds 6 --out expected.wav > /dev/null 2>&1

# The recording's timeline is the sink's: the sound is heard fading in from
# its first audible moment to the offline render's level, and is cut at full
# level (not faded) within 0.3 s of SIGTERM.
python3 - rec.raw expected.wav "$(echo "$term_at - $play_start" | bc -l)" <<'EOF' || { cat play.log; fail "sound check"; }
import array, math, sys
def load(path, header):
    blob = open(path, "rb").read(); a = array.array("f"); a.frombytes(blob[blob.index(b"data") + 8:] if header else blob); return a
def rms(s, a, b):  # frames a..b, both channels
    part = s[2 * max(a, 0):2 * max(b, 0)]; return math.sqrt(sum(x * x for x in part) / max(len(part), 1))
rec, ref, ran, R, W = load(sys.argv[1], False), load(sys.argv[2], True), float(sys.argv[3]), 48000, 480
heard = [f for f in range(0, len(rec) // 2 - W, W) if rms(rec, f, f + W) > 1e-4] or sys.exit("nothing was heard")
first, last = heard[0], heard[-1] + W
early, later, offline = rms(rec, first, first + R // 4), rms(rec, first + 9 * R // 2, first + 5 * R), rms(ref, 9 * R // 2, 5 * R)
tail, gap = rms(rec, last - R // 10, last), (last - first) / R - ran
print(f"early {early:.5f}, at 4.5 s {later:.5f}, offline {offline:.5f}, last 100 ms {tail:.5f}, ended {gap * 1000:.0f} ms after SIGTERM")
sys.exit("no fade-in heard" if not later > early * 4 else "the level heard is not the world's" if not offline / 2 < later < offline * 2
         else "the sound faded out instead of stopping at once" if tail < later / 2 else "sound went on after SIGTERM" if gap > 0.3 else 0)
EOF
echo "saver with sound: all cases passed"
