#!/usr/bin/env bash
# Makes the Debian packages of a build, unpacks them into an empty root and uses what lies there: a program is built
# against the library, and a database is converted by the tool.
#
#     scripts/test-packages.sh [BUILD]      BUILD: a folder that is built (default: build/package)
set -euo pipefail
project=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
build=$(realpath "${1:-$project/build/package}")
work=$build/packages-test
root=$work/root

fail() { echo "test-packages: $*" >&2; exit 1; }

# run COMMAND...: tells what it printed only if it fails.
run() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "failed: $*"; }; }

# expect_in TEXT WORDS: the words stand in the text.
expect_in() { [[ $1 == *"$2"* ]] || fail "there is no '$2' in '$1'"; }

make_packages() {
    run cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/packages"
    local package
    for package in sceneutils libveltrane-sceneutils0 libveltrane-sceneutils-dev libveltrane-logging0 \
        libveltrane-logging-dev; do
        dpkg-deb -x "$work/packages/${package}"_*.deb "$root"
        run gzip --test "$root/usr/share/doc/$package/"changelog{,.Debian}.gz
        [ -s "$root/usr/share/doc/$package/copyright" ] || fail "$package has no copyright file"
    done
    [ "$(find "$work/packages" -maxdepth 1 -name '*.deb' | wc -l)" = 5 ] || fail "there are other packages than the five"
}

# field PACKAGE FIELD
field() { dpkg-deb -f "$work/packages/$1"_*.deb "$2"; }

check_fields() {
    local version
    version=$(field sceneutils Version)
    expect_in "$(field sceneutils Depends)" "libveltrane-sceneutils0 (= $version)"
    expect_in "$(field sceneutils Depends)" libopenscenegraph
    expect_in "$(field sceneutils Recommends)" ninja-build
    expect_in "$(field libveltrane-sceneutils0 Depends)" "libveltrane-logging0 (= $version)"
    expect_in "$(field libveltrane-sceneutils-dev Depends)" "libveltrane-sceneutils0 (= $version)"
    expect_in "$(field libveltrane-sceneutils-dev Depends)" "libveltrane-logging-dev (= $version)"
    expect_in "$(field libveltrane-sceneutils-dev Depends)" libopenscenegraph-dev
    expect_in "$(field libveltrane-logging-dev Depends)" liblog4cpp5-dev
    local name
    for name in sceneutils logging; do
        expect_in "$(dpkg-deb --info "$work/packages/libveltrane-${name}0"_*.deb shlibs)" \
            "libveltrane_$name 0 libveltrane-${name}0 (>= $version)"
        expect_in "$(dpkg-deb --info "$work/packages/libveltrane-${name}0"_*.deb triggers)" ldconfig
    done
}

# The files by which the packages of a library differ: a program needs the one, a compiler the other.
check_division() {
    local name listed
    for name in sceneutils logging; do
        listed=$(dpkg-deb --contents "$work/packages/libveltrane-${name}0"_*.deb)
        expect_in "$listed" "libveltrane_$name.so.0 ->"
        [[ $listed != *"libveltrane_$name.so ->"* ]] || fail "libveltrane-${name}0 has the compiler's link"
        [[ $listed != */usr/include/* ]] || fail "libveltrane-${name}0 has headers"
        expect_in "$(dpkg-deb --contents "$work/packages/libveltrane-${name}-dev"_*.deb)" "libveltrane_$name.so ->"
    done
}

check_files() {
    run gzip --test "$root/usr/share/man/man1/"sceneutils{,-convert,-verify}.1.gz
    run bash -n "$root/usr/share/bash-completion/completions/sceneutils"
    [ -s "$root/usr/share/zsh/vendor-completions/_sceneutils" ] || fail "there is no completion for zsh"
    [ ! -e "$root/usr/share/zsh/site-functions" ] || fail "Debian's zsh does not look into site-functions"
    local here
    here=$(grep -rlF "$build" "$root" || true)
    [ -z "$here" ] || fail "these name the folder of the build: $here"
}

# The program finds the library by CMAKE_PREFIX_PATH alone.
build_consumer() {
    run cmake -S "$project/tests/consumer" -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$root/usr" \
        -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_CXX_COMPILER_LAUNCHER="$(command -v ccache || true)"
    run cmake --build "$work/consumer" --parallel 2
    expect_in "$(grep veltrane_sceneutils_DIR "$work/consumer/CMakeCache.txt")" "=$root/usr/lib/"
    run "$work/consumer/consumer"
}

# expect_loaded PROGRAM LIBRARY: the program takes the library from the root.
expect_loaded() {
    expect_in "$(ldd "$1")" "$2 => $root/usr/lib/"
}

convert_a_database() {
    run sceneutils sample "$work/openflight" --tiles 4 --levels 2
    run sceneutils convert "$work/openflight/master.flt" "$work/paged/world.ive" --recurse --jobs 2
    run sceneutils verify "$work/paged/world.ive"
}

rm -rf "$work"
mkdir -p "$root"
make_packages
check_fields
check_division
check_files

libraries=$(dirname "$(find "$root/usr/lib" -name libveltrane_sceneutils.so)")
export LD_LIBRARY_PATH=$libraries PATH=$root/usr/bin:$PATH
expect_loaded "$root/usr/bin/sceneutils" libveltrane_sceneutils.so.0
expect_loaded "$libraries/libveltrane_sceneutils.so.0" libveltrane_logging.so.0
convert_a_database
build_consumer
expect_loaded "$work/consumer/consumer" libveltrane_sceneutils.so.0
rm -rf "$work"
echo "test-packages: the packages of $build work"
