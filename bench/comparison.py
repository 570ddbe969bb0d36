"""Whether two sets of measured rows differ by more than the noise.

A row moved when two things hold. First, the rank-sum test of Mann and Whitney says that the two sets
are not from one distribution. It looks at the order of the values only: times have long tails, and one
repetition during which the machine did something else must not decide. Since many rows are tested,
the limit is divided as Holm does it: the chance that any row of a table is said to have moved when none
has is at most `ERROR_RATE`. Second, the ratio is one that matters: the order in which a linker lays out
unchanged code moves rows by a percent or two, which is no noise within one build, and no news either.

The ratio is the median of the ratios of all pairs, the estimate that belongs to that test, with the
interval that belongs to it.
"""

import math
import statistics
from dataclasses import dataclass

ERROR_RATE = 0.05
LEAST_CHANGE = 0.02
INTERVAL_RATE = 0.05  # of the interval that is shown for each row alone
FEWEST_SAMPLES = 10  # with fewer, no difference can be told from noise in a table of a hundred rows


@dataclass
class Change:
    """What became of one row. The ratio is that of the second values to the first."""

    row: str
    first: float
    second: float
    ratio: float
    low: float
    high: float
    chance: float  # of so different ranks without a difference
    moved: bool = False


def deviation(first_count, second_count, tied=()):
    """Return the standard deviation of the rank sum, with the numbers of equal values."""
    count = first_count + second_count
    ties = sum(each**3 - each for each in tied) / (count * (count - 1))
    return math.sqrt(first_count * second_count / 12 * (count + 1 - ties))


def chance_of_ranks(first, second):
    """Return the two-sided p-value of the rank-sum test.

    From the normal distribution: with 10 values each it is larger than the exact one where it is
    small, so that no row is said to have moved because of it.
    """
    both = sorted([*first, *second])
    ranks = {}
    for place, value in enumerate(both, 1):
        ranks.setdefault(value, []).append(place)
    rank_sum = sum(statistics.fmean(ranks[value]) for value in first)
    expected = len(first) * (len(both) + 1) / 2
    spread = deviation(len(first), len(second), [len(places) for places in ranks.values()])
    if spread == 0:
        return 1.0
    distance = max(0.0, abs(rank_sum - expected) - 0.5) / spread
    return math.erfc(distance / math.sqrt(2))


def ratio_with_interval(first, second):
    """Return the median of all ratios of a second to a first value, and the interval around it."""
    ratios = sorted(after / before for before in first for after in second)
    normal = statistics.NormalDist().inv_cdf(1 - INTERVAL_RATE / 2)
    outside = len(ratios) / 2 - normal * deviation(len(first), len(second))
    outside = max(0, math.floor(outside))
    return statistics.median(ratios), ratios[outside], ratios[-1 - outside]


def compare(first, second):
    """Compare the rows that both have: maps of names to lists of positive values.

    Returns the changes in the order of the first map.
    """
    changes = []
    for row, before in first.items():
        after = second.get(row)
        if not after:
            continue
        if min(len(before), len(after)) < FEWEST_SAMPLES:
            raise ValueError(f"{row}: at least {FEWEST_SAMPLES} repetitions are needed")
        ratio = ratio_with_interval(before, after)
        medians = statistics.median(before), statistics.median(after)
        changes.append(Change(row, *medians, *ratio, chance_of_ranks(before, after)))
    for tested, change in enumerate(sorted(changes, key=lambda each: each.chance)):
        if change.chance > ERROR_RATE / (len(changes) - tested):
            break
        change.moved = not 1 - LEAST_CHANGE <= change.ratio <= 1 / (1 - LEAST_CHANGE)
    return changes
