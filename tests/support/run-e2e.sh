#!/usr/bin/env bash
# End-to-end launcher: isolated folders, a private session bus and a virtual X display.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
exec "$here/isolated-env.sh" dbus-run-session -- xvfb-run -a -s "-screen 0 1280x800x24 -noreset" env QT_QPA_PLATFORM=xcb "$@"
