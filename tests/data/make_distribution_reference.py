#!/usr/bin/python3
"""Reference values of the chi-square, t, F and normal distributions.

Writes distribution_reference.csv beside this script. Needs mpmath (Debian python3-mpmath, 1.2.1).
One tail comes from the power series of the incomplete gamma or beta function, all terms positive,
the other is its complement to 1, with forty digits beyond what the subtraction costs.
Arguments are the doubles that stand in the file, taken exactly. Tails below 1e-300 are left out.
"""
import os
import random
import sys

import mpmath as mp

mp.mp.dps = 420
random.seed(20260)


class Beyond(Exception):
    """A tail below 1e-300."""


def front_of_beta(a, b, x, y):
    return mp.exp(a * mp.log(x) + b * mp.log(y) + mp.loggamma(a + b) - mp.loggamma(a + 1) - mp.loggamma(b))


def beta_tails(a, b, x, y):
    """I_x(a, b) and its complement by the power series in the smaller of x and y."""
    if x > y:
        q, p = beta_tails(b, a, y, x)
        return p, q
    if x == 0:
        return mp.mpf(0), mp.mpf(1)
    with mp.workdps(30):
        lost = int(abs(mp.log10(front_of_beta(a, b, x, y))))
    if lost > 330:
        raise Beyond
    with mp.workdps(70 + lost):
        total = term = mp.mpf(1)
        limit = mp.mpf(10) ** -(mp.mp.dps - 10)
        for n in range(3000000):
            ratio = (a + b + n) / (a + 1 + n) * x
            term *= ratio
            total += term
            if ratio < 1 and term < limit * total * (1 - ratio):
                p = front_of_beta(a, b, x, y) * total
                return p, 1 - p
    raise Beyond


def gamma_tails(a, x):
    """P by its power series of positive terms, Q = 1 - P, both with forty digits or more."""
    lost = int(abs(a * (mp.log(x / a) + 1) - x) / mp.log(10))
    if lost > 330 and x > a:
        raise Beyond
    with mp.workdps(70 + (lost if x > a else 0)):
        total = term = mp.mpf(1)
        limit = mp.mpf(10) ** -(mp.mp.dps - 10)
        n = 0
        while True:
            n += 1
            ratio = x / (a + n)
            term *= ratio
            total += term
            if ratio < 1 and term < limit * total * (1 - ratio):
                p = mp.exp(a * mp.log(x) - x - mp.loggamma(a + 1)) * total
                return p, 1 - p


def chi(x, df):
    return gamma_tails(mp.mpf(df) / 2, mp.mpf(x) / 2)


def student(t, df):
    t, df = mp.mpf(t), mp.mpf(df)
    down = df + t * t
    tail = beta_tails(df / 2, mp.mpf(1) / 2, df / down, t * t / down)[0] / 2
    return (tail, 1 - tail) if t < 0 else (1 - tail, tail)


def fisher(f, dfn, dfd):
    f, dfn, dfd = mp.mpf(f), mp.mpf(dfn), mp.mpf(dfd)
    down = dfn * f + dfd
    return beta_tails(dfn / 2, dfd / 2, dfn * f / down, dfd / down)


def normal(x, mean, sd):
    z = (mp.mpf(x) - mp.mpf(mean)) / mp.mpf(sd) / mp.sqrt(2)
    return mp.erfc(-z) / 2, mp.erfc(z) / 2


def points_chi():
    dfs = [1e-3, 0.01, 0.1, 0.5, 1, 1.9, 2, 2.1, 3, 5, 10, 19.9, 20, 21, 38, 39.9, 40, 40.1, 55, 100, 200, 1000, 1e4, 1e5, 1e6]
    for df in dfs:
        sd = (2 * df) ** 0.5
        for z in (-30, -20, -10, -5, -2, -1, -0.1, -1e-4, 0, 1e-4, 0.1, 1, 2, 5, 10, 20, 30):
            if df + z * sd > 0:
                yield df + z * sd, df
        for ratio in (1e-300, 1e-100, 1e-10, 1e-3, 0.1, 0.3, 0.59, 0.61, 0.9, 0.999999, 1.000001, 1.1, 1.39, 1.41, 2, 5):
            yield df * ratio, df
        for x in (1e-6, 0.5, 2.2, 2.9, 3.1, 10, 100, 700, 1380):
            yield x, df
    for _ in range(900):
        df = 10 ** random.uniform(-3, 6)
        z = random.uniform(-36, 36)
        x = df * (max(1 - 2 / (9 * df) + z * (2 / (9 * df)) ** 0.5, 0.0)) ** 3 if df > 1 else 10 ** random.uniform(-8, 3.1)
        if x > 0:
            yield x, df


