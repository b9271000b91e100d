#!/usr/bin/env bash
# Builds the command and fits two latent classes to the role conflict data.
set -euo pipefail
cd "$(dirname "$0")"

tools/install_packages.sh g++ cmake ninja-build libgtest-dev libbenchmark-dev libcli11-dev \
  nlohmann-json3-dev libtomlplusplus-dev libcsv-dev libfmt-dev python3

log=build/demo.log
mkdir -p build
if ! { cmake --preset release && cmake --build --preset release --target tolvenra_cli; } \
    >"$log" 2>&1; then
  tail -n 40 "$log" >&2
  echo "The build failed; $log has all of it." >&2
  exit 1
fi

set -- build/release/cli/tolvenra lca examples/stouffer_toby.csv --items A,B,C,D --freq freq \
  --classes 2 --starts 20
echo "\$ $*"
exec "$@"
