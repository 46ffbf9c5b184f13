"""Checks a recording of the saver against the offline render of its world.

rec.raw is float32le stereo at 48 kHz from the null sink's monitor; the
second argument is the offline render of the same world (a float WAV); the
third is how long the saver ran before SIGTERM, in seconds. The monitor
records only while the sink is busy, so its timeline starts with the sound.
"""
import array
import math
import sys

RATE = 48000
WINDOW = RATE // 100


def load(path, skip_header):
    with open(path, "rb") as f:
        blob = f.read()
    data = array.array("f")
    data.frombytes(blob[blob.index(b"data") + 8:] if skip_header else blob)
    return data


def rms(samples, start, end):
    start, end = max(0, start), min(len(samples) // 2, end)
    if end <= start:
        return 0.0
    return math.sqrt(sum(s * s for s in samples[start * 2:end * 2]) / ((end - start) * 2))


recorded, expected, ran = load(sys.argv[1], False), load(sys.argv[2], True), float(sys.argv[3])
audible = [start for start in range(0, len(recorded) // 2 - WINDOW, WINDOW) if rms(recorded, start, start + WINDOW) > 1e-4]
if not audible:
    sys.exit("nothing was heard")
first, last = audible[0], audible[-1] + WINDOW

# The fade-in: quiet at first, and a few seconds later at the offline render's level.
early = rms(recorded, first, first + RATE // 4)
later = rms(recorded, first + int(4.5 * RATE), first + 5 * RATE)
reference = rms(expected, int(4.5 * RATE), 5 * RATE)
print(f"heard from {first / RATE:.2f} s; early rms {early:.5f}, at 4.5 s {later:.5f}, offline render {reference:.5f}")
if not later > early * 4:
    sys.exit("no fade-in heard")
if not reference / 2 < later < reference * 2:
    sys.exit("the level heard is not the world's")

# SIGTERM cuts at full level (a fade would taper off first), and at once.
tail = rms(recorded, last - RATE // 10, last)
gap = (last - first) / RATE - ran
print(f"last 100 ms before silence: rms {tail:.5f}; the sound ended {max(gap, 0) * 1000:.0f} ms after SIGTERM")
if tail < later / 2:
    sys.exit("the sound faded out instead of stopping at once")
if gap > 0.3:
    sys.exit("sound went on after SIGTERM")
