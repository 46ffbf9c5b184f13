#!/usr/bin/env bash
# The standalone `hushmeadows saver` with sound through a real PulseAudio null
# sink whose server is killed (-9) and started again: the saver notices, tries
# the output again at growing intervals (one log line per failed attempt), and
# its one stream comes back on the new server, fading in; SIGTERM then ends it.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
source "$(dirname "${BASH_SOURCE[0]}")/support/begin.sh" "$@"
source "$(dirname "${BASH_SOURCE[0]}")/support/sound.sh"


fail() { echo "FAIL: $*" >&2; tail -n 30 play.log >&2 2>/dev/null || true; exit 1; }
now() { date +%s.%N; }
# Polls (every 50 ms, at most $1 seconds) until the command succeeds.
await() { local limit=$1; shift; local end; end=$(echo "$(now) + $limit" | bc -l)
  until "$@"; do (( $(echo "$(now) > $end" | bc -l) )) && return 1; sleep 0.05; done; }

. "$here/../../tools/xvfb.sh"
start_xvfb 640x360 || fail "no X server"
pids+=("$xvfb_pid")

# The saver's own streams on the sink (by process id).
ours() { pactl list sink-inputs 2>/dev/null | grep -c "application.process.id = \"$player\"" || true; }
failures() { grep -cE 'Audio engine (restart failed|failed to start)' play.log || true; }
# Succeeds once the raw recording holds $1 seconds of sound after its first
# sound; with a second argument it also checks that the sound faded in.
heard() { python3 - rec.raw "$@" <<'EOF'
import array, math, sys
blob = open(sys.argv[1], "rb").read(); a = array.array("f"); a.frombytes(blob[:len(blob) // 8 * 8])
first = next((i for i, x in enumerate(a) if abs(x) > 1e-4), None)
R = 48000; sys.exit(1) if first is None or len(a) < first + 2 * R * float(sys.argv[2]) else None
if len(sys.argv) > 3:
    rms = lambda s, e: math.sqrt(sum(x * x for x in a[first + 2 * s:first + 2 * e]) / (2 * (e - s)))
    early, later = rms(0, R // 4), rms(9 * R // 2, 5 * R)
    print(f"after the return: first 250 ms {early:.5f}, at 4.5 s {later:.5f}")
    sys.exit("no fade-in heard" if not later > early * 4 else 0)
EOF
}

start_null_sink
"$program" settings set screenSaverAudioEnabled true > /dev/null
SDL_AUDIODRIVER=pulseaudio "$program" saver > play.log 2>&1 &
player=$!
pids+=("$player")
await 60 eval '[ "$(ours)" = 1 ] && grep -q "Sound started" play.log' || fail "the saver's sound did not start"

server=$(cat "$XDG_RUNTIME_DIR/pulse/pid")
kill -9 "$server"
killed_at=$(now)
# A new server refuses to start while the pid file names a process, a zombie included.
await 10 eval '[ ! -e /proc/$server ]' || fail "the server did not die"
await 10 grep -q 'Audio configuration changed; restarting engine' play.log || fail "the saver did not notice the server's death"
# Three failed attempts (at once, 0.5 s and 1.5 s later): the next one waits 2 s.
await 20 eval '[ "$(failures)" -ge 3 ]' || fail "the saver did not try the output again"
start_null_sink
back_at=$(now)
start_recorder rec.raw
await 15 grep -q 'Audio output back after' play.log || fail "the saver's output did not come back within 15 s of the server"
await 5 eval '[ "$(ours)" -ge 1 ]' || fail "the saver's stream is not on the server"
outage=$(echo "$back_at - $killed_at" | bc -l)
attempts=$(failures)
echo "server away $outage s with $attempts failed attempts"
# Attempts at 0, 0.5, 1.5, 3.5, 7.5, 17.5 s, ... after the loss: never more than those due.
allowed=$(python3 -c "import sys; t, d, n, o = 0.0, 0.5, 0, float(sys.argv[1]) + 0.5
while t <= o: n, t, d = n + 1, t + d, min(2 * d, 10)
print(n)" "$outage")
[ "$attempts" -le "$allowed" ] || fail "$attempts failed attempts in a $outage s outage: more than the $allowed due"
grep -q "Audio output back after $attempts failed attempts" play.log || fail "the return was not logged"

await 60 heard 5 2> /dev/null || fail "the sound did not go on for 5 s after its return"
heard 5 fade || fail "sound check"
[ "$(ours)" = 1 ] || fail "the saver plays $(ours) streams after the return"
kill -TERM "$player"
await 2.5 eval '! kill -0 "$player" 2>/dev/null' || fail "saver still running 2.5 s after SIGTERM"
wait "$player" || fail "saver exited with $?"
await 2 eval '[ -z "$(pactl list short sink-inputs)" ]' || fail "something still plays after the saver exited"
echo "audio server restart: all cases passed"
