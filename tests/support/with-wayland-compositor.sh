#!/usr/bin/env bash
# Runs a command with a headless sway for a compositor (WAYLAND_DISPLAY set to its socket's full path),
# stopped afterwards. sway refuses to run as root, so under root it runs as nobody. Without sway the
# command runs as it is and its Wayland tests skip.
set -euo pipefail
if ! command -v sway >/dev/null; then
    exec "$@"
fi
# Under /tmp, not the test's private TMPDIR: the compositor's user must reach it.
runtime=$(mktemp -d /tmp/brimvale-wayland.XXXXXX)
config="$runtime.conf"
: >"$config"
compositor=(env -i "XDG_RUNTIME_DIR=$runtime" WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 WLR_RENDERER=pixman
    "HOME=$runtime" sway -c "$config")
if [ "$(id -u)" -eq 0 ]; then
    chown nobody "$runtime"
    chmod 644 "$config"
    compositor=(runuser -u nobody -- "${compositor[@]}")
fi
chmod 700 "$runtime"
# In a session of its own, so that stopping it stops only it.
setsid "${compositor[@]}" >"$runtime.log" 2>&1 &
pid=$!
trap 'kill -TERM -- "-$pid" 2>/dev/null; wait "$pid" 2>/dev/null || true; rm -rf "$runtime" "$runtime.log" "$config"' EXIT
for _ in $(seq 100); do
    [ -S "$runtime/wayland-1" ] && break
    sleep 0.05
done
export WAYLAND_DISPLAY="$runtime/wayland-1"
"$@"
