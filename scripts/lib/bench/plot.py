"""Small SVG plots: lines over the number of streams, with a bar from the least to the greatest round."""

import math
from html import escape

WIDTH, HEIGHT = 640, 360
LEFT, RIGHT, TOP, BOTTOM = 70, 150, 40, 50
COLOURS = ("#1b6ca8", "#8a8a8a", "#c97b12", "#9c2f2f", "#3d8b4f")


class Plot:
    def __init__(self, title, y_title, xs, logarithmic=False, floor=None):
        self.title, self.y_title, self.xs = title, y_title, list(xs)
        self.logarithmic = logarithmic
        self.floor = floor
        self.lines = []

    def add(self, name, figures):
        """figures: one per x."""
        self.lines.append((name, list(figures)))

    def _range(self):
        values = [v for _, line in self.lines for f in line for v in (f.low, f.high)]
        if not self.logarithmic:
            return 0, max(values) * 1.05
        low = math.log10(max(min(values), self.floor or 1e-9))
        high = math.log10(max(values))
        return math.floor(low), math.ceil(high)

    def _x(self, index):
        return LEFT + (WIDTH - LEFT - RIGHT) * (index / max(1, len(self.xs) - 1))

    def _y(self, value, low, high):
        if self.logarithmic:
            value = math.log10(max(value, 10**low))
        return HEIGHT - BOTTOM - (HEIGHT - TOP - BOTTOM) * (value - low) / (high - low)

    def _ticks(self, low, high):
        if self.logarithmic:
            return [10**power for power in range(low, high + 1)]
        step = 10 ** math.floor(math.log10(high / 4))
        step = next(step * m for m in (1, 2, 5, 10) if high / (step * m) <= 6)
        return [step * n for n in range(int(high / step) + 1)]

    def svg(self):
        low, high = self._range()
        parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
                 'font-family="sans-serif" font-size="12">',
                 f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
                 f'<text x="{LEFT}" y="20" font-size="14">{escape(self.title)}</text>',
                 f'<text transform="translate(16 {HEIGHT / 2}) rotate(-90)" text-anchor="middle">'
                 f'{escape(self.y_title)}</text>']
        for tick in self._ticks(low, high):
            y = self._y(tick, low, high)
            parts.append(f'<path d="M{LEFT} {y:.1f}H{WIDTH - RIGHT}" stroke="#ddd"/>')
            parts.append(f'<text x="{LEFT - 6}" y="{y + 4:.1f}" text-anchor="end">{tick:g}</text>')
        for index, x in enumerate(self.xs):
            parts.append(f'<text x="{self._x(index):.1f}" y="{HEIGHT - BOTTOM + 18}" '
                         f'text-anchor="middle">{x}</text>')
        parts.append(f'<text x="{(LEFT + WIDTH - RIGHT) / 2}" y="{HEIGHT - 10}" text-anchor="middle">streams</text>')
        for number, (name, line) in enumerate(self.lines):
            parts += self._line(number, name, line, low, high)
        return "\n".join(parts + ["</svg>", ""])

    def _line(self, number, name, line, low, high):
        colour = COLOURS[number % len(COLOURS)]
        points = [(self._x(i), f) for i, f in enumerate(line)]
        path = " ".join(f"{x:.1f},{self._y(f.median, low, high):.1f}" for x, f in points)
        yield f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>'
        for x, f in points:
            top, bottom = self._y(f.high, low, high), self._y(f.low, low, high)
            yield f'<path d="M{x:.1f} {top:.1f}V{bottom:.1f}" stroke="{colour}"/>'
            yield f'<circle cx="{x:.1f}" cy="{self._y(f.median, low, high):.1f}" r="3" fill="{colour}"/>'
        y = TOP + 10 + 18 * number
        yield f'<rect x="{WIDTH - RIGHT + 12}" y="{y - 9}" width="10" height="10" fill="{colour}"/>'
        yield f'<text x="{WIDTH - RIGHT + 28}" y="{y}">{escape(name)}</text>'