def points_t():
    dfs = [1e-3, 0.01, 0.1, 0.5, 1, 2, 3, 5, 10, 15, 29, 30, 31, 40, 50, 100, 1000, 1e4, 1e5, 1e6]
    ts = [1e-8, 1e-3, 0.1, 0.5, 0.674, 1, 1.5, 2, 3, 5, 8, 15, 25, 37, 100, 1e4, 1e8, 1e50]
    for df in dfs:
        for t in ts:
            yield random.choice((-1, 1)) * t, df
    for _ in range(600):
        df = 10 ** random.uniform(-3, 6)
        yield random.choice((-1, 1)) * 10 ** random.uniform(-3, 1.55), df
    for _ in range(100):
        yield 10 ** random.uniform(1, 60), 10 ** random.uniform(-3, 2)


def points_f():
    dfs = [1e-3, 0.1, 0.7, 1, 2, 2.5, 10, 29, 31, 79, 81, 250, 1e4, 1e6]
    for dfn in dfs:
        for dfd in dfs:
            s = (2 / dfn + 2 / dfd) ** 0.5
            for z in (-8, -1, -0.01, 0, 0.01, 1, 8):
                yield mp.mp.e ** min(max(z * s, -200), 200), dfn, dfd
    for _ in range(900):
        dfn, dfd = 10 ** random.uniform(-3, 6), 10 ** random.uniform(-3, 6)
        s = (2 / dfn + 2 / dfd) ** 0.5
        yield mp.mp.e ** min(max(random.uniform(-36, 36) * s, -300), 300), dfn, dfd
    for _ in range(600):  # far tails with one moderate number of degrees of freedom
        few, many = random.uniform(2, 80), 10 ** random.uniform(3, 6)
        f = random.uniform(900, 2500) / few
        yield (f, few, many) if random.random() < 0.5 else (1 / f, many, few)
    for _ in range(300):
        dfn, dfd = 10 ** random.uniform(1.5, 6), 10 ** random.uniform(1.5, 6)
        s = (2 / dfn + 2 / dfd) ** 0.5
        yield mp.mp.e ** (random.uniform(-4, 4) * s), dfn, dfd


def points_normal():
    for x in (-38, -37, -30, -20, -10, -5, -1, -1e-5, 0, 1e-9, 0.3, 1, 2, 3, 8, 16, 36.9):
        yield x, 0.0, 1.0
    for _ in range(300):
        mean, sd = random.uniform(-100, 100), 10 ** random.uniform(-3, 3)
        yield mean + sd * random.uniform(-37, 37), mean, sd


def main():
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "distribution_reference.csv")
    jobs = (("chi", points_chi, chi), ("t", points_t, student), ("f", points_f, fisher), ("nor", points_normal, normal))
    skipped = 0
    with open(path, "w") as out:
        out.write("# Made by make_distribution_reference.py with mpmath %s, rounded to 20 digits.\n" % mp.__version__)
        out.write("# name, argument, parameters (second blank where there is one), lower tail, upper tail\n")
        for name, points, tails in jobs:
            for point in points():
                point = tuple(float(v) for v in point)
                try:
                    p, q = tails(*point)
                except Beyond:
                    skipped += 1
                    continue
                if min(p, q) < mp.mpf("1e-300"):
                    continue
                middle = [repr(v) for v in point] + [""] * (3 - len(point))
                out.write(",".join([name] + middle + [mp.nstr(p, 20), mp.nstr(q, 20)]) + "\n")
            out.flush()
    sys.stderr.write("left out, tail below 1e-300: %d\n" % skipped)


if __name__ == "__main__":
    main()
