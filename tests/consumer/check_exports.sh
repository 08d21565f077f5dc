#!/bin/sh
# Checks that the shared library offers what its public headers promise and nothing else of its own.
# Usage: check_exports.sh NM LIBRARY HEADER_DIRECTORY
set -eu

nm=$1
library=$2
header_dir=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The classes and functions that the headers export.
sed -nE \
    -e 's/^(class|struct) SCENEUTILS_EXPORT ([A-Za-z_0-9]+).*/\2/p' \
    -e 's/^SCENEUTILS_EXPORT [^(]*[ *&]([A-Za-z_0-9]+)\(.*/\1/p' \
    "$header_dir"/*.h | sort -u >"$work/promised"

# The defined symbols, less their first words (address, type, "vtable for" and the like).
"$nm" -DC --defined-only "$library" >"$work/symbols"
sed -E \
    -e 's/^[0-9a-f]+ //; s/^[A-Za-z] //' \
    -e 's/^(vtable|VTT|typeinfo name|typeinfo|guard variable|(non-)?virtual thunk|covariant return thunk) (for|to) //' \
    -e 's/^construction vtable for .*-in-//' \
    "$work/symbols" >"$work/names"

# Whose members they are, as far as the class or free function. Templates of other libraries are offered by accident
# when they are instantiated for a type of ours; that type has to be a public one then.
{
    sed -nE 's/^(veltrane::[A-Za-z_0-9:]+).*/\1/p' "$work/names"
    grep -v '^veltrane::' "$work/names" | grep -oE 'veltrane::[A-Za-z_0-9:]+' || true
} | sed -E 's/^veltrane::sceneutils::([A-Za-z_0-9]+).*/\1/' | sort -u >"$work/offered"

# Functions and data outside of the namespace; the linker and the sanitizers begin theirs with an underscore.
grep -E '^[0-9a-f]+ [TDBR] ' "$work/symbols" | grep -v 'veltrane::' | sed -E 's/^[0-9a-f]+ . //' | grep -v '^_' \
    >>"$work/offered" || true
sort -u -o "$work/offered" "$work/offered"

status=0
if [ ! -s "$work/promised" ]; then
    echo "no exported class or function was found in $header_dir"
    status=1
fi
if comm -13 "$work/promised" "$work/offered" | grep . >"$work/extra"; then
    echo "exported by the library, but not declared so in a public header:"
    sed 's/^/    /' "$work/extra"
    status=1
fi
if comm -23 "$work/promised" "$work/offered" | grep . >"$work/missing"; then
    echo "declared in a public header, but not exported by the library:"
    sed 's/^/    /' "$work/missing"
    status=1
fi
exit $status
