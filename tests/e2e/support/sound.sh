# Sourced after begin.sh by the scripts that listen to the saver: a home and
# a runtime folder of the script's own, `pids` killed on exit with the
# PulseAudio server, and the two steps of every recording.
export HOME=$work/home XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data XDG_DATA_DIRS=$work/none
export XDG_RUNTIME_DIR=$work/run
mkdir -p "$XDG_RUNTIME_DIR"; chmod 700 "$XDG_RUNTIME_DIR"
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  pulseaudio --kill 2>/dev/null || true
}
trap cleanup EXIT

# A PulseAudio of the script's own whose default sink is the float32 null
# sink ci_null; returns once it answers.
start_null_sink() {
  pulseaudio -n --daemonize=yes --exit-idle-time=-1 --load=module-native-protocol-unix \
    --load="module-null-sink sink_name=ci_null format=float32le rate=48000 channels=2" >> pulse.log 2>&1 \
    || { cat pulse.log >&2; fail "pulseaudio did not start"; }
  for _ in $(seq 200); do pactl info > /dev/null 2>&1 && break; sleep 0.05; done
  pactl set-default-sink ci_null
}

# start_recorder FILE: records the sink's monitor into FILE and sets
# `recorder`; returns once the sink's silence reaches the file, since being
# listed among the source outputs is not yet recording, and a recording that
# starts late says nothing about how the sound began.
start_recorder() {
  parec -d ci_null.monitor --latency-msec=20 --format=float32le --rate=48000 --channels=2 --raw > "$1" &
  recorder=$!; pids+=("$recorder")
  for _ in $(seq 200); do [ "$(stat -c %s "$1")" -ge 38400 ] && return 0; sleep 0.05; done
  fail "the recorder records nothing"
}
