#!/usr/bin/env python3
"""Runs the command lines of a text file and compares what they do with what the file says.

    run.py COMMAND EXAMPLES FILE.txt

A file holds cases; each starts with a line "== what it proves" and runs in an empty folder:

    write NAME TEXT         a file; \\n, \\r, \\t, \\xNN, \\\\ are escapes
    link NAME TARGET        a symbolic link
    expand NAME FROM COL    the data of FROM with every row repeated as often as COL says
    simulate NAME ROWS SEED made-up answers A to E of three classes, which depend on age and x
    lines NAME              a file; its lines follow, each behind "| "
    example NAME MD K       the K-th model file that the document MD shows
    save NAME               a file with the standard output of the last command
    stdin NAME              the next command reads this file
    terminal                the next command's standard error is a terminal
    interrupt SECONDS       the next command gets Ctrl-C after this time
    $ ARGUMENTS             runs the command; {examples} is the folder of example data
    exit N                  its exit code (0 unless told)
    out TEXT / err TEXT     its standard output / error contains this text
    not out TEXT / not err TEXT
    quiet                   its standard error is empty
    output NAME             its standard output is the file expected/NAME
    absent NAME             there is no such file; "absent *" means no file but those written
    json NAME PATH VALUE [within X]   a value of a JSON file, at a path such as fit.loglik
    keys NAME PATH A,B,...  the keys of a JSON object, in this order
    content NAME TEXT       the whole content of a file
    same A B                two files are identical
    differ A B              they are not
    completed NAME OF FREQ [N]  every imputation in NAME is the data OF, row by row, with nothing
                            changed but missing fields filled in, and N (1) columns added; FREQ (or
                            -) is the column of frequencies
    close A B PATH within X all numbers below a path agree, and so do the texts
"""
import codecs
import csv
import json
import math
import os
import pathlib
import pty
import random
import shlex
import signal
import subprocess
import sys
import tempfile
import time


class Mismatch(Exception):
    pass


def expect(good, text):
    if not good:
        raise Mismatch(text)


def unescape(text):
    return codecs.escape_decode(text.encode())[0]


def lookup(document, path):
    for key in path.split("."):
        document = document[int(key)] if isinstance(document, list) else document[key]
    return document


def compare(a, b, tolerance, path):
    if isinstance(a, dict) and isinstance(b, dict):
        expect(list(a) == list(b), f"{path}: keys {list(a)} and {list(b)}")
        for key in a:
            compare(a[key], b[key], tolerance, f"{path}.{key}")
    elif isinstance(a, list) and isinstance(b, list):
        expect(len(a) == len(b), f"{path}: {len(a)} and {len(b)} elements")
        for i, pair in enumerate(zip(a, b)):
            compare(*pair, tolerance, f"{path}.{i}")
    elif isinstance(a, float) and isinstance(b, float):
        expect(math.isclose(a, b, rel_tol=0, abs_tol=tolerance), f"{path}: {a!r} and {b!r}")
    else:
        expect(a == b, f"{path}: {a!r} and {b!r}")


