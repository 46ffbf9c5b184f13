#!/usr/bin/env bash
# `hushmeadows saver` run by the real XScreenSaver daemon (as an unprivileged
# user) on an Xvfb screen split into two monitors, with sound through a
# PulseAudio null sink. Checks every way a run ends: the daemon deactivating
# (SIGTERM), its graphics process killed (parent death), and a preview window
# destroyed (DestroyNotify).
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
source "$(dirname "${BASH_SOURCE[0]}")/support/begin.sh" "$@"
chmod 755 "$work"
fail() { echo "FAIL: $*" >&2; tail -20 "$work/daemon.log" >&2 || true; exit 1; }
command -v xscreensaver > /dev/null || fail "xscreensaver is not installed (tools/install-deps.sh)"
# The daemon refuses root; only root can run it as another user here.
[ "$(id -u)" = 0 ] || { echo "SKIP: running the daemon as nobody needs root"; exit 77; }

# Everything the daemon runs must be readable by nobody.
mkdir -p app home/config run
cp "$program" app/; cp -r "$(dirname "$program")/Resources" app/
chmod -R a+rX app; chown -R nobody:nogroup home run; chmod 700 run

pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  [ -n "${daemon:-}" ] && kill "$daemon" 2>/dev/null || true
  for pid in $(hacks); do kill -9 "$pid" 2>/dev/null || true; done
  XDG_RUNTIME_DIR=$work/pulse pulseaudio --kill 2>/dev/null || true
}
trap cleanup EXIT

source "$here/../../tools/xvfb.sh"
start_two_monitor_xvfb || fail "no X server"

mkdir -p pulse; chmod 700 pulse
XDG_RUNTIME_DIR=$work/pulse pulseaudio -n --daemonize=yes --exit-idle-time=-1 \
  --load="module-native-protocol-unix auth-anonymous=1 socket=$work/pulse.sock" \
  --load="module-null-sink sink_name=ci_null format=float32le rate=48000 channels=2" > pulse.log 2>&1 || fail "pulseaudio did not start"
export PULSE_SERVER=unix:$work/pulse.sock
for _ in $(seq 100); do pactl info > /dev/null 2>&1 && break; sleep 0.1; done
chmod 666 pulse.sock; pactl set-default-sink ci_null

