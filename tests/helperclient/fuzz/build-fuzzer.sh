#!/usr/bin/env bash
# Builds the codec fuzzer with clang and libFuzzer, apart from the CMake build (which may use gcc).
# Usage: build-fuzzer.sh [OUTPUT_DIR]; then run OUTPUT_DIR/wire_fuzz CORPUS_COPY_DIR -max_total_time=N
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/../../.." && pwd)"
out="${1:-$root/build/fuzz}"
mkdir -p "$out"
# shellcheck disable=SC2046
clang++ -std=c++20 -O1 -g -fPIC -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
  -DQT_NO_CAST_FROM_ASCII -DQT_NO_KEYWORDS -I"$root" $(pkg-config --cflags Qt6Core) \
  "$root/helperclient/wire/WireCodec.cpp" "$here/WireCodecFuzz.cpp" \
  $(pkg-config --libs Qt6Core) -o "$out/wire_fuzz"
echo "$out/wire_fuzz"
