"""Checks a recording of `hushmeadows play` against the offline render.

rec.raw is float32le stereo at 48 kHz from the null sink's monitor; the
second argument is the offline render of the same world (a float WAV); the
third is how long play ran before SIGTERM, in seconds. The monitor records
only while the sink is busy, so its timeline starts with the sound: how long
the sound lasted is compared with how long play ran.
"""
import array
import math
import sys

RATE = 48000


def rms(samples, start, end):
    start, end = max(0, start), min(len(samples) // 2, end)
    if end <= start:
        return 0.0
    total = 0.0
    for i in range(start * 2, end * 2):
        total += samples[i] * samples[i]
    return math.sqrt(total / ((end - start) * 2))


def load_raw(path):
    data = array.array("f")
    with open(path, "rb") as f:
        data.frombytes(f.read())
    return data


def load_wav(path):
    with open(path, "rb") as f:
        blob = f.read()
    at = blob.index(b"data") + 8
    data = array.array("f")
    data.frombytes(blob[at:])
    return data


recorded = load_raw(sys.argv[1])
expected = load_wav(sys.argv[2])
ran = float(sys.argv[3])

# Where the sound begins in the recording.
window = RATE // 100
first = None
for start in range(0, len(recorded) // 2 - window, window):
    if rms(recorded, start, start + window) > 1e-4:
        first = start
        break
if first is None:
    sys.exit("nothing was heard")

# The fade-in: quiet at first, full a few seconds later, as the offline render.
early = rms(recorded, first, first + RATE // 4)
later = rms(recorded, first + int(4.5 * RATE), first + int(5.0 * RATE))
reference = rms(expected, int(4.5 * RATE), int(5.0 * RATE))
print(f"heard from {first / RATE:.2f} s; early rms {early:.5f}, at 4.5 s {later:.5f}, offline render {reference:.5f}")
if not later > early * 4:
    sys.exit("no fade-in heard")
if not (reference / 2 < later < reference * 2):
    sys.exit("the level heard is not the world's")

# Silence soon after SIGTERM: find the last audible sample.
last = None
for start in range(len(recorded) // 2 - window, 0, -window):
    if rms(recorded, start, start + window) > 1e-4:
        last = start + window
        break
# A cut ends at full level; a fade would taper off first.
tail = rms(recorded, last - RATE // 10, last)
print(f"last 100 ms before silence: rms {tail:.5f}")
if tail < later / 2:
    sys.exit("the sound faded out instead of stopping at once")

lasted = (last - first) / RATE
gap = lasted - ran
print(f"sound lasted {lasted:.3f} s for {ran:.3f} s of play: it ended at most {max(gap, 0) * 1000:.0f} ms after SIGTERM")
if gap > 0.3:
    sys.exit("sound went on after SIGTERM")
