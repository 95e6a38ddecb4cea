#!/usr/bin/env bash
# Builds the helper's request fuzzer with clang and libFuzzer, apart from the CMake build (which
# may use gcc). Usage: build-fuzzer.sh [OUTPUT_DIR]; then
#   OUTPUT_DIR/helper_request_fuzz WORK_CORPUS_DIR tests/helper/fuzz/corpus -max_total_time=N
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/../../.." && pwd)"
out="${1:-$root/build/fuzz}"
mkdir -p "$out"
sources=(
  "$root/helperclient/wire/WireCodec.cpp"
  "$root"/helper/Caller.cpp "$root"/helper/CommandLog.cpp "$root"/helper/DeviceFacts.cpp
  "$root"/helper/DiskScheduler.cpp "$root"/helper/MountPoint.cpp "$root"/helper/MountRecord.cpp
  "$root"/helper/HelperCommands.cpp "$root"/helper/HelperLogging.cpp
  "$root"/helper/HelperServer.cpp "$root"/helper/RequestValidation.cpp
  "$root"/helper/ToolRunner.cpp "$root"/helper/VolumeProbe.cpp
  "$here/HelperRequestFuzz.cpp"
)
version="$(sed -n 's/^project(Vantrelo VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")"
# shellcheck disable=SC2046
clang++ -std=c++20 -O1 -g -fPIC -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
  -DQT_NO_CAST_FROM_ASCII -DQT_NO_KEYWORDS -DVANTRELO_VERSION="\"$version\"" -I"$root" \
  $(pkg-config --cflags Qt6Core blkid) "${sources[@]}" \
  $(pkg-config --libs Qt6Core blkid) -o "$out/helper_request_fuzz"
echo "$out/helper_request_fuzz"
