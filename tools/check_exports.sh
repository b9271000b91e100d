#!/usr/bin/env bash
# usage: check_exports.sh LIBRARY
# The library exports its three names and nothing else; a DLL needs system libraries alone.
set -euo pipefail
library=$1
want=$'checkversion\nrunlca\nrunlta'
case $library in
  *.dll)
    dump=$(x86_64-w64-mingw32-objdump -p "$library")
    have=$(awk '/\[Ordinal\/Name Pointer\] Table/ {inside = 1; next} /^$/ {inside = 0}
                inside {print $NF}' <<<"$dump" | LC_ALL=C sort)
    imports=$(sed -n 's/^[[:space:]]*DLL Name: //p' <<<"$dump" | tr '[:upper:]' '[:lower:]')
    system='(kernel32|ntdll|user32|advapi32|msvcrt|ucrtbase|api-ms-win-[a-z0-9-]+)\.dll'
    if foreign=$(grep -v -x -E "$system" <<<"$imports"); then
      echo "$library needs other libraries: $(paste -sd' ' <<<"$foreign")"
      exit 1
    fi
    ;;
  *)
    # The version node of a symbol, where there is one, is not part of its name.
    have=$(nm -D --defined-only "$library" | awk '{sub(/@.*/, "", $NF); print $NF}' | LC_ALL=C sort)
    ;;
esac
if [ "$have" != "$want" ]; then
  echo "$library does not export exactly checkversion, runlca, runlta:"
  diff <(echo "$want") <(echo "$have") || true
  exit 1
fi
echo "$library: exports are good"
