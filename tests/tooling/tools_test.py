#!/usr/bin/env python3
"""The checks of tools/ must find what they look for: each case plants one fault."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
FRAME_FILES = ["src/api/call_frame.toml", "include/tolvenra/tolvenra.h",
               "docs/reference/call-frame.md", "src/api/generated/call_records.hpp",
               "src/api/generated/exports.cpp", "tools/gen_call_frame.py"]


def run(*command):
    return subprocess.run([sys.executable, *map(str, command)], capture_output=True, text=True,
                          timeout=60, check=False)


class CheckLayers(unittest.TestCase):
    GOOD = {"src/core/parallel.hpp": "#include <omp.h>\n#pragma omp parallel\n",
            "src/model/a.cpp": '#include <vector>\n#include "core/parallel.hpp"\n',
            "cli/impute.cpp": '#include "api/augmentation.hpp"\n',
            "cli/main.cpp": '#include "tolvenra/tolvenra.h"\n#include <CLI/CLI.hpp>\n'}
    FAULTS = [("src/core/b.hpp", '#include "model/a.hpp"\n', "core must not include"),
              ("src/model/b.cpp", '#include "api/version.hpp"\n', "model must not include"),
              ("src/model/b.cpp", '#include "a.hpp"\n', "does not name its folder"),
              ("src/model/b.cpp", '#include "tolvenra/tolvenra.h"\n', "must not know"),
              ("src/model/b.cpp", "#include <Eigen/Core>\n", "standard library"),
              ("src/model/b.cpp", "#include <omp.h>\n", "standard library"),
              ("src/model/b.cpp", "# pragma omp simd\n", "OpenMP belongs"),
              ("src/model/b.cpp", "int n = omp_get_max_threads();\n", "OpenMP belongs"),
              ("src/extra/b.cpp", "\n", "no such layer"),
              ("cli/b.cpp", '#include "core/array.hpp"\n', "must not include"),
              ("cli/b.cpp", '#include "../src/core/array.hpp"\n', "must not include"),
              ("cli/b.cpp", '#include "api/augmentation.hpp"\n', "must not include")]

    def check(self, files):
        with tempfile.TemporaryDirectory() as folder:
            for name, text in files.items():
                path = pathlib.Path(folder, name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text, encoding="utf-8")
            return run(ROOT / "tools/check_layers.py", folder)

    def test_good_tree(self):
        result = self.check(self.GOOD)
        self.assertEqual(result.returncode, 0, result.stdout)

    def test_faults(self):
        for name, text, report in self.FAULTS:
            with self.subTest(name=name, text=text):
                result = self.check({**self.GOOD, name: text})
                self.assertEqual(result.returncode, 1)
                self.assertIn(f"{name}", result.stdout)
                self.assertIn(report, result.stdout)


class CallFrame(unittest.TestCase):
    def generate(self, change, *options):
        """The generator's answer on a copy of the tree in which `change` maps name -> edit."""
        with tempfile.TemporaryDirectory() as folder:
            for name in FRAME_FILES:
                text = (ROOT / name).read_text(encoding="utf-8")
                path = pathlib.Path(folder, name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(change.get(name, lambda same: same)(text), encoding="utf-8")
            return run(pathlib.Path(folder, "tools/gen_call_frame.py"), *options)

    def test_edited_outputs_are_found(self):
        for name in FRAME_FILES[1:5]:
            result = self.generate({name: lambda text: text.replace("nrcmax", "nrc_max")}, "--check")
            self.assertEqual(result.returncode, 1)
            self.assertIn(name, result.stdout)

    def test_faulty_tables_are_refused(self):
        faults = [("position = 2\n", "position = 3\n", "without a gap"),
                  ('name = "nrcmax"', 'name = "nrc"', "taken"),
                  ('type = "f64"', 'type = "f32"', "unknown type"),
                  ('null = "class 1"', 'nul = "class 1"', "unknown field"),
                  ('null = "class 1"\n', "", "null is missing"),
                  ('needed_if = "start_given"', 'needed_if = "start_gone"', "no value is called")]
        for old, new, report in faults:
            with self.subTest(new=new):
                edit = {FRAME_FILES[0]: lambda text, old=old, new=new: text.replace(old, new, 1)}
                result = self.generate(edit, "--check")
                self.assertEqual(result.returncode, 1)
                self.assertIn(report, result.stderr)


if __name__ == "__main__":
    unittest.main()
