#!/usr/bin/env bash
# SIGTERM ends the program within 0.2 s whatever it is loading. The world's
# music (a FLAC whose header's total is zeroed) and ambience (an MP3 without a
# Xing header) are six hours long and state no length, so they are counted by
# decoding, for seconds, when the library is scanned and again when the sound
# loads. `saver`, `play` and `render-audio` each get SIGTERM while one of them
# is open and must be gone within the limit.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$(dirname "${BASH_SOURCE[0]}")/support/begin.sh" "$@"
limit_ms=200
export HOME=$work/home XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data XDG_DATA_DIRS=$work/none
export XDG_RUNTIME_DIR=$work/run SDL_AUDIODRIVER=dummy
mkdir -p "$XDG_RUNTIME_DIR"; chmod 700 "$XDG_RUNTIME_DIR"
unset HUSHMEADOWS_DEBUG

world=$XDG_DATA_HOME/hushmeadows/Worlds/long.hushmeadow
mkdir -p "$world"
ff() { ffmpeg -hide_banner -loglevel error -y -f lavfi "$@"; }
ff -i testsrc2=size=32x18:rate=12 -t 0.5 -pix_fmt yuv420p "$world/loop.mp4"
ff -i anullsrc=r=8000:cl=mono -t 21600 -c:a flac music.flac
ff -i anullsrc=r=8000:cl=mono -t 60 -c:a libmp3lame -b:a 8k -write_xing 0 -id3v2_version 0 minute.mp3
python3 -c "
import json, sys
flac = bytearray(open('music.flac', 'rb').read()); flac[21] &= 0xF0; flac[22:26] = bytes(4)
open(sys.argv[1] + '/music.flac', 'wb').write(flac)
open(sys.argv[1] + '/ambience.mp3', 'wb').write(open('minute.mp3', 'rb').read() * 360)
audio = {layer: {'file': name, 'defaultVolume': 0.5} for layer, name in (('music', 'music.flac'), ('ambience', 'ambience.mp3'))}
json.dump({'formatVersion': 1, 'id': 'long', 'name': 'Long', 'visual': {'file': 'loop.mp4'}, 'audio': audio}, open(sys.argv[1] + '/world.json', 'w'))" "$world"
for setting in "screenSaverAudioEnabled true" "selectedWorldID long"; do "$program" settings set $setting > /dev/null; done

source "$here/../../tools/xvfb.sh"
start_xvfb 640x360 || fail "no X server"
runner=""; trap '[ -z "$runner" ] || kill -KILL "$runner" 2>/dev/null; kill "$xvfb_pid" 2>/dev/null || true' EXIT

# Once the log holds `after` and the program has one of the long files open,
# SIGTERM; then the milliseconds until it is gone (a zombie is gone: only the
# shell's reaping is left).
term_ms() { # pid after
  python3 -c "
import os, signal, sys, time
pid, after, start = int(sys.argv[1]), sys.argv[2], time.monotonic()
def gone():
    try: return open('/proc/%d/stat' % pid).read().rsplit(')', 1)[1].split()[0] == 'Z'
    except OSError: return True
def loading():
    try: return after in open('log.txt', errors='replace').read() and any(os.readlink('/proc/%d/fd/%s' % (pid, fd))
            .endswith(('music.flac', 'ambience.mp3')) for fd in os.listdir('/proc/%d/fd' % pid))
    except OSError: return False
while not loading():
    if gone() or time.monotonic() - start > 60: sys.exit('never seen loading')
    time.sleep(0.002)
sent = time.monotonic(); os.kill(pid, signal.SIGTERM)
while not gone() and time.monotonic() - sent < 20: time.sleep(0.001)
print(round((time.monotonic() - sent) * 1000))" "$@"
}

for case in "saver|scanning|saver|" "saver|loading the sound|saver|audio acquired" "play|scanning|play|] init " \
            "render-audio|loading the sound|render-audio long --seconds 1 --out out.wav|"; do
  IFS='|' read -r name moment command after <<< "$case"
  "$program" $command > log.txt 2>&1 & runner=$!
  ms=$(term_ms "$runner" "$after") || { cat log.txt >&2; fail "$name $moment: $ms"; }
  status=0; wait "$runner" || status=$?; runner=""
  echo "$name, SIGTERM while $moment: gone after $ms ms (exit status $status)"
  [ "$ms" -le "$limit_ms" ] || { cat log.txt >&2; fail "$name took $ms ms to end, more than $limit_ms"; }
done
echo "stop while loading: all cases passed"
