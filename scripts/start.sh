#!/usr/bin/env bash
# Installs what is missing, builds and installs Vantrelo, starts its privileged helper (through
# systemd where it runs, by hand otherwise), then starts the application in the desktop of the
# person who ran the script (through sudo or pkexec too). Without a desktop it shows the volumes
# on the command line instead.
set -euo pipefail
cd "$(dirname "$0")/.."
# The daemons and the application started below outlive this script: they must not keep the
# caller's open files (a lock held around this script would stay held by them).
for fd in /proc/$$/fd/*; do
  fd=${fd##*/}
  [ "$fd" -gt 2 ] && eval "exec $fd>&-" 2>/dev/null || true
done
scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)"

ctl=build/release/ctl/vantreloctl
app=build/release/app/vantrelo
if [ "$(id -u)" -eq 0 ]; then
  cmake --install build/release >/dev/null
  prefix=$(cmake -L -N build/release | sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p')
  helper=$prefix/libexec/vantrelo-helper
  app=$prefix/bin/vantrelo
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

if [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  echo "No display (neither DISPLAY nor WAYLAND_DISPLAY is set), so no window: the volumes are listed here."
  exec "$ctl" list "$@"
fi

# The application belongs to the person behind sudo or pkexec, not to root.
uid=$(id -u)
if [ "$uid" -eq 0 ] && [ -n "${PKEXEC_UID:-}" ]; then
  uid=$PKEXEC_UID
elif [ "$uid" -eq 0 ] && [ -n "${SUDO_USER:-}" ]; then
  uid=$(id -u "$SUDO_USER")
fi
IFS=: read -r name _ _ gid _ home _ < <(getent passwd "$uid")

# sudo and pkexec drop the session's runtime folder and bus address; both are found again under
# /run/user, where a second start must also find the running program's instance socket.
runtime=${XDG_RUNTIME_DIR:-}
if [ -z "$runtime" ] || [ "$(stat -c %u "$runtime" 2>/dev/null)" != "$uid" ]; then
  runtime=/run/user/$uid
  [ "$(stat -c %u "$runtime" 2>/dev/null)" = "$uid" ] || runtime=""
fi
session=(HOME="$home" USER="$name" LOGNAME="$name")
if [ -n "$runtime" ]; then
  session+=(XDG_RUNTIME_DIR="$runtime")
  if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ] && [ -S "$runtime/bus" ]; then
    session+=(DBUS_SESSION_BUS_ADDRESS="unix:path=$runtime/bus")
  fi
fi
become=()
if [ "$uid" -ne "$(id -u)" ]; then
  become=(setpriv --reuid="$uid" --regid="$gid" --init-groups)
fi

log_dir=$home/.local/state/vantrelo
# A second start hands over to the running program, which shows its window again.
verb=started
pgrep -u "$uid" -x vantrelo >/dev/null && verb="already running, its window shown again,"
setsid -f "${become[@]}" env -u XDG_RUNTIME_DIR "${session[@]}" sh -c \
  'mkdir -p "$1" && exec "$2" </dev/null >>"$1/vantrelo.log" 2>&1' sh "$log_dir" "$(realpath "$app")"
echo "vantrelo $verb for $name on ${WAYLAND_DISPLAY:-$DISPLAY} (log: $log_dir/vantrelo.log)"
