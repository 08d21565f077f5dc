#!/usr/bin/env bash
# Installs what is missing, builds with warnings as errors and runs every test.
#
#     scripts/test.sh [PRESET]      PRESET: release (default), debug or asan
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=${1:-release}

scripts/install-dependencies.sh
cmake --preset "$preset" -DSCENEUTILS_BUILD_TESTS=ON -DSCENEUTILS_BUILD_BENCHMARKS=ON -DSCENEUTILS_WARNINGS_AS_ERRORS=ON
cmake --build --preset "$preset"
ctest --preset "$preset"
