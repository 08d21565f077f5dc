#!/usr/bin/env bash
# Counts which lines of the project the tests run. Prints a table of folders and files, and writes pages that show each
# line: build/coverage/lines/index.html. Fails if a test does, or if less of the library is run than has to be.
#
#     scripts/coverage.sh [PROGRAM...]      PROGRAM: of tests; default: all that are named below. For the library
#                                           sceneutils_tests alone will do.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

library=src/sceneutils
least=95 # per cent of the library's lines
build=build/coverage
report=$build/lines
shards=2
programs=("$@")
[ $# -gt 0 ] || programs=(veltrane_logging_tests sceneutils_tests sceneutils_render_tests sceneutils_cli_tests)

command -v gcovr >/dev/null || { echo "coverage: gcovr is missing: apt-get install gcovr" >&2; exit 1; }

# run_tests PROGRAM: in several processes at a time, each with a part of the tests.
run_tests() {
    local shard failed=0 log=$build/$1 program processes=()
    program=$(find $build/tests -name "$1" -type f -executable)
    for ((shard = 0; shard < shards; ++shard)); do
        GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=$shard "$program" --gtest_brief=1 >"$log.$shard.log" 2>&1 &
        processes+=($!)
    done
    for shard in "${!processes[@]}"; do
        wait "${processes[$shard]}" && continue
        echo "coverage: failed, see $log.$shard.log:" >&2
        { grep '^\[  FAILED  \] .*)$' "$log.$shard.log" || tail -n 5 "$log.$shard.log"; } >&2
        failed=1
    done
    return $failed
}

# Of each folder, then of each file: the lines that are run, all lines, per cent.
print_table() {
    awk -F, '
        function print_row(name, run, all) { printf "%-64s %6d %6d %6.1f\n", name, run, all, all ? 100 * run / all : 100 }
        BEGIN { printf "%-64s %6s %6s %6s\n", "", "run", "lines", "%" }
        FNR == 1 { for (i = 1; i <= count; ++i) print_row(folders[i], run[folders[i]], all[folders[i]]); if (count) print ""; next }
        NR > FNR { print_row($1, $3, $2); next }
        {
            folder = $1
            sub(/\/[^\/]*$/, "", folder)
            if (!(folder in all)) folders[++count] = folder
            run[folder] += $3
            all[folder] += $2
        }
    ' "$report/lines.csv" "$report/lines.csv"
}

# check_library: whether enough of it is run.
check_library() {
    awk -F, -v folder="$library/" -v least=$least '
        index($1, folder) == 1 { run += $3; all += $2 }
        END {
            printf "%s: %d of %d lines are run, %.1f %%, and it has to be %d %%\n", folder, run, all, 100 * run / all, least
            exit 100 * run < least * all
        }
    ' "$report/lines.csv"
}

scripts/install-dependencies.sh --tests
cmake --preset coverage -DSCENEUTILS_BUILD_TESTS=ON
cmake --build --preset coverage --target "${programs[@]}"
find $build -name '*.gcda' -delete
failed=0
for program in "${programs[@]}"; do run_tests "$program" || failed=1; done

rm -rf $report
mkdir -p $report
gcovr --root . -j $shards --filter '(src|include|logging|offscreen|apps)/' --csv $report/lines.csv \
    --html-details $report/index.html --html-title "Lines that the tests run" $build
print_table
check_library || failed=1
exit $failed