as_user() {
  setpriv --reuid=nobody --regid=nogroup --clear-groups env HOME="$work/home" XDG_CONFIG_HOME="$work/home/config" \
    XDG_RUNTIME_DIR="$work/run" DISPLAY="$DISPLAY" PULSE_SERVER="$PULSE_SERVER" SDL_AUDIODRIVER=pulseaudio "$@"
}
hacks() { pgrep -u nobody -f "$work/app/hushmeadows saver" || true; }
# Alive and not a zombie (nobody here reaps orphans).
running() { local s; { read -r s < "/proc/$1/stat"; } 2> /dev/null || return 1; s=${s##*) }; [ "${s%% *}" != Z ]; }
any_running() { local p; for p in "$@"; do running "$p" && return 0; done; return 1; }
now() { date +%s.%N; }
ms_since() { echo "($(now) - $1) * 1000" | bc -l | cut -d. -f1; }
# The largest channel value in a region of the screen: 0 is black.
brightest() { xwd -root -silent | convert xwd:- -crop "$1" +repage -format '%[max]' info:; }
# Waits up to 20 s for colour in a region: the daemon's windows are black and
# xlogo black and white, so only our picture can put colour there.
shows() {
  for _ in $(seq 80); do
    [ "$(xwd -root -silent | convert xwd:- -crop "$1" +repage -colorspace HSL -channel G -separate -format '%[max]' info:)" != 0 ] && return 0
    sleep 0.25
  done
  return 1
}
# Waits up to 20 s until a log, from its line `from` on, holds `count` lines matching `pattern`.
logged() { # file from count pattern
  for _ in $(seq 200); do [ "$(tail -n +"$2" "$1" | grep -c -- "$4")" -ge "$3" ] && return 0; sleep 0.1; done; return 1
}
lines() { wc -l < "$1"; }
sinks() { pactl list short sink-inputs | wc -l; }
# Once every hack of this activation has said whether it plays sound and the
# one that plays has started it, exactly one stream must be there.
one_sound() { # first daemon.log line of this activation, and the log line of the hack that stays silent
  logged daemon.log "$1" 2 'start world=' && logged daemon.log "$1" 1 'Sound started' && logged daemon.log "$1" 1 "$2" \
    || fail "the hacks did not all start: $(tail -n +"$1" daemon.log)"
  [ "$(sinks)" = 1 ]
}
# Waits until the recording has grown by at least `bytes` since it had `from`.
recorded() { # from bytes
  for _ in $(seq 200); do [ "$(stat -c %s rec.raw)" -ge $(($1 + $2)) ] && return 0; sleep 0.05; done; return 1
}

# The user's file lists another hack first; install-xscreensaver adds ours
# after it (selected: 1) and leaves the rest alone, once.
printf '%s\n' 'timeout: 0:30:00' 'lock: False' 'fade: False' 'unfade: False' 'splash: False' 'mode: one' 'selected: 1' \
  'programs: \' '  maze -root \n\' '' > home/.xscreensaver
chown nobody:nogroup home/.xscreensaver; cp home/.xscreensaver before
as_user "$work/app/hushmeadows" install-xscreensaver > installed.txt
grep -q '^added Hushmeadows' installed.txt || fail "install-xscreensaver did not add the hack"
# The hack has no options in the daemon's dialog: the command says where it is set up.
grep -qF "settings live in $work/home/config/hushmeadows/Settings.json" installed.txt || fail "install-xscreensaver does not say where the settings live"
as_user "$work/app/hushmeadows" install-xscreensaver | grep -q 'nothing changed' || fail "install-xscreensaver is not idempotent"
[ "$(diff before home/.xscreensaver | grep -c '^[<>]')" = 1 ] || fail "install-xscreensaver changed more than one line"
as_user "$work/app/hushmeadows" settings set screenSaverAudioEnabled true > /dev/null
as_user xscreensaver -no-splash > daemon.log 2>&1 &
daemon=$!
for _ in $(seq 50); do as_user xscreensaver-command -time > /dev/null 2>&1 && break; sleep 0.1; done

activate() {
  as_user xscreensaver-command -activate > /dev/null
  for _ in $(seq 100); do [ "$(hacks | wc -l)" = 2 ] && break; sleep 0.05; done
  [ "$(hacks | wc -l)" = 2 ] || fail "the daemon did not start one hack per monitor"
}

# 1. All displays off: the world on the first monitor, black on the second,
#    the sound once; deactivation ends both hacks and the sound.
parec -d ci_null.monitor --latency-msec=20 --format=float32le --rate=48000 --channels=2 --raw > rec.raw &
recorder=$!; pids+=($recorder)
# The recorder runs before anything plays: once the sink's silence reaches
# the file (being listed is not enough).
for _ in $(seq 200); do [ "$(stat -c %s rec.raw)" -ge 38400 ] && break; sleep 0.05; done
[ "$(stat -c %s rec.raw)" -ge 38400 ] || fail "the recorder records nothing"
from=$(($(lines daemon.log) + 1))
activate
shows 960x1080+0+0 || fail "the first monitor shows nothing"
one_sound "$from" 'role=dark .*audioAllowed=false' || fail "$(sinks) sound streams play, not one"
[ "$(brightest 960x1080+960+0)" = 0 ] || fail "the second monitor is not black with screenSaverAllDisplays off"
old=$(hacks)
deactivated=$(now)
as_user xscreensaver-command -deactivate > /dev/null
for _ in $(seq 200); do [ "$(sinks)" = 0 ] && break; sleep 0.01; done
echo "deactivation: sound stream gone after $(ms_since "$deactivated") ms"
for _ in $(seq 200); do any_running $old || break; sleep 0.01; done
any_running $old && fail "hacks still run 2 s after deactivation"
echo "deactivation: every hack gone after $(ms_since "$deactivated") ms"
# Half a second more of the sink, to hear that nothing follows.
recorded "$(stat -c %s rec.raw)" 192000 || fail "the recorder stopped recording"
kill "$recorder"; wait "$recorder" 2>/dev/null || true
grep -q 'frames drawn: 0' daemon.log || fail "the dark monitor drew frames"
python3 - rec.raw <<'EOF' || fail "sound"
import array, sys
d = open(sys.argv[1], "rb").read(); s = array.array("f", d[: len(d) // 4 * 4])  # the last 0.3 s must be silent
sys.exit("no sound was heard" if max(map(abs, s), default=0) <= 1e-4 else
         "sound went on after deactivation" if max(map(abs, s[-28800:])) > 1e-4 else 0)
EOF

# 2. All displays on: the world on both monitors, one sound stream; kill -9
#    of the daemon's graphics process ends our hacks within 0.5 s.
as_user "$work/app/hushmeadows" settings set screenSaverAllDisplays true > /dev/null
from=$(($(lines daemon.log) + 1))
activate
shows 960x1080+0+0 && shows 960x1080+960+0 || fail "a monitor is black with screenSaverAllDisplays on"
one_sound "$from" 'staying silent' || fail "$(sinks) sound streams play on two monitors, not one"
old=$(hacks)
gfx=$(pgrep -u nobody -f xscreensaver-gfx | head -1)
killed=$(now)
kill -9 "$gfx"
for _ in $(seq 200); do any_running $old || break; sleep 0.01; done
gone_ms=$(ms_since "$killed")
any_running $old && fail "hacks still run 2 s after their parent was killed"
echo "graphics process killed: our hacks gone after $gone_ms ms"
[ "$gone_ms" -le 500 ] || fail "hacks outlived their parent by more than 0.5 s"
# The daemon's emergency graphics process starts hacks of its own: they go too.
as_user xscreensaver-command -deactivate > /dev/null || true
for _ in $(seq 400); do [ -z "$(hacks)" ] && break; sleep 0.05; done
[ -z "$(hacks)" ] || fail "hacks still run 20 s after the last deactivation"

# 3. The settings dialog's preview: a small window, the world without sound;
#    destroying the window ends the preview.
start_xlogo 320x180 || fail "xlogo shows no window"
logo=$xlogo_pid; pids+=($logo)
as_user "$work/app/hushmeadows" saver --window-id "$child" > preview.log 2>&1 &
preview=$!
logged preview.log 1 1 'role=preview' || fail "the preview did not start as a preview: $(cat preview.log)"
shows 310x170+5+5 || fail "the preview window shows nothing"
pactl list sink-inputs | grep -q "application.process.id = \"$preview\"" && fail "the preview plays sound"
kill "$logo"
destroyed=$(now)
for _ in $(seq 200); do running "$preview" || break; sleep 0.01; done
running "$preview" && fail "the preview still runs 2 s after its window was destroyed"
echo "preview window destroyed: preview gone after $(ms_since "$destroyed") ms"
as_user "$work/app/hushmeadows" saver --window-id 0x1234567 > bad.log 2>&1 && fail "a bad window id was accepted"
[ "$(wc -l < bad.log)" = 1 ] && grep -q 'no X window 0x1234567' bad.log || fail "a bad window id: $(cat bad.log)"

# 4. Standalone: one process covers both monitors and ends on the first real
#    pointer move, not on a nudge of a few pixels.
pointer() {
  python3 -c 'import ctypes, sys
x = ctypes.CDLL("libX11.so.6"); t = ctypes.CDLL("libXtst.so.6"); x.XOpenDisplay.restype = ctypes.c_void_p
d = ctypes.c_void_p(x.XOpenDisplay(None)); t.XTestFakeMotionEvent(d, -1, int(sys.argv[1]), int(sys.argv[2]), 0); x.XFlush(d)' "$@"
}
pointer 960 540
"$work/app/hushmeadows" saver > standalone.log 2>&1 &
standalone=$!; pids+=($standalone)
shows 960x1080+0+0 && logged standalone.log 1 1 'role=dark' && [ "$(brightest 960x1080+960+0)" = 0 ] \
  || fail "standalone: not the world on the first monitor only"
# A nudge must not end it; nothing tells when it was seen, so it gets half a second.
pointer 963 541; sleep 0.5
running "$standalone" || fail "standalone ended on a nudge of the pointer"
pointer 1060 540
for _ in $(seq 100); do running "$standalone" || break; sleep 0.01; done
running "$standalone" && fail "standalone still runs 1 s after the pointer moved"
grep -q 'stopping: input' standalone.log || fail "standalone ended for another reason: $(tail -3 standalone.log)"
echo "PASS"
