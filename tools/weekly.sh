#!/usr/bin/env bash
# usage: weekly.sh
# Builds the release preset and runs all studies, which take too long for every change; what they
# print is recorded in docs/accuracy.md. Ends with status 1 when one of them fails.
set -uo pipefail
cd "$(dirname "$0")/.."

cmake --preset release && cmake --build --preset release -j "$(nproc)" || exit 1

failed=0
for source in bench/studies/*.cpp; do
  study=$(basename "$source" .cpp)
  echo "== $study"
  "build/release/bench/$study" || {
    echo "FAILED: $study"
    failed=$((failed + 1))
  }
done
[ $failed -eq 0 ]
