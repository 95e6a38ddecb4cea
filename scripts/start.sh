#!/usr/bin/env bash
# Installs what is missing, builds and installs Vantrelo, starts its privileged helper (through
# systemd where it runs, by hand otherwise) and then shows the volumes.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)"

ctl=build/release/ctl/vantreloctl
if [ "$(id -u)" -eq 0 ]; then
  cmake --install build/release >/dev/null
  helper=$(cmake -L -N build/release | sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p')/libexec/vantrelo-helper
  socket=${VANTRELO_HELPER_SOCKET:-/run/Q7W4E2R9T1.com.corvin.pellodisk.vantrelo-helper.sock}
  if [ -d /run/systemd/system ]; then
    systemctl daemon-reload
    systemctl enable --now vantrelo-helper.socket
  else
    # Without systemd nothing starts the system bus or polkit, and without polkit only root may
    # change disks through the helper.
    if [ ! -S /run/dbus/system_bus_socket ]; then
      mkdir -p /run/dbus
      dbus-daemon --system --fork
    fi
    if ! pgrep -x polkitd >/dev/null; then
      nohup /usr/lib/polkit-1/polkitd --no-debug >/var/log/vantrelo-polkitd.log 2>&1 &
    fi
    if ! "$ctl" helper-version >/dev/null 2>&1; then
      nohup "$helper" --socket "$socket" >/var/log/vantrelo-helper.log 2>&1 &
      for _ in $(seq 50); do "$ctl" helper-version >/dev/null 2>&1 && break; sleep 0.1; done
    fi
  fi
  echo "helper: $("$ctl" helper-version 2>&1)"
else
  echo "not root: the privileged helper was not installed or started" >&2
fi
exec "$ctl" list "$@"
