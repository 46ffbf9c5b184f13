#!/usr/bin/env python3
"""Pixels of a shown world, for play_world.sh.

  scene_pixels.py poster OUT.ppm WIDTH HEIGHT
      writes the test poster: every pixel a different, known colour.
  scene_pixels.py check SHOT.rgb SCREEN_WxH WINDOW_X,Y,WxH POSTER_WxH OPTIONS...
      checks a screenshot (raw 8-bit RGB of the whole screen) against what the
      window must show: options framing=fill|wholeScene pixelPerfect=0|1
      protects=0|1, or black=1 for a window that shows nothing.

The expected picture is worked out here from the rules the program follows,
not from the program: where the layout puts the picture and at what scale,
each poster pixel as an s x s block, the edge strips (bands 3 pixels deep,
averaged across and smoothed along the edge) stretched over the margins, and
the corners in the strips' average colour.
"""

import math
import sys

DEPTH = 3  # edge band depth of the poster store


def poster_pixel(x, y):
    return (x * 6 % 256, y * 10 % 256, (x * 37 + y * 11) % 256)


def poster_pixels(width, height):
    return [[poster_pixel(x, y) for x in range(width)] for y in range(height)]


def write_ppm(path, width, height):
    with open(path, "wb") as out:
        out.write(b"P6 %d %d 255\n" % (width, height))
        out.write(bytes(c for y in range(height) for x in range(width) for c in poster_pixel(x, y)))


def round_half_away(v):
    return math.floor(v + 0.5) if v >= 0 else -math.floor(-v + 0.5)


def layout(cw, ch, pw, ph, pixel_perfect, always_fill, protects, focus=(0.5, 0.5), safe=(0.8, 0.8)):
    """Scale, left, top, width and height of the picture in window pixels."""
    rx, ry = pw / cw, ph / ch
    fill, fit = max(rx, ry), min(rx, ry)
    safe_fit = min(pw / (cw * safe[0]), ph / (ch * safe[1]))
    if protects and not always_fill:
        path = "fit"
    elif always_fill and not protects:
        path = "cover"
    else:
        path = "bounded"
    if path == "cover":
        s = fill
        if pixel_perfect and fill >= 1 and math.ceil(fill) <= fill * 1.05:
            s = math.ceil(fill)
        up = fill <= s
    elif path == "bounded":
        s = min(safe_fit, fill)
        if pixel_perfect and s >= 1:
            if s == fill and math.ceil(s) <= safe_fit:
                s = math.ceil(s)
            elif math.floor(s) >= fill:
                s = math.floor(s)
        up = fill <= s
    else:
        s = fit
        if pixel_perfect and fit >= 1 and math.floor(fit) >= 1 and math.floor(fit) / fit >= 0.9:
            s = math.floor(fit)
        up = False
    rounded = math.ceil if up else math.floor
    w, h = rounded(cw * s), rounded(ch * s)

    def place(view, size, f):
        if size <= view:
            return (view - size) * 0.5
        return min(max(view * 0.5 - size * f, view - size), 0)

    return s, round_half_away(place(pw, w, focus[0])), round_half_away(place(ph, h, focus[1])), w, h


def strip(pixels, band, along_height):
    """One edge strip: band = (x, y, w, h) of the poster."""
    bx, by, bw, bh = band
    length, depth = (bh, bw) if along_height else (bw, bh)
    prefix = [(0.0, 0.0, 0.0)]
    for i in range(length):
        across = [0, 0, 0]
        for k in range(depth):
            x, y = (bx + k, by + i) if along_height else (bx + i, by + k)
            for c in range(3):
                across[c] += pixels[y][x][c]
        prefix.append(tuple(prefix[-1][c] + across[c] / depth for c in range(3)))
    radius = length // 200 if length >= 200 else 1
    out = []
    for i in range(length):
        lo, hi = max(i - radius, 0), min(i + radius + 1, length)
        out.append(tuple(min(max(int((prefix[hi][c] - prefix[lo][c]) / (hi - lo)), 0), 255) for c in range(3)))
    return out


def lround(v):
    whole = math.floor(v)
    return whole + 1 if v - whole >= 0.5 else whole


