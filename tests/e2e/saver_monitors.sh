#!/usr/bin/env bash
# The standalone saver follows RandR monitors set and deleted on Xvfb: one
# added gets a view in its role, one removed loses it, and when the main one
# goes the next takes over picture and sound, never with a second stream on
# the PulseAudio null sink.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
source "$(dirname "${BASH_SOURCE[0]}")/support/begin.sh" "$@"
source "$(dirname "${BASH_SOURCE[0]}")/support/sound.sh"

fail() { echo "FAIL: $*" >&2; tail -30 "$work/saver.log" >&2 || true; exit 1; }

first_monitor() { xrandr --listmonitors | sed -n 's/^ 0: [+*]*\([a-z]*\) .*/\1/p'; }
. "$here/../../tools/xvfb.sh"
start_xvfb 1920x360 || fail "no X server"
pids+=("$xvfb_pid")
# The server's output stays with the middle monitor: a monitor removed
# while it held the output would come back as a whole-screen one.
xrandr --setmonitor left 640/169x360/95+0+0 none > /dev/null
xrandr --setmonitor middle 640/169x360/95+640+0 screen > /dev/null
[ "$(first_monitor)" = left ] || fail "Xvfb lists $(first_monitor) first"

start_null_sink
"$program" settings set screenSaverAudioEnabled true > /dev/null

# Regions of the screen: 0 is black (a dark view's window; the bare root of
# Xvfb is a grey weave, never black).
declare -A offset=([left]=0 [middle]=640 [right]=1280)
brightest() { xwd -root -silent | convert xwd:- -crop "640x360+${offset[$1]}+0" +repage -format '%[max]' info:; }
# The picture comes within 30 s on a loaded machine; a dark view stays black.
shows() { for _ in $(seq 120); do [ "$(brightest "$1")" != 0 ] && return 0; sleep 0.25; done; return 1; }
dark() { for _ in $(seq 120); do [ "$(brightest "$1")" = 0 ] && return 0; sleep 0.25; done; return 1; }
sinks() { pactl list short sink-inputs | wc -l; }
log_has() { # count pattern: waits until the log holds at least count lines matching
  for _ in $(seq 300); do [ "$(grep -c "$2" saver.log)" -ge "$1" ] && return 0; sleep 0.1; done; return 1
}

SDL_AUDIODRIVER=pulseaudio "$program" saver > saver.log 2>&1 &
saver=$!
pids+=($saver)
log_has 1 'Sound started' || fail "no sound started"
shows left || fail "the main monitor shows nothing"
dark middle || fail "the second monitor is not dark"

# Every sound stream the sink ever carries, sampled while monitors change.
( while kill -0 "$saver" 2> /dev/null; do sinks; sleep 0.05; done ) > streams.txt &
sampler=$!
pids+=($sampler)

# The main monitor goes: its view goes, the other one shows the world and
# plays its sound.
xrandr --delmonitor left > /dev/null
log_has 1 'monitors changed: 2 to 1' || fail "the saver did not see the monitor go"
shows middle || fail "the remaining monitor did not take the picture over"
log_has 2 'role=display' || fail "no view took the main role"
for _ in $(seq 100); do [ "$(sinks)" = 1 ] && break; sleep 0.1; done
[ "$(sinks)" = 1 ] || fail "$(sinks) sound streams after the main monitor went, expected 1"

# A monitor comes back: it gets a view, in the role its place gives it.
xrandr --setmonitor left 640/169x360/95+0+0 none > /dev/null
log_has 1 'monitors changed: 1 to 2' || fail "the saver did not see the monitor come"
main=$(first_monitor)
other=left; [ "$main" = left ] && other=middle
shows "$main" || fail "the main monitor ($main) shows nothing"
dark "$other" || fail "the other monitor ($other) is not dark"

# With every monitor showing the world, a new one shows it too, and still
# one stream plays.
"$program" settings set screenSaverAllDisplays true > /dev/null
xrandr --setmonitor right 640/169x360/95+1280+0 none > /dev/null
log_has 1 'monitors changed: 2 to 3' || fail "the saver did not see the third monitor"
shows right || fail "the monitor added with all displays on shows nothing"
[ "$(sinks)" = 1 ] || fail "$(sinks) sound streams with three monitors, expected 1"

kill -TERM "$saver"
wait "$saver" || fail "the saver exited with $?"
wait "$sampler" 2> /dev/null || true
# The sound passed from view to view: it never stopped before SIGTERM.
if sed '/stopping: SIGTERM/q' saver.log | grep -q 'Sound stopped'; then fail "the sound stopped while monitors changed"; fi
most=$(sort -n streams.txt | tail -1)
[ "${most:-0}" -le 1 ] || fail "the sink carried $most streams at once while monitors changed"
[ "$(grep -c . streams.txt)" -gt 10 ] || fail "the stream sampler took only $(grep -c . streams.txt) samples"
echo "monitors: followed a removal, a return and an addition; at most $most stream at once over $(grep -c . streams.txt) samples"
