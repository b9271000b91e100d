#!/usr/bin/env bash
# usage: run_host.sh [EMULATOR...] HOST LIBRARY GROUP
# Good when the host both says so and ends well: an emulator that does not start, or a crash after
# the last check, shows in one of the two only. ABI_OUTPUT names a file that keeps what it printed.
set -uo pipefail
output=${ABI_OUTPUT:-$(mktemp)}
"$@" | tr -d '\r' | tee "$output"
status=${PIPESTATUS[0]}
grep -q -E '^abi [a-z_]+: [1-9][0-9]* checks, 0 failed$' "$output"
said_good=$?
[ -n "${ABI_OUTPUT:-}" ] || rm -f "$output"
[ "$status" -eq 0 ] || echo "the host ended with $status"
[ "$status" -eq 0 ] && [ $said_good -eq 0 ]