def expected_view(pixels, cw, ch, pw, ph, fx, fy, fw, fh):
    """Per window row, the expected colour of every pixel, and where the
    picture is: the nominal nearest sample for fractional scales."""
    left = strip(pixels, (0, 0, DEPTH, ch), True)
    right = strip(pixels, (cw - DEPTH, 0, DEPTH, ch), True)
    top = strip(pixels, (0, 0, cw, DEPTH), False)
    bottom = strip(pixels, (0, ch - DEPTH, cw, DEPTH), False)
    every = left + right + top + bottom
    average = tuple(lround(sum(p[c] for p in every) / len(every) / 255.0 * 255.0) for c in range(3))

    x0, y0 = min(max(fx, 0), pw), min(max(fy, 0), ph)
    x1, y1 = min(max(fx + fw, x0), pw), min(max(fy + fh, y0), ph)

    def source_index(position, origin, frame_length, length):
        return min(max(int((position - origin + 0.5) * length / frame_length), 0), length - 1)

    columns = [source_index(x, fx, fw, cw) for x in range(pw)]
    rows = []
    for y in range(ph):
        if y0 <= y < y1:
            sy = source_index(y, fy, fh, ch)
            strip_row = (y - fy) * ch // fh
            row = [left[strip_row]] * x0 + [pixels[sy][columns[x]] for x in range(x0, x1)] + [right[strip_row]] * (pw - x1)
        else:
            edge = top if y < y0 else bottom
            row = [average] * x0 + [edge[(x - fx) * cw // fw] for x in range(x0, x1)] + [average] * (pw - x1)
        rows.append(row)
    return rows, (x0, y0, x1, y1)


def check(args):
    shot, screen, window, poster = args[:4]
    options = dict(a.split("=", 1) for a in args[4:])
    sw, sh = map(int, screen.split("x"))
    wx, wy, size = window.split(",")
    wx, wy = int(wx), int(wy)
    pw, ph = map(int, size.split("x"))
    cw, ch = map(int, poster.split("x"))
    with open(shot, "rb") as f:
        data = f.read()
    if len(data) != sw * sh * 3:
        sys.exit(f"screenshot has {len(data)} bytes, expected {sw * sh * 3}")

    def actual_row(y):
        start = ((wy + y) * sw + wx) * 3
        return data[start:start + pw * 3]

    if options.get("black") == "1":
        for y in range(ph):
            if actual_row(y).strip(b"\0"):
                sys.exit(f"window row {y} is not black")
        print(f"{pw}x{ph}: black")
        return

    pixels = poster_pixels(cw, ch)
    s, fx, fy, fw, fh = layout(cw, ch, pw, ph, options["pixelPerfect"] == "1", options["framing"] == "fill", options["protects"] == "1")
    whole = s == int(s) and fw == cw * int(s) and fh == ch * int(s)
    rows, (x0, y0, x1, y1) = expected_view(pixels, cw, ch, pw, ph, fx, fy, fw, fh)

    problems = []
    for y in range(ph):
        got = actual_row(y)
        want = rows[y]
        if got == b"".join(bytes(p) for p in want):
            continue
        for x in range(pw):
            have = tuple(got[x * 3:x * 3 + 3])
            if have == want[x]:
                continue
            inside = x0 <= x < x1 and y0 <= y < y1
            if inside and not whole:
                # Fractional nearest: the sample may fall one source pixel
                # either way of the nominal one at a block boundary.
                cx = (x - fx + 0.5) * cw / fw
                cy = (y - fy + 0.5) * ch / fh
                near = {pixels[j][i] for j in range(max(int(cy) - 1, 0), min(int(cy) + 2, ch))
                        for i in range(max(int(cx) - 1, 0), min(int(cx) + 2, cw))}
                if have in near:
                    continue
            problems.append(f"({x},{y}) {'picture' if inside else 'margin'}: {have}, expected {want[x]}")
            if len(problems) >= 20:
                break
        if len(problems) >= 20:
            break
    what = f"{pw}x{ph} {options['framing']} pixelPerfect={options['pixelPerfect']}: scale {s} frame {fx},{fy} {fw}x{fh}"
    if problems:
        sys.exit(f"{what}: wrong pixels, first: " + "; ".join(problems[:5]))
    print(what + (" (whole)" if whole else " (fractional)"))


def main():
    if len(sys.argv) >= 5 and sys.argv[1] == "poster":
        write_ppm(sys.argv[2], int(sys.argv[3]), int(sys.argv[4]))
    elif len(sys.argv) >= 6 and sys.argv[1] == "check":
        check(sys.argv[2:])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
