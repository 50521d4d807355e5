"""A part of the crash matrix: points of all operations and all ways, spread over the run. The whole of
it is bench/crash-matrix."""
import itertools
import os
import unittest

import matrix

SANITIZED = os.environ.get("KM_SANITIZED") == "1"
SHARES = int(os.environ.get("KM_SHARES", "4"))


def points_of(one, number):
    """A few points of each way; where they lie differs from way to way and from operation to
    operation, so that all shares together see every step. The sanitizers look for other faults, and a
    start costs them ten times as much: each operation meets a third of the ways, and goes on from a
    point in one way of those that there are."""
    for index, way in enumerate(matrix.WAYS):
        if SANITIZED and way != "kill" and (index + number) % 3:
            continue
        wanted = (2 if SANITIZED else 6) if way == "kill" else 1 if SANITIZED else 2
        stride = max(1, one.calls // wanted)
        points = one.points([way], stride, (7 * index + 5 * number) % stride)
        if not SANITIZED:
            yield from points
            continue
        for place, (_, same) in enumerate(itertools.groupby(points, key=lambda point: point.at)):
            ways_on = list(same)
            yield ways_on[(place + number + index) % len(ways_on)]


class CrashMatrix(unittest.TestCase):
    def try_share(self, share):
        bad = []
        for number, name in enumerate(matrix.OPERATIONS):
            if number % SHARES != share:
                continue
            one = matrix.Matrix(name)
            try:
                for point in points_of(one, number):
                    try:
                        one.try_point(point)
                    except matrix.Bad as why:
                        bad.append("%s, %s at %d, then %s: %s" % (name, *point, why))
            finally:
                one.drop()
        self.assertEqual(bad, [], "\n".join(bad))


def add_shares():
    for share in range(SHARES):
        def test(self, share=share):
            self.try_share(share)

        setattr(CrashMatrix, "test_share_%d" % share, test)


add_shares()

if __name__ == "__main__":
    unittest.main()
