#!/usr/bin/env bash
# run-examples.sh SCENEUTILS EXAMPLES FOLDER: runs the programs of examples/, built in EXAMPLES, on a sample database that
# is made in FOLDER, and compares what they print.
set -euo pipefail
sceneutils=$1
examples=$2
folder=$3

rm -rf "$folder"
mkdir -p "$folder"
cd "$folder"
"$sceneutils" sample database --tiles 4 --levels 2 >/dev/null
objects=database/tiles/r01/c01/objects/objects_01_01.flt

# expect OUTPUT EXAMPLE ARGUMENTS...
expect() {
    local program=${2//-/_} printed
    printed=$("$examples/$2/$program" "${@:3}" 2>"$program.log") || { cat "$program.log" >&2; echo "$2 failed" >&2; exit 1; }
    [ "$printed" = "$1" ] && return
    echo "$2 prints '$printed', not '$1'" >&2
    exit 1
}

# expect_count COUNT TEXT FILE: as many lines of the file hold the text.
expect_count() {
    local count
    count=$(grep -cF "$2" "$3" || true)
    [ "$count" = "$1" ] && return
    echo "$3 holds '$2' $count times, not $1" >&2
    exit 1
}

expect "database/world.ive shows a world of radius 1737.3" page-database database/master.flt database/world.ive
"$sceneutils" verify database/world.ive >/dev/null

expect "$(printf 'shader_t0_lighting_fog\nshader_t_lighting_fog')" shade-model "$objects" shaded.osgt
expect_count 5 'osg::Program {' shaded.osgt  # one definition of each, and uses

expect "32 drawables before, 4 after" optimise-model "$objects" optimised.osgt
expect_count 4 'osg::Geometry {' optimised.osgt

expect "marked.osgt shows where database/world.ive switches" mark-lods database/world.ive marked.osgt
expect_count 4 'osg::Geometry {' marked.osgt  # the boxes: all else is paged

expect "centre 771 from the origin, 0 below the transform" move-origin "$objects" moved.osgt 100
expect_count 9 'osg::MatrixTransform {' moved.osgt  # eight of the model, and the one above it
