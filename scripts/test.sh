#!/usr/bin/env bash
# Installs what is missing, builds with warnings as errors and runs every test.
#
#     scripts/test.sh [PRESET]      PRESET: release (default), debug, asan or tsan (the tests of threads alone)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=${1:-release}
logs=build/$preset/Testing/Temporary
most_to_run_again=3

# What the failed tests printed, after all the others' lines.
print_failures() {
    local name
    while IFS=: read -r _ name; do
        awk -v start="Testing: $name" 'substr($0, length($0) - length(start) + 1) == start { shown = 1 }
                                       shown; / end time: / { shown = 0 }' "$logs/LastTest.log"
    done <"$logs/LastTestsFailed.log"
}

scripts/install-dependencies.sh --tests
cmake --preset "$preset" -DSCENEUTILS_BUILD_TESTS=ON -DSCENEUTILS_BUILD_BENCHMARKS=ON -DSCENEUTILS_WARNINGS_AS_ERRORS=ON
cmake --build --preset "$preset"
rm -f "$logs/LastTestsFailed.log"
ctest --preset "$preset" && exit 0

# A picture test was seen to fail under the leak checker once in a thousand runs, and then no more. So a few tests may
# run again, and are named whatever comes of it; what fails twice is at fault.
print_failures
[ "$preset" != tsan ] || exit 1  # a race that shows once is one
failed=$(cat "$logs/LastTestsFailed.log")
[ "$(wc -l <<<"$failed")" -le "$most_to_run_again" ] || exit 1
printf 'test: failed, and run once more:\n%s\n' "$failed"
ctest --preset "$preset" --rerun-failed
printf 'test: failed at first and passed when run again:\n%s\n' "$failed"
