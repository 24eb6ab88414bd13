#!/usr/bin/env bash
# Runs a command with its own HOME and XDG folders in a fresh temporary directory, removed afterwards.
set -euo pipefail
root=$(mktemp -d "${TMPDIR:-/tmp}/brimvale-test.XXXXXX")
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/home" "$root/data" "$root/config" "$root/cache" "$root/runtime" "$root/tmp"
chmod 700 "$root/runtime"
export HOME="$root/home"
export XDG_DATA_HOME="$root/data"
export XDG_CONFIG_HOME="$root/config"
export XDG_CACHE_HOME="$root/cache"
export XDG_RUNTIME_DIR="$root/runtime"
export TMPDIR="$root/tmp"
# No test reaches the user's session bus (a running Brimvale would answer `brimvale sync`); tests that need
# a bus get a private one from dbus-run-session, which replaces this address.
export DBUS_SESSION_BUS_ADDRESS="unix:path=$root/runtime/no-session-bus"
"$@"
