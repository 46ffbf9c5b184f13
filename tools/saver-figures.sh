#!/usr/bin/env bash
# Figures of the saver's stops and of its dark monitor, measured on a private
# Xvfb (two monitors) with a PulseAudio null sink:
#   SIGTERM -> silence at the sink, SIGTERM -> process exit,
#   parent killed (-9) -> our exit,
#   CPU and frames drawn of a dark instance (all-displays off, second monitor),
#   beside the instance that shows the world.
# usage: tools/saver-figures.sh [PROGRAM]   (default build/dev/Apps/hushmeadows/hushmeadows)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
program=$(realpath "${1:-$root/build/dev/Apps/hushmeadows/hushmeadows}")
work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  XDG_RUNTIME_DIR=$work/run pulseaudio --kill 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
cd "$work"
export HOME=$work/home XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data XDG_DATA_DIRS=$work/none
export XDG_RUNTIME_DIR=$work/run SDL_AUDIODRIVER=pulseaudio
mkdir -p "$XDG_RUNTIME_DIR"; chmod 700 "$XDG_RUNTIME_DIR"

source "$root/tools/xvfb.sh"
start_two_monitor_xvfb || { echo "no free display" >&2; exit 1; }
pulseaudio -n --daemonize=yes --exit-idle-time=-1 --load=module-native-protocol-unix \
  --load="module-null-sink sink_name=ci_null format=float32le rate=48000 channels=2" > /dev/null 2>&1
for _ in $(seq 100); do pactl info > /dev/null 2>&1 && break; sleep 0.1; done
pactl set-default-sink ci_null
"$program" settings set screenSaverAudioEnabled true > /dev/null

now() { date +%s.%N; }
running() { local s; { read -r s < "/proc/$1/stat"; } 2> /dev/null || return 1; s=${s##*) }; [ "${s%% *}" != Z ]; }
wait_gone() { for _ in $(seq 1000); do running "$1" || return 0; sleep 0.002; done; return 1; }
ms() { echo "($2 - $1) * 1000" | bc -l | xargs printf '%.0f'; }
cpu_ticks() { local s; read -r s < "/proc/$1/stat"; s=${s##*) }; set -- $s; echo $((${12} + ${13})); }

# 1. SIGTERM: the standalone saver with sound, recorded at the sink.
parec -d ci_null.monitor --latency-msec=10 --format=float32le --rate=48000 --channels=2 --raw > rec.raw &
recorder=$!; pids+=($recorder)
sleep 0.5
"$program" saver > saver.log 2>&1 &
saver=$!; pids+=($saver)
sleep 6
offset=$(stat -c %s rec.raw)
sent=$(now)
kill -TERM "$saver"
wait_gone "$saver"; exited=$(now)
sleep 1; kill "$recorder"; wait "$recorder" 2>/dev/null || true
silence=$(python3 - rec.raw "$offset" <<'EOF'
import struct, sys
data = open(sys.argv[1], "rb").read()
frames = struct.unpack("<%df" % (len(data) // 4), data[: len(data) // 4 * 4])
at = int(sys.argv[2]) // 4
loud = [i for i in range(at, len(frames)) if abs(frames[i]) > 1e-4]
print("%.0f" % (((loud[-1] - at) / 2 / 48.0) if loud else 0))
EOF
)
echo "SIGTERM -> silence at the null sink: ${silence} ms (from the recording at the moment of the signal; sink latency 10 ms)"
echo "SIGTERM -> process exit: $(ms "$sent" "$exited") ms"

# 2. The parent dies without a word: a shell stands in for the daemon's
#    graphics process and is killed with -9.
root_window=$(xwininfo -root | awk '/Window id:/{print $4}')
XSCREENSAVER_WINDOW=$root_window sh -c '"$0" saver --root > parent.log 2>&1 & wait' "$program" &
shell=$!; pids+=($shell); disown "$shell"
sleep 3
hack=$(pgrep -P "$shell")
killed=$(now)
kill -9 "$shell"
wait_gone "$hack"; gone=$(now)
echo "parent killed -> our exit: $(ms "$killed" "$gone") ms"

# 3. Dark and shown instances: windows on each monitor, all-displays off.
"$program" settings set screenSaverAudioEnabled false > /dev/null
declare -A hacks
for side in left:0 right:960; do
  xlogo -geometry "960x1080+${side#*:}+0" > /dev/null 2>&1 &
  pids+=($!)
  sleep 1
  window=$(xwininfo -tree -root | awk -v x="+${side#*:}+0" '/xlogo/ && index($0, x) {print $1; exit}')
  child=$(xwininfo -id "$window" -children | awk '/child:/{getline; print $1}')
  XSCREENSAVER_WINDOW=$child sh -c 'exec "$0" saver --root' "$program" > "${side%:*}.log" 2>&1 &
  hacks[${side%:*}]=$!; pids+=($!)
done
sleep 3
declare -A before
for side in left right; do before[$side]=$(cpu_ticks "${hacks[$side]}"); done
sleep 10
hz=$(getconf CLK_TCK)
for side in left right; do
  ticks=$(( $(cpu_ticks "${hacks[$side]}") - ${before[$side]} ))
  kill -TERM "${hacks[$side]}"; wait_gone "${hacks[$side]}"
  role=$(grep -o 'role=[a-z]*' "$side.log" | head -1)
  frames=$(grep -o 'frames drawn: [0-9]*' "$side.log" | head -1)
  echo "$side monitor ($role): $(echo "$ticks * 100 / $hz / 10" | bc -l | xargs printf '%.2f') % of a core over 10 s, $frames"
done
