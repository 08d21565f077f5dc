#!/bin/sh
# Builds the consumer as a user without CMake would, and runs it.
# Usage: build_with_pkg_config.sh MAIN_CPP PROGRAM; with CXX, CXXFLAGS, LDFLAGS and PKG_CONFIG_PATH from the environment.
set -eu

main_cpp=$1
program=$2

flags=$(pkg-config --cflags --libs veltrane_sceneutils)
library_dir=$(pkg-config --variable=libdir veltrane_sceneutils)
mkdir -p "$(dirname "$program")"

set -x
# The flags are lists of words.
# shellcheck disable=SC2086
$CXX -std=c++17 ${CXXFLAGS:-} "$main_cpp" -o "$program" $flags ${LDFLAGS:-} "-Wl,-rpath,$library_dir"
"$program"
