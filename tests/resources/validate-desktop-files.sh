#!/usr/bin/env bash
# validate-desktop-files.sh DESKTOP_ENTRY METAINFO: both freedesktop validators, warnings included.
# Exits 77 (skipped) when a validator is not installed.
set -euo pipefail
for tool in desktop-file-validate appstreamcli; do
  if ! command -v "$tool" >/dev/null; then
    echo "skipped: $tool is not installed (scripts/install-deps.sh installs it)"
    exit 77
  fi
done
# desktop-file-validate exits 0 on warnings; any line it prints is a finding.
findings=$(desktop-file-validate "$1" 2>&1) || { echo "$findings"; exit 1; }
if [ -n "$findings" ]; then
  echo "$findings"
  exit 1
fi
# Warnings fail too; pedantic notes (such as the upper-case letters of the id) do not.
appstreamcli validate --no-net --explain "$2"
