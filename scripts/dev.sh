#!/usr/bin/env bash
# The two commands of the README:
#   scripts/dev.sh run [ARGS...]   install what building and running need, build, and start the app
#                                  (with ARGS: run that command line, e.g. `run list --json`)
#   scripts/dev.sh test            install the test tools too, build with sanitizers, run the whole suite
# Also: scripts/dev.sh bench [FILTER]  (optimised build, runs the benchmarks; not part of the suite)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# What building and running the app need: the toolchain, Qt with its X11 and Wayland platform plugins, SVG
# icons, the keychain and SQLite, and a session bus.
packages=(
  cmake ninja-build g++ pkg-config
  qt6-base-dev qt6-base-dev-tools qt6-svg-dev qt6-qpa-plugins qt6-wayland libqt6sql6-sqlite
  qtkeychain-qt6-dev libsecret-1-0 libsqlite3-dev dbus
  libxcb-screensaver0-dev libxcb-dpms0-dev libwayland-dev wayland-protocols plasma-wayland-protocols
)
# What only the test suite and the benchmarks need: a headless display and window manager, a private bus
# with mocked services, tray and notification hosts, input and screenshot tools, the keyring, the office
# suite that reads exported files, a peer time tracker, the file-system tools of the store tests.
test_packages=(
  xvfb xauth dbus-x11 python3-dbusmock systemd python3 xdotool imagemagick dunst trayer openbox
  gnome-keyring libsecret-tools python3-dropbox libxml2-utils sqlite3 libbenchmark-dev libreoffice-calc-nogui
  e2fsprogs timewarrior nodejs desktop-file-utils hicolor-icon-theme sway
)

install_missing() {
  local missing=()
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  # Debian's nodejs comes without npm; other builds of nodejs bring their own and conflict with Debian's.
  if [ "${need_npm:-}" = 1 ]; then command -v npm >/dev/null || missing+=(npm); fi
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "Installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq
  # With recommends, as the suite was developed and tested: LibreOffice and Qt need some of them.
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
}

build() {
  local preset=$1
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$(nproc)"
}

cmd=${1:-run}
shift || true
case "$cmd" in
  run)
    install_missing "${packages[@]}"
    build release
    if [ $# -eq 0 ] && [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
      echo "No display (neither DISPLAY nor WAYLAND_DISPLAY is set), so the app cannot open; the command line:"
      set -- --help
    fi
    exec build/release/src/app/brimvale "$@"
    ;;
  test)
    need_npm=1 install_missing "${packages[@]}" "${test_packages[@]}"
    build ci
    # The JavaScript Dropbox SDK for the fake server's conformance test, at the locked version.
    (cd tests/conformance && npm ci --no-audit --no-fund --loglevel=error)
    ctest --preset ci "$@"
    ;;
  bench)
    install_missing "${packages[@]}" "${test_packages[@]}"
    build bench
    # The app's benchmark opens its window; without a display it draws off screen.
    [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && export QT_QPA_PLATFORM=offscreen
    for b in build/bench/bench/bench-*; do
      [ -x "$b" ] || continue
      echo "== $(basename "$b")"
      "$b" --benchmark_filter="${1:-.}"
    done
    ;;
  *)
    echo "usage: scripts/dev.sh run [ARGS...] | test | bench [FILTER]" >&2
    exit 2
    ;;
esac
