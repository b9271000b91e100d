#!/usr/bin/env bash
# usage: install_packages.sh PACKAGE...
# Installs the Debian packages that are missing; quick and silent when none is. Exit code 2 when
# that takes something this machine does not have. TOLVENRA_SKIP_PACKAGES=1 leaves the matter to you.
set -euo pipefail

[ "${TOLVENRA_SKIP_PACKAGES:-0}" = 1 ] && exit 0

missing=()
for package in "$@"; do
  status=$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

give_up() {
  echo "$1 Install these packages, or what your system calls them:" >&2
  echo "  ${missing[*]}" >&2
  echo "and run again with TOLVENRA_SKIP_PACKAGES=1." >&2
  exit 2
}

command -v apt-get >/dev/null || give_up "There is no apt-get here."
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || give_up "Installing packages takes root, and there is no sudo."
  as_root=(sudo)
fi

echo "Installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
