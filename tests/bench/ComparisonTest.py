#!/usr/bin/env python3
"""Compares made samples: ComparisonTest.py FOLDER-OF-THE-BENCHMARKS"""

import itertools
import random
import sys
import unittest

sys.path.insert(0, sys.argv.pop(1))

from comparison import FEWEST_SAMPLES, chance_of_ranks, compare, ratio_with_interval

ROWS = 120
ROUNDS = 15


def samples(generator, median=1.0, spread=0.03, count=ROUNDS):
    """Return times as a machine that has other things to do measures them: a tenth is much longer."""
    return [
        median * generator.lognormvariate(0, spread) * (1 if generator.random() > 0.1 else 1.5)
        for _ in range(count)
    ]


def table(generator, factor=1.0, spread=0.03):
    return {f"row-{row}": samples(generator, factor * (row + 1), spread) for row in range(ROWS)}


def movedRows(changes):
    return [change.row for change in changes if change.moved]


class ComparisonTest(unittest.TestCase):
    def testSaysThatNothingMovedWhenNothingDid(self):
        wrong = 0
        for seed in range(40):
            generator = random.Random(seed)
            wrong += bool(movedRows(compare(table(generator), table(generator))))
        # One table in twenty may be wrong.
        self.assertLessEqual(wrong, 4)

    def testFindsEachRowThatMovedByATenth(self):
        generator = random.Random(1)
        changes = compare(table(generator), table(generator, 1.1, 0.02))
        self.assertGreater(len(movedRows(changes)), 0.9 * ROWS)
        self.assertTrue(all(change.ratio > 1 for change in changes if change.moved))

    def testFindsTheOneRowThatMovedAmongThoseThatDidNot(self):
        generator = random.Random(2)
        first, second = table(generator), table(generator)
        second["row-7"] = [0.9 * value for value in samples(generator, 8.0, 0.01)]
        changes = compare(first, second)
        self.assertEqual(movedRows(changes), ["row-7"])
        self.assertLess(changes[7].high, 1)

    def testIgnoresWhatIsCertainButSmall(self):
        generator = random.Random(3)
        changes = compare(table(generator, 1, 0.0001), table(generator, 1.01, 0.0001))
        self.assertEqual(movedRows(changes), [])
        self.assertTrue(any(change.chance < 1e-3 for change in changes))

    def testIsNotMovedByOneSlowRepetition(self):
        generator = random.Random(4)
        first = {"row": samples(generator)}
        changes = compare(first, {"row": [*first["row"][1:], 1000.0]})
        self.assertEqual(movedRows(changes), [])
        self.assertAlmostEqual(changes[0].ratio, 1, delta=0.02)

    def testTakesTheSameBothWays(self):
        generator = random.Random(5)
        first, second = samples(generator), samples(generator, 1.05)
        self.assertAlmostEqual(chance_of_ranks(first, second), chance_of_ranks(second, first))
        forth, back = ratio_with_interval(first, second), ratio_with_interval(second, first)
        self.assertAlmostEqual(forth[0], 1 / back[0], delta=0.002)
        self.assertAlmostEqual(forth[1], 1 / back[2])

    def testIsNoLessCarefulThanTheExactTestWhereItMatters(self):
        # Of all ways to deal 10 and 10 ranks, those at least as far from the middle.
        apart = list(range(10)), list(range(10, 20))
        exact = 2 / sum(1 for _ in itertools.combinations(range(20), 10))
        self.assertGreaterEqual(chance_of_ranks(*apart), exact)
        self.assertLess(chance_of_ranks(*apart), 0.05 / ROWS)

    def testTakesEqualValuesForNoDifference(self):
        self.assertEqual(chance_of_ranks([1.0] * ROUNDS, [1.0] * ROUNDS), 1)
        changes = compare({"row": [3.0] * ROUNDS}, {"row": [3.0] * ROUNDS})
        self.assertEqual((changes[0].ratio, changes[0].moved), (1, False))

    def testSharesTheRanksOfEqualValues(self):
        few, many = [1.0, 1.0, 1.0, 2.0, 2.0] * 3, [1.0, 2.0, 2.0, 2.0, 2.0] * 3
        self.assertAlmostEqual(chance_of_ranks(few, many), chance_of_ranks(many, few))
        self.assertLess(chance_of_ranks(few, many), 0.1)

    def testComparesOnlyWhatBothHave(self):
        generator = random.Random(6)
        both = samples(generator)
        changes = compare({"old": both, "both": both}, {"both": both, "new": both})
        self.assertEqual([change.row for change in changes], ["both"])

    def testRefusesTooFewRepetitions(self):
        few = [1.0] * (FEWEST_SAMPLES - 1)
        with self.assertRaisesRegex(ValueError, "row: at least"):
            compare({"row": few}, {"row": few})


if __name__ == "__main__":
    unittest.main()
