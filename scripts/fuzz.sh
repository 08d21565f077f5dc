#!/usr/bin/env bash
# scripts/fuzz.sh [SECONDS [KIND [FOLDER]]]: has libFuzzer look for input that breaks something, under AddressSanitizer
# and UndefinedBehaviorSanitizer, for so long (180 s). KIND is one of
#
#     records   damaged OpenFlight files, for the record reader (the default)
#     graphs    graphs of all that OpenSceneGraph offers, for the library's tools in any order
#     shaders   state sets, for the generator of programs and the OpenGL driver
#
# What is found interesting stays in FOLDER (build/fuzz/corpus/KIND), to go on from the next time. Needs the Debian
# packages clang and libclang-rt-14-dev; for records, also the tool, built, for its sample files.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

seconds=${1:-180}
kind=${2:-records}
corpus=${3:-build/fuzz/corpus/$kind}
options=(-max_total_time="$seconds" -print_final_stats=1 -artifact_prefix=build/fuzz/)

mkdir -p "$corpus" build/fuzz

prepare_records() {
    local sample tool longest=16384 # bytes of a file; more of the same finds nothing more
    fuzzer=build/fuzz/records_fuzzer
    options+=(-max_len="$longest")
    clang++ -std=c++17 -g -O1 -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=all -Iapps/sceneutils \
        fuzz/FlightRecordsFuzzer.cpp apps/sceneutils/files/{ByteSource,FlightFile,FlightRecordReader}.cpp -o "$fuzzer"
    [ -z "$(ls -A "$corpus")" ] || return 0
    tool=$(ls -t build/*/apps/sceneutils/sceneutils 2>/dev/null | head -n 1)
    [ -n "$tool" ] || { echo "no tool is built: cmake --preset release && cmake --build --preset release" >&2; exit 1; }
    sample=$(mktemp -d)
    "$tool" sample "$sample/db" --tiles 4 --levels 4 --lod-hints
    find "$sample/db" -name '*.flt' -size -"$((longest / 1024))"k -exec cp {} "$corpus" \;
    rm -rf "$sample"
}

# The library too is built by clang, to see which inputs lead where in it. OpenSceneGraph is taken as it is installed.
prepare_library_fuzzer() {
    fuzzer=build/fuzz/${kind}_fuzzer
    options+=(-max_len=1024 -len_control=0 -timeout=20)
    cmake -S . -B build/fuzz/tree -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
        -DSCENEUTILS_BUILD_FUZZERS=ON -DSCENEUTILS_SANITIZERS=address,undefined,fuzzer-no-link
    cmake --build build/fuzz/tree --target "${kind}_fuzzer" --parallel 2
    ln -sf "tree/fuzz/${kind}_fuzzer" "$fuzzer"
    [ ! -d "fuzz/kept/$kind" ] || cp -n "fuzz/kept/$kind"/* "$corpus"
    if [ "$(find "$corpus" -type f | wc -l)" -lt 100 ]; then
        for i in $(seq 200); do head -c $((100 + i * 3)) /dev/urandom >"$corpus/random-$i"; done
    fi
}

case $kind in
records) prepare_records ;;
graphs) prepare_library_fuzzer ;;
shaders)
    prepare_library_fuzzer
    # The software driver without threads of its own, and without what it never frees.
    export LP_NUM_THREADS=0 MESA_SHADER_CACHE_DISABLE=true ASAN_OPTIONS=detect_leaks=0
    ;;
*)
    echo "usage: scripts/fuzz.sh [SECONDS [records|graphs|shaders [FOLDER]]]" >&2
    exit 1
    ;;
esac
"$fuzzer" "${options[@]}" "$corpus"
