#!/usr/bin/env bash
# Makes the pictures of the pages, from the sample database. Needs the tool and the program sceneutils_picture_scenes (of
# tests/docs) built; look at each picture afterwards.
#
#     scripts/make-pictures.sh [TOOL [FOLDER [SCENES]]]      FOLDER: where they go (docs/pictures), SCENES: that program
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
tool=$(realpath "${1:-build/release/apps/sceneutils/sceneutils}")
pictures=$(realpath "${2:-docs/pictures}")
scenes=$(realpath "${3:-build/release/tests/docs/sceneutils_picture_scenes}")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

street=(--size 480x300 --eye 395,400,85 --look-at 470,512,50)

draw() { # FILE PICTURE OPTION...
    "$tool" render "$1" -o "$pictures/$2" --overwrite "${@:3}"
}

# A graph in OpenSceneGraph's text format, below a static transform that moves it by X and Y.
moved() { # FILE X Y
    sed -n 1,4p "$1"
    printf 'osg::MatrixTransform {\n UniqueID 1000000\n DataVariance STATIC\n Children 1 {\n'
    sed 1,4d "$1"
    printf ' }\n Matrix {\n 1 0 0 0\n 0 1 0 0\n 0 0 1 0\n %s %s 0 1\n }\n}\n' "$2" "$3"
}

"$tool" sample sample --tiles 16 --levels 3 --lod-hints
"$tool" convert sample/master.flt far-seeing/world.ive --recurse
"$tool" convert sample/master.flt near-sighted/world.ive --recurse --max-range 400
tile=sample/tiles/r00/c00/tile_00_00.flt
"$tool" export "$tile" tile.osgt

# A paged database, and what the range does.
draw far-seeing/world.ive paged-10000.png "${street[@]}"
draw near-sighted/world.ive paged-400.png "${street[@]}"
draw far-seeing/world.ive world.png --size 960x400 --eye 395,330,110 --look-at 1200,2500,30

# Fixed functions and generated programs.
draw tile.osgt fixed-functions.png "${street[@]}" --fixed-function
draw tile.osgt generated-programs.png "${street[@]}" --shaders

# Far from the origin: the distance in the vertices, and in a transform above them.
far=(--size 480x300 --eye 6000395,6000400,85 --look-at 6000470,6000512,50 --fixed-function)
moved tile.osgt 6000000 6000000 >moved.osgt
"$tool" optimize moved.osgt vertices.osgb >optimize.txt
"$tool" recentre moved.osgt transform.osgb
draw vertices.osgb far-in-vertices.png "${far[@]}"
draw transform.osgb far-in-transform.png "${far[@]}"

# One filter for all textures.
for filter in NEAREST LINEAR_MIPMAP_LINEAR; do
    sed "s/MIN_FILTER .*/MIN_FILTER $filter/" tile.osgt >filtered.osgt
    draw filtered.osgt "filter-${filter,,}.png" --size 480x300 --eye 395,-200,85 --look-at 470,512,50 --fixed-function
done

# Levels of detail.
"$tool" sample one --tiles 1 --levels 3 --lod-hints
"$tool" lods one/master.flt lods.ive
"$tool" markup lods.ive marked.ive --picture "$pictures/markup.png" --size 1200x700 --overwrite
"$tool" markup lods.ive chains.ive --path kiosks --picture "$pictures/markup-path.png" --size 1200x700 --overwrite

# What the functions of the library make: an overlay, axes, marks, soil.
"$tool" axes axes.osgt --size 12
"$tool" export sample/models/house_0.flt house.osgt
"$scenes" tile.osgt house.osgt axes.osgt .
house=(--size 360x240 --eye=-28,-44,24 --look-at 0,0,6)
mound=(--size 240x160 --eye 38,-36,54 --look-at 46,15,15)
draw wireframe.osgb wireframe.png --size 360x225 --eye=395,-300,240 --look-at 480,512,30
draw axes.osgb axes.png --size 360x240 --eye=-20,-31,20 --look-at 5,5,6
draw marks.osgb marks.png "${house[@]}"
draw clay.osgb soil-clay.png "${mound[@]}"
draw sand.osgb soil-sand.png "${mound[@]}"
