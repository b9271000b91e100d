#!/usr/bin/env python3
"""Checks who includes whom.

usage: check_layers.py [ROOT]

- A folder of src/ includes itself and folders to its left: core, numerics, model, estimation, api.
- The engine needs the C++ standard library and OpenMP alone; core/parallel.hpp owns OpenMP.
- The command knows the engine by tolvenra.h, and by what CLI_EXCEPTIONS lists.
"""
import pathlib
import re
import sys

LAYERS = ["core", "numerics", "model", "estimation", "api"]
HEADER = "tolvenra/tolvenra.h"
OPENMP_OWNER = "src/core/parallel.hpp"
OWN_SYSTEM_HEADERS = {OPENMP_OWNER: {"omp.h"}, "src/core/parallel.cpp": {"unistd.h"},
                      "src/api/module_pin.cpp": {"windows.h"}}
CLI_EXCEPTIONS = {("cli/impute.cpp", "api/augmentation.hpp"), ("cli/lca_run.cpp", "api/findings.hpp"),
                  ("cli/lta_run.cpp", "api/findings.hpp")}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
OPENMP = re.compile(r'^\s*#\s*pragma\s+omp\b|_Pragma\s*\(\s*"omp\b|\bomp_\w+\s*\(')


def engine_include_problem(name, quote, target):
    layer = name.split("/")[1]
    first = target.split("/")[0]
    if target == HEADER:
        return None if layer == "api" else f"{layer} must not know {HEADER}"
    if first in LAYERS:
        if LAYERS.index(first) > LAYERS.index(layer):
            return f"{layer} must not include {target}"
        return None
    if quote == '"':
        return f'"{target}" does not name its folder'
    if ("." in target or "/" in target) and target not in OWN_SYSTEM_HEADERS.get(name, ()):
        return f"<{target}> is not of the C++ standard library"
    return None


def cli_include_problem(name, target):
    if target == HEADER or (name, target) in CLI_EXCEPTIONS:
        return None
    first = target.split("/")[0]
    if first in LAYERS or first == "src" or "../" in target or first == "tolvenra":
        return f"the command must not include {target}"
    return None


def problems_of(path, root):
    name = path.relative_to(root).as_posix()
    in_engine = name.startswith("src/")
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), start=1):
        found = INCLUDE.match(line)
        if found and in_engine:
            problem = engine_include_problem(name, *found.groups())
        elif found:
            problem = cli_include_problem(name, found.group(2))
        elif in_engine and name != OPENMP_OWNER and OPENMP.search(line.split("//")[0]):
            problem = f"OpenMP belongs to {OPENMP_OWNER}"
        else:
            problem = None
        if problem:
            yield f"{name}:{number}: {problem}"


def main(args):
    root = pathlib.Path(args[0] if args else pathlib.Path(__file__).parent.parent).resolve()
    files = [path for folder in [*(f"src/{layer}" for layer in LAYERS), "cli"]
             for path in sorted((root / folder).rglob("*")) if path.suffix in (".hpp", ".cpp", ".h")]
    strays = [path for path in sorted((root / "src").rglob("*.[ch]pp"))
              if path.relative_to(root / "src").parts[0] not in LAYERS]
    problems = [f"{path.relative_to(root)}: no such layer" for path in strays]
    for path in files:
        problems.extend(problems_of(path, root))
    print("\n".join(problems) if problems else f"layers: {len(files)} files good")
    return 1 if problems or not files else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
