#!/usr/bin/env bash
# Builds the codec fuzzer with clang, libFuzzer, ASan and UBSan, apart from the CMake build (which
# may use gcc). Run it on a copy of corpus/ (named seeds, hashes kept from earlier runs), so the
# stored one only grows on purpose; ctest test_wire_corpus replays every file of it:
#   build-fuzzer.sh [OUTPUT_DIR] && cp -r corpus build/fuzz/corpus-run
#   build/fuzz/wire_fuzz build/fuzz/corpus-run -max_total_time=660 -max_len=70000
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
