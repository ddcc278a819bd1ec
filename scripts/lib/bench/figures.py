"""Medians with their spread, and ratios formed round by round."""

import statistics
from dataclasses import dataclass


@dataclass
class Figure:
    """The median of some rounds and the least and greatest of them."""

    median: float
    low: float
    high: float

    def text(self, digits=2):
        return f"{self.median:.{digits}f} ({self.low:.{digits}f} to {self.high:.{digits}f})"

    def scaled(self, factor):
        return Figure(self.median * factor, self.low * factor, self.high * factor)

    def json(self):
        return {"median": self.median, "low": self.low, "high": self.high}


def figure(values):
    values = list(values)
    return Figure(statistics.median(values), min(values), max(values))


def pick(result, path):
    for key in path.split("."):
        result = result[key]
    return result


def of(group, way, path):
    """The figure of one value over the rounds of a way."""
    return figure(pick(result, path) for result in group.results[way])


def ratio(group, way, other, path):
    """Each round's value of one way by that of the other in the same round."""
    pairs = zip(group.results[way], group.results[other])
    return figure(pick(one, path) / pick(two, path) for one, two in pairs)


def total(group, way, path):
    return sum(pick(result, path) for result in group.results[way])
