#!/usr/bin/env bash
# Runs a command with a private stand-in for the system bus (DBUS_SYSTEM_BUS_ADDRESS), stopped afterwards,
# so that tests can put mocks of system services on it.
set -euo pipefail
dir=$(mktemp -d "${TMPDIR:-/tmp}/system-bus.XXXXXX")
dbus-daemon --session --fork --nopidfile --print-address=3 --print-pid=4 3>"$dir/address" 4>"$dir/pid" 2>/dev/null
pid=$(cat "$dir/pid")
trap 'kill "$pid" 2>/dev/null; rm -rf "$dir"' EXIT
DBUS_SYSTEM_BUS_ADDRESS=$(head -n1 "$dir/address")
export DBUS_SYSTEM_BUS_ADDRESS
"$@"
