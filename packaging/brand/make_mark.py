#!/usr/bin/python3
"""Draws the mark of Mnemora: a leaf in two halves, and between them the trace that time leaves in
it. Writes its path data as the program holds them and the application icon as a drawing.

Usage: make_mark.py, after a change of the shapes below. The files it writes are checked in:
../../src/Shell/MarkPathData.cpp and app.mnemora.Mnemora.svg beside this script.
"""
import math
import pathlib
import re

HERE = pathlib.Path(__file__).resolve().parent
# The path has this extent, and this many of each command and characters: long curves are cut into
# shorter ones of the same shape, so that it can be drawn by the plainest of renderers.
LEFT, RIGHT, TOP, BOTTOM = 19.28, 130.138, 59.76, 151.98
CURVES, LINES, CHARACTERS = 64, 20, 2912
TERRACOTTA = "#e2683f"

# The trace between the halves: up along the leaf, one level step, and on to the tip. Its width is
# two pixels at 18 px.
MIDDLE, STEP_FROM, STEP_TO, GAP = 107.0, 62.0, 89.0, 14.5


class Segment:
    """A cubic Bezier curve, a line, or a level line ('C', 'L', 'H'), by its four points."""

    def __init__(self, kind, *points):
        self.kind = kind
        if len(points) == 2:
            (a, b), (c, d) = points
            points = (points[0], (a + (c - a) / 3, b + (d - b) / 3),
                      (a + (c - a) * 2 / 3, b + (d - b) * 2 / 3), points[1])
        self.points = points

    def split(self, t):
        """Both parts, by de Casteljau's algorithm."""
        rows = [list(self.points)]
        while len(rows[-1]) > 1:
            rows.append([tuple(p + (q - p) * t for p, q in zip(a, b))
                         for a, b in zip(rows[-1], rows[-1][1:])])
        return (Segment(self.kind, *(row[0] for row in rows)),
                Segment(self.kind, *(row[-1] for row in reversed(rows))))

    def length(self):
        points = [self.split(i / 32)[1].points[0] for i in range(33)]
        return sum(math.dist(a, b) for a, b in zip(points, points[1:]))

    def at_distance(self, distance):
        """The parameter at which that much of the length lies behind."""
        low, high = 0.0, 1.0
        for _ in range(40):
            middle = (low + high) / 2
            low, high = ((middle, high) if self.split(middle)[0].length() < distance
                         else (low, middle))
        return low


def rounded(segments, radii):
    """The closed outline with the corner at the end of each segment rounded by its radius."""
    segments = list(segments)
    corners = [segment.points[3] for segment in segments]
    for i, radius in enumerate(radii):
        if radius:
            following = (i + 1) % len(segments)
            segments[i] = segments[i].split(
                segments[i].at_distance(segments[i].length() - radius))[0]
            segments[following] = segments[following].split(
                segments[following].at_distance(radius))[1]
    outline = []
    for i, (segment, corner, radius) in enumerate(zip(segments, corners, radii)):
        outline.append(segment)
        if radius:
            start, end = segment.points[3], segments[(i + 1) % len(segments)].points[0]
            towards = [tuple(p + (c - p) * 0.6 for p, c in zip(point, corner))
                       for point in (start, end)]
            outline.append(Segment("C", start, *towards, end))
    return outline


def halves():
    """The outlines of the upper and the lower half."""
    half = GAP / 2
    diagonal = half * math.sqrt(2)  # along an axis, of a line at 45 degrees
    up_left, up_right = STEP_FROM + MIDDLE - diagonal, STEP_TO + MIDDLE - diagonal  # x + y
    low_left, low_right = up_left + 2 * diagonal, up_right + 2 * diagonal

    level = MIDDLE - half
    tip, base = (RIGHT, up_right - RIGHT), (24, up_left - 24)
    upper = rounded(
        [Segment("C", tip, (104, 55), (66, 57), (42, 80)),
         Segment("C", (42, 80), (27, 94), (17, 116), base),
         Segment("L", base, (up_left - level, level)),
         Segment("H", (up_left - level, level), (up_right - level, level)),
         Segment("L", (up_right - level, level), tip)],
        [0, 5, 3, 5, 3])

    level = MIDDLE + half
    tip, base = (RIGHT, low_right - RIGHT), (29, low_left - 29)
    lower = rounded(
        [Segment("L", base, (low_left - level, level)),
         Segment("H", (low_left - level, level), (low_right - level, level)),
         Segment("L", (low_right - level, level), tip),
         Segment("C", tip, (129, 106), (117, 131), (97, 144)),
         Segment("C", (97, 144), (79, 155), (55, 157), base)],
        [5, 3, 4, 0, 5])
    return upper, lower


