#!/usr/bin/env bash
# usage: run.sh BUILD_FOLDER SCRATCH_FOLDER VERSION
# Installs into a folder, moves it, and builds the consumer by pkg-config and by find_package.
set -euo pipefail
build=$1 scratch=$2 version=$3
here=$(cd "$(dirname "$0")" && pwd)

rm -rf "$scratch/first" "$scratch/moved" "$scratch/consumer"
cmake --install "$build" --prefix "$scratch/first" >/dev/null
mv "$scratch/first" "$scratch/moved"
libdir=$(dirname "$(find "$scratch/moved" -name libtolvenra.so)")

export PKG_CONFIG_PATH=$libdir/pkgconfig
[ "$(pkg-config --modversion tolvenra)" = "$version" ]
read -ra flags <<<"$(pkg-config --cflags --libs tolvenra)"
cc -std=c11 -Wall -Wextra -Wpedantic -Werror "$here/consumer.c" "${flags[@]}" -Wl,-rpath,"$libdir" \
  -o "$scratch/by_pkg_config"
"$scratch/by_pkg_config"

cmake -S "$here/consumer" -B "$scratch/consumer" -DCMAKE_PREFIX_PATH="$scratch/moved" \
  -DWANTED_VERSION="$version" >/dev/null
cmake --build "$scratch/consumer" >/dev/null
"$scratch/consumer/by_find_package"

if [ -x "$scratch/moved/bin/tolvenra" ]; then
  "$scratch/moved/bin/tolvenra" --version | grep -q -F "$version"
fi
