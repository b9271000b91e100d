#!/usr/bin/env python3
"""Writes pupils_wide.csv and pupils_long.csv: made-up answers of 400 pupils at three times.

Three statuses (abstaining, drinking, using more) answer five questions with the probabilities
below, which do not change with time. The share of the statuses at the start depends on sex, moves
on the number of friends who drink and, upwards, on a prevention program that half of the schools
have. Some pupils leave the study (no row, or empty fields), some miss the second time but are known
to have friends (a row without answers). The seed is fixed: the files can be made again.

    python3 make_pupils.py
"""
import csv
import math
import pathlib
import random

ITEMS = ["alcohol", "smoking", "drunk", "cannabis", "truant"]
YES = [[0.12, 0.05, 0.02, 0.01, 0.06],
       [0.92, 0.25, 0.45, 0.06, 0.12],
       [0.97, 0.85, 0.90, 0.75, 0.55]]
draw = random.Random(1992).random


def choose(weights):
    at = draw() * sum(weights)
    for k, weight in enumerate(weights):
        if at < weight:
            return k
        at -= weight
    return len(weights) - 1


def moves(status, friends, program):
    """Weights of the statuses one year later; nobody comes back from the third to the first."""
    up = 0.5 * (friends - 1) - (0.7 if program else 0.0)
    if status == 0:
        return [1, math.exp(-1.0 + up), math.exp(-3.2 + up)]
    if status == 1:
        return [math.exp(-1.9), 1, math.exp(-1.2 + up)]
    return [0, math.exp(-1.8), 1]


def pupil(number):
    female, program = int(draw() < 0.5), int(draw() < 0.5)
    status = choose([1, math.exp(-0.6 - 0.4 * female), math.exp(-1.7 - 0.7 * female)])
    stays, misses_second = 3, draw() < 0.05
    if draw() < 0.16:
        stays = 1 if draw() < 0.4 else 2
    waves = []
    for time in (1, 2, 3):
        friends = choose([1, 1.2, 0.9, 0.5]) if status == 0 else choose([0.4, 0.9, 1.2, 1.1])
        answers = ["yes" if draw() < p else "no" for p in YES[status]]
        answers = [a if draw() > 0.01 else "" for a in answers]
        if misses_second and time == 2 and stays == 3:
            answers = [""] * len(ITEMS)
        waves.append((friends, answers) if time <= stays else None)
        status = choose(moves(status, friends, program))
    return [f"p{number:03}", "female" if female else "male", int(female),
            "prevention" if program else "none", waves]


def main():
    folder = pathlib.Path(__file__).parent
    pupils = [pupil(number) for number in range(1, 401)]
    with open(folder / "pupils_wide.csv", "w", newline="") as file:
        writer = csv.writer(file, lineterminator="\n")
        names = [f"{item}_{time}" for time in (1, 2, 3) for item in [*ITEMS, "friends"]]
        writer.writerow(["pupil", "sex", "female", "program", *names])
        for *who, waves in pupils:
            cells = [[*wave[1], wave[0]] if wave else [""] * (len(ITEMS) + 1) for wave in waves]
            writer.writerow([*who, *sum(cells, [])])
    with open(folder / "pupils_long.csv", "w", newline="") as file:
        writer = csv.writer(file, lineterminator="\n")
        writer.writerow(["pupil", "year", "sex", "female", "program", *ITEMS, "friends"])
        for time in (1, 2, 3):
            for name, sex, female, program, waves in pupils:
                if waves[time - 1]:
                    friends, answers = waves[time - 1]
                    writer.writerow([name, time, sex, female, program, *answers, friends])


if __name__ == "__main__":
    main()
