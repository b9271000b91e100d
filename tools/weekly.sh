#!/usr/bin/env bash
# usage: weekly.sh
# Builds the release preset and runs the studies that take too long for every change; what they
# should print is recorded in docs/accuracy.md. Ends with 1 when one of them does.
set -uo pipefail
cd "$(dirname "$0")/.."

cmake --preset release && cmake --build --preset release -j "$(nproc)" || exit 1

failed=0
for study in separation_study; do
  echo "== $study"
  "build/release/bench/$study" || {
    echo "FAILED: $study"
    failed=$((failed + 1))
  }
done
[ $failed -eq 0 ]
