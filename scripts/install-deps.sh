#!/usr/bin/env bash
# Installs the Debian 12 packages that building, running and testing Vantrelo need.
# As root it runs apt-get; otherwise it prints the exact command to run and fails.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config clang clang-format
  qt6-base-dev qt6-base-dev-tools qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools qt6-svg-dev
  libmount-dev libblkid-dev libudev-dev libgtest-dev libgmock-dev libbenchmark-dev
  ntfs-3g util-linux mount fdisk e2fsprogs btrfs-progs xfsprogs udisks2 dbus dbus-daemon udev systemd
  polkitd
  xvfb xauth procps psmisc trayer xdotool x11-utils dbus-x11 libxcb1-dev
  eject xdg-utils
  desktop-file-utils appstream dpkg-dev file
  fonts-dejavu-core fonts-wqy-microhei
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

command_line="apt-get install -y --no-install-recommends ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
  echo "Missing packages. Run as root:" >&2
  echo "  apt-get update && $command_line" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
# shellcheck disable=SC2086
apt-get install -y -qq --no-install-recommends ${missing[*]}