class Case:
    def __init__(self, command, examples, here, folder):
        self.command, self.examples, self.here = command, examples, here
        self.folder = pathlib.Path(folder)
        self.written = set()
        self.setup = {}
        self.growing = None
        self.result = None

    def settle(self):
        """A command of which no exit code was asked has to succeed."""
        if self.result and not self.result["checked"]:
            self.do_exit("0")

    def path(self, name):
        return self.folder / name

    def read_json(self, name):
        return json.loads(self.path(name).read_text(encoding="utf-8"))

    def do_write(self, rest):
        name, _, text = rest.partition(" ")
        self.path(name).write_bytes(unescape(text))
        self.written.add(name)

    def do_link(self, rest):
        name, target = rest.split()
        self.path(name).symlink_to(target)
        self.written.add(name)

    def do_expand(self, rest):
        name, source, column = rest.split()
        with open(self.path(source), newline="") as file:
            rows = list(csv.reader(file))
        at = rows[0].index(column)
        with open(self.path(name), "w", newline="") as file:
            writer = csv.writer(file)
            for i, row in enumerate(rows):
                for _ in range(int(row[at]) if i else 1):
                    writer.writerow(row[:at] + row[at + 1:])
        self.written.add(name)

    def do_simulate(self, rest):
        name, rows, seed = rest.split()
        draw = random.Random(int(seed)).random
        profiles = [[0.9, 0.85, 0.8, 0.9, 0.15], [0.8, 0.2, 0.75, 0.2, 0.2],
                    [0.1, 0.2, 0.15, 0.1, 0.8]]
        lines = ["id,A,B,C,D,E,age,x,sex"]
        for i in range(int(rows)):
            age, x = 20 + int(50 * draw()), round(4 * draw() - 2, 3)
            sex = "m" if draw() < 0.5 else "f"
            odds = [1, math.exp(-1 + 0.03 * (age - 45) + 0.5 * x), math.exp(0.2 - 0.8 * x)]
            at, cls = draw() * sum(odds), 0
            while cls < 2 and at > odds[cls]:
                at -= odds[cls]
                cls += 1
            answers = ["yes" if draw() < p else "no" for p in profiles[cls]]
            lines.append(",".join(map(str, [i + 1, *answers, age, x, sex])))
        self.path(name).write_text("\n".join(lines) + "\n")
        self.written.add(name)

    def do_lines(self, rest):
        self.path(rest).write_text("")
        self.written.add(rest)
        self.growing = self.path(rest)

    def do_example(self, rest):
        name, document, number = rest.split()
        text = (pathlib.Path(self.examples).parent / "docs" / document).read_text("utf-8")
        self.path(name).write_text(text.split("```toml\n")[int(number)].split("```")[0])
        self.written.add(name)

    def do_save(self, rest):
        self.settle()
        self.path(rest).write_text(self.result["out"], encoding="utf-8")
        self.written.add(rest)

    def do_stdin(self, rest):
        self.setup["stdin"] = self.path(rest).read_bytes()

    def do_terminal(self, _):
        self.setup["terminal"] = True

    def do_interrupt(self, rest):
        self.setup["interrupt"] = float(rest)

    def run(self, rest):
        self.settle()
        arguments = shlex.split(rest)
        setup, self.setup = self.setup, {}
        master, slave = pty.openpty() if "terminal" in setup else (None, subprocess.PIPE)
        process = subprocess.Popen([self.command, *arguments], cwd=self.folder, stderr=slave,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        if "interrupt" in setup:
            time.sleep(setup["interrupt"])
            process.send_signal(signal.SIGINT)
        try:
            out, err = process.communicate(setup.get("stdin", b""), timeout=120)
        except subprocess.TimeoutExpired:
            process.kill()
            raise Mismatch(f"still running after 120 s: {rest}")
        if master is not None:
            os.close(slave)
            err = b""
            try:
                while piece := os.read(master, 65536):
                    err += piece
            except OSError:  # the end of a terminal
                pass
            os.close(master)
        self.result = {"out": out.decode(), "err": err.decode(), "code": process.returncode,
                       "checked": False}

    def do_exit(self, rest):
        self.result["checked"] = True
        expect(self.result["code"] == int(rest), f"exit code {self.result['code']}, not {rest}")

    def do_out(self, rest):
        expect(rest in self.result["out"], f"not in standard output: {rest}")

    def do_err(self, rest):
        expect(rest in self.result["err"], f"not in standard error: {rest}")

    def do_not(self, rest):
        stream, text = rest.split(" ", 1)
        expect(text not in self.result[stream], f"in {stream}: {text}")

    def do_quiet(self, _):
        expect(not self.result["err"], "standard error is not empty")

    def do_output(self, rest):
        wanted = (self.here / "expected" / rest).read_text(encoding="utf-8")
        expect(self.result["out"] == wanted, f"standard output is not expected/{rest}")

    def do_absent(self, rest):
        there = {path.name for path in self.folder.iterdir()}
        extra = there - self.written if rest == "*" else there & {rest}
        expect(not extra, f"left behind: {extra}")

    def do_json(self, rest):
        name, path, wanted = rest.split(" ", 2)
        value = lookup(self.read_json(name), path)
        if " within " in wanted:
            wanted, tolerance = map(float, wanted.split(" within "))
            expect(abs(value - wanted) <= tolerance, f"{path} is {value!r}, not {wanted}")
        else:
            expect(value == json.loads(wanted), f"{path} is {value!r}, not {wanted}")

    def do_keys(self, rest):
        name, path, wanted = rest.split(" ")
        document = self.read_json(name)
        keys = list(document if path == "." else lookup(document, path))
        expect(keys == wanted.split(","), f"keys are {keys}")

    def do_content(self, rest):
        name, _, text = rest.partition(" ")
        content = self.path(name).read_bytes()
        expect(content == unescape(text), f"{name} holds {content!r}")

    def do_same(self, rest):
        a, b = rest.split()
        expect(self.path(a).read_bytes() == self.path(b).read_bytes(), f"{a} and {b} differ")

    def do_differ(self, rest):
        a, b = rest.split()
        expect(self.path(a).read_bytes() != self.path(b).read_bytes(), f"{a} and {b} are the same")

    def do_completed(self, rest):
        name, original, freq, *added = rest.split()
        end = -int(added[0]) if added else -1
        with open(self.path(name), newline="") as file:
            header, *lines = csv.reader(file)
        with open(self.path(original), newline="") as file:
            wanted_header, *rows = csv.reader(file)
        expect(header[0] == "imputation" and header[1:end] == wanted_header, f"header {header}")
        by_imputation = {}
        for line in lines:
            expect(all(line), f"an empty field: {line}")
            by_imputation.setdefault(line[0], []).append(line[1:end])
        at = wanted_header.index(freq) if freq != "-" else None
        for number, completed in by_imputation.items():
            rest = iter(completed)
            for row in rows:
                subjects = int(row[at]) if at is not None else 1
                while subjects > 0:
                    line = next(rest)
                    subjects -= int(line[at]) if at is not None else 1
                    changed = [k for k, text in enumerate(row) if k != at and text != line[k]]
                    expect(all(row[k] in ("", "NA") for k in changed), f"imputation {number}: {row}, {line}")
                expect(subjects == 0, f"imputation {number}: too many subjects of {row}")
            expect(next(rest, None) is None, f"imputation {number}: more rows than the data")

    def do_close(self, rest):
        a, b, path, _, tolerance = rest.split()
        compare(lookup(self.read_json(a), path), lookup(self.read_json(b), path),
                float(tolerance), path)

    def step(self, line):
        word, _, rest = line.replace("{examples}", self.examples).partition(" ")
        if word == "|":
            with open(self.growing, "a", encoding="utf-8") as file:
                file.write(rest + "\n")
        elif word == "$":
            self.run(rest)
        else:
            getattr(self, "do_" + word)(rest)


def cases_of(path):
    cases = []
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if line.startswith("== "):
            cases.append((line[3:], []))
        elif line and not line.startswith("#"):
            cases[-1][1].append((number, line))
    return cases


def main():
    command, examples = map(os.path.abspath, sys.argv[1:3])
    path = pathlib.Path(sys.argv[3]).resolve()
    failed = 0
    cases = cases_of(path)
    for title, lines in cases:
        with tempfile.TemporaryDirectory(prefix="tolvenra-cli-") as folder:
            case = Case(command, examples, path.parent, folder)
            try:
                for number, line in lines:
                    case.step(line)
                expect(case.result, "no command was run")
                number, line = number, "exit 0"
                case.settle()
            except (Mismatch, KeyError, IndexError, OSError, ValueError) as error:
                failed += 1
                print(f"FAILED: {title}\n  {path.name}:{number}: {line}\n  {error}")
                if case.result:
                    print("  standard output:\n" + case.result["out"][-3000:])
                    print("  standard error:\n" + case.result["err"][-2000:])
    print(f"{len(cases) - failed} of {len(cases)} cases passed")
    return 1 if failed or not cases else 0


if __name__ == "__main__":
    sys.exit(main())
