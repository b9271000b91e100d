#!/usr/bin/env bash
# usage: test.sh [--quick]
# Builds and tests everything; --quick leaves out the sanitizers and the Windows DLL. A failing step
# does not keep the others from running. The last line counts the tests of all runs.
set -uo pipefail
cd "$(dirname "$0")"

quick=no
case "${1:-}" in
  "") ;;
  --quick) quick=yes ;;
  *) sed -n '2,4s/^# //p' "$0" >&2; exit 2 ;;
esac

packages=(g++ cmake ninja-build libgtest-dev libbenchmark-dev libcli11-dev nlohmann-json3-dev
          libtomlplusplus-dev libcsv-dev libfmt-dev clang-format python3 pkg-config)
[ $quick = yes ] || packages+=(g++-mingw-w64-x86-64-posix wine64)
tools/install_packages.sh "${packages[@]}" || exit $?

jobs=$(nproc)
passed=0
failed=0

# attribute FILE NAME: a number of the test suite in ctest's report
attribute() { sed -n "s/^.*[[:space:]]$2=\"\([0-9]*\)\".*/\1/p" "$1" | head -n 1; }

count_failure() {
  echo "FAILED: $1"
  failed=$((failed + 1))
}

# run_preset PRESET: configure, build, test, and add up what ctest reports
run_preset() {
  local preset=$1 log=build/$1.log report=build/$1.xml
  echo "== $preset"
  rm -f "$report"
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset" -j "$jobs"; } >"$log" 2>&1
  then
    tail -n 40 "$log"
    count_failure "build of $preset ($log)"
    return
  fi
  ctest --preset "$preset" -j "$jobs" --no-tests=error --output-junit "$PWD/$report" >"$log.tests" 2>&1
  local status=$? tests failures idle
  # The first lines of every failing test, and the totals.
  awk '/\*\*\*/ {left = 30} /^ *Start +[0-9]+:/ {left = 0} /% tests passed/ {left = 1e9}
       left > 0 {print; --left}' "$log.tests"
  if [ ! -s "$report" ]; then
    count_failure "tests of $preset ($log.tests)"
    return
  fi
  tests=$(attribute "$report" tests)
  failures=$(attribute "$report" failures)
  idle=$(($(attribute "$report" skipped) + $(attribute "$report" disabled)))
  [ $idle -eq 0 ] || echo "$idle tests of $preset did not run"
  passed=$((passed + tests - failures - idle))
  failed=$((failed + failures))
  [ $status -eq 0 ] || [ "$failures" -gt 0 ] || count_failure "ctest of $preset ended with $status"
}

check_format() {
  echo "== format"
  local files
  mapfile -t files < <(find src cli tests bench include -name '*.[ch]' -o -name '*.[ch]pp' |
                         grep -v -e '/generated/' -e 'include/tolvenra/tolvenra.h')
  if clang-format --dry-run -Werror "${files[@]}" 2>build/format.log; then
    passed=$((passed + 1))
  else
    head -n 20 build/format.log
    count_failure "clang-format (build/format.log)"
  fi
}

mkdir -p build
check_format
run_preset release
if [ $quick = no ]; then
  run_preset asan
  run_preset mingw
fi

echo "$passed passed, $failed failed"
[ $failed -eq 0 ]
