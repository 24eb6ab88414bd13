#!/usr/bin/env bash
# The two commands of the README:
#   scripts/dev.sh run [ARGS...]   install what is missing, build, and start brimvale
#   scripts/dev.sh test            install what is missing, build with sanitizers, run the whole suite
# Also: scripts/dev.sh bench [FILTER]  (optimised build, runs the benchmarks; not part of the suite)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

packages=(
  cmake ninja-build g++ pkg-config
  qt6-base-dev qt6-base-dev-tools libqt6sql6-sqlite qtkeychain-qt6-dev libsqlite3-dev
  xvfb xauth dbus dbus-x11 python3-dbusmock systemd python3
  libxml2-utils sqlite3 libbenchmark-dev libreoffice-calc-nogui e2fsprogs timewarrior
  libxcb-screensaver0-dev libxcb-dpms0-dev libwayland-dev wayland-protocols plasma-wayland-protocols
)

install_missing() {
  local missing=()
  for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
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
    install_missing
    build release
    [ $# -eq 0 ] && set -- --help
    exec build/release/src/app/brimvale "$@"
    ;;
  test)
    install_missing
    build ci
    ctest --preset ci "$@"
    ;;
  bench)
    install_missing
    build bench
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