def cut_to_count(outlines, kind, count):
    """Halves the longest segments of the kind until there are as many as wanted."""
    while sum(segment.kind == kind for outline in outlines for segment in outline) < count:
        outline, i = max(((outline, i) for outline in outlines for i, s in enumerate(outline)
                          if s.kind == kind), key=lambda place: place[0][place[1]].length())
        outline[i:i + 1] = outline[i].split(0.5)


def into_extent(outlines):
    points = [point for outline in outlines for segment in outline for point in segment.points]
    (x0, x1), (y0, y1) = ((min(axis), max(axis)) for axis in zip(*points))
    for outline in outlines:
        for segment in outline:
            segment.points = tuple((LEFT + (x - x0) * (RIGHT - LEFT) / (x1 - x0),
                                    TOP + (y - y0) * (BOTTOM - TOP) / (y1 - y0))
                                   for x, y in segment.points)


def tokens(outlines):
    """Command letters and coordinates in the order of the path."""
    found = []
    for outline in outlines:
        found += ["M", *outline[0].points[0]]
        for segment in outline:
            ends = segment.points[1:] if segment.kind == "C" else segment.points[3:]
            values = [value for point in ends for value in point]
            found += [segment.kind, *(values[:1] if segment.kind == "H" else values)]
        found.append("Z")
    return found


def path_text(outlines):
    """Two decimals, and a third for as many numbers as the wanted length takes."""
    found = tokens(outlines)
    def text(thirds):
        words, left = [], thirds
        for token in found:
            if isinstance(token, str):
                words.append(token)
                continue
            third = left > 0 or math.isclose(token, RIGHT)
            left -= third and not math.isclose(token, RIGHT)
            words.append(f"{token:.3f}" if third else f"{token:.2f}")
        return re.sub(r"([A-Z]) (?=[0-9])", r"\1", " ".join(words))
    thirds = CHARACTERS - len(text(0))
    assert thirds >= 0, "too long with two decimals"
    result = text(thirds)
    assert len(result) == CHARACTERS, len(result)
    return result


def source(path):
    lines, line = [], ""
    for word in path.split(" "):
        if len(line) + len(word) > 88:
            lines.append(line)
            line = ""
        line += word + " "
    lines.append(line.rstrip())
    literals = "\n".join(f'    "{line}"' for line in lines)
    return ('// Written by packaging/brand/make_mark.py; change the shapes there.\n\n'
            '#include "Shell/Branding.h"\n\n'
            'namespace mnemora {\n\n'
            f'const std::string_view Branding::markPathData =\n{literals};\n\n'
            '} // namespace mnemora\n')


def icon(path):
    """The mark in white on a rounded square of the brand's colour."""
    size, radius, extent = 512, 512 * 19 / 84, 512 * 0.62
    scale = extent / (RIGHT - LEFT)
    x = (size - extent) / 2 - LEFT * scale
    y = (size - (BOTTOM - TOP) * scale) / 2 - TOP * scale
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {size} {size}">\n'
            f'<rect width="{size}" height="{size}" rx="{radius:.1f}" fill="{TERRACOTTA}"/>\n'
            f'<path transform="translate({x:.2f} {y:.2f}) scale({scale:.4f})" fill="#fff" '
            f'fill-rule="evenodd" d="{path}"/>\n</svg>\n')


def main():
    outlines = halves()
    cut_to_count(outlines, "C", CURVES)
    cut_to_count(outlines, "L", LINES)
    into_extent(outlines)
    path = path_text(outlines)
    (HERE.parent.parent / "src/Shell/MarkPathData.cpp").write_text(source(path), encoding="utf-8")
    (HERE / "app.mnemora.Mnemora.svg").write_text(icon(path), encoding="utf-8")


if __name__ == "__main__":
    main()
