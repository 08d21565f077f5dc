#!/usr/bin/env bash
# scripts/fuzz.sh [SECONDS [FOLDER]]: feeds damaged OpenFlight files to the record reader, under AddressSanitizer and
# UndefinedBehaviorSanitizer, for so long (180 s). What is found interesting stays in FOLDER (build/fuzz/corpus), to go on
# from the next time. Needs the Debian packages clang and libclang-rt-14-dev, and the tool built, for its sample files.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

seconds=${1:-180}
corpus=${2:-build/fuzz/corpus}
fuzzer=build/fuzz/flight_records_fuzzer
longest=16384 # bytes of a file; more of the same finds nothing more

mkdir -p "$corpus" build/fuzz
clang++ -std=c++17 -g -O1 -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=all -Iapps/sceneutils \
    fuzz/FlightRecordsFuzzer.cpp apps/sceneutils/files/{ByteSource,FlightFile,FlightRecordReader}.cpp -o "$fuzzer"

if [ -z "$(ls -A "$corpus")" ]; then
    tool=$(ls -t build/*/apps/sceneutils/sceneutils 2>/dev/null | head -n 1)
    [ -n "$tool" ] || { echo "no tool is built: cmake --preset release && cmake --build --preset release" >&2; exit 1; }
    sample=$(mktemp -d)
    trap 'rm -rf "$sample"' EXIT
    "$tool" sample "$sample/db" --tiles 4 --levels 4 --lod-hints
    find "$sample/db" -name '*.flt' -size -"$((longest / 1024))"k -exec cp {} "$corpus" \;
fi
"$fuzzer" -max_total_time="$seconds" -max_len="$longest" -print_final_stats=1 -artifact_prefix=build/fuzz/ "$corpus"
