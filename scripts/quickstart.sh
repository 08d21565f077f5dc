#!/usr/bin/env bash
# Installs what is missing, builds, makes a sample database, converts it and says how to look at it.
#
#     scripts/quickstart.sh [FOLDER]      FOLDER: where the databases go, a new or empty one
#                                         (default: build/quickstart, which is emptied first)
set -euo pipefail
folder=$(realpath --canonicalize-missing "${1:-$(dirname "${BASH_SOURCE[0]}")/../build/quickstart}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."
if [ $# -eq 0 ]; then rm -rf build/quickstart; fi

scripts/install-dependencies.sh
cmake --preset release >/dev/null
cmake --build --preset release --target sceneutils
tool=build/release/apps/sceneutils/sceneutils

echo "== A sample OpenFlight database"
"$tool" sample "$folder/openflight" --tiles 16 --levels 3
echo "== Converted into a paged database"
"$tool" convert "$folder/openflight/master.flt" "$folder/paged/world.ive" --recurse

cat <<TEXT
== What there is now
$folder/paged is a database by itself: world.ive, one .ive file for each model in the folders that the models had, and
the textures. Move or copy the folder as you like. A picture of it, what is in it, and (package openscenegraph) a flight:

    $PWD/$tool render $folder/paged/world.ive -o world.png
    $PWD/$tool info $folder/paged/world.ive --recurse
    osgviewer $folder/paged/world.ive
TEXT
