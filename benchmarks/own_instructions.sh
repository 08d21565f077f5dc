#!/bin/sh
# Counts instructions instead of time: how many of a library conversion are spent below our own code and not below the
# calls of OpenSceneGraph that it makes. Repeatable whatever else the machine does.
#
#     benchmarks/own_instructions.sh [BUILD_FOLDER [TILES]]
set -eu
program=${1:-build/release}/benchmarks/conversion_benchmark
tiles=${2:-100}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$program" --sample "$folder/database" --tiles "$tiles"
valgrind --tool=callgrind --callgrind-out-file="$folder/counts" --collect-atstart=no \
    --toggle-collect='veltrane::sceneutils::benchmarks::convertWithLibrary*' \
    "$program" --convert "$folder/database/master.flt" >"$folder/log" 2>&1 || { cat "$folder/log"; exit 1; }
callgrind_annotate --inclusive=yes --threshold=100 "$folder/counts" >"$folder/inclusive"
callgrind_annotate --threshold=100 "$folder/counts" >"$folder/exclusive"

# The optimiser's entry has a namesake in the program that measures, which calls it; both are counted under the one name.
awk -v tiles="$tiles" '
    function count() { text = $1; gsub(",", "", text); return text + 0 }
    FILENAME ~ /exclusive$/ {
        if (/\[.*libveltrane_sceneutils[^\/]*\]$/) inLibrary += count()
        next
    }
    /PROGRAM TOTALS/ { total = count() }
    /:osgDB::readRefNodeFile\(/ { reading = count() }
    /:osgDB::writeNodeFile\(/ { writing = count() }
    /:osgUtil::Optimizer::optimize\(osg::Node\*, unsigned int\)/ { optimizing = count() / 2 }
    /:osgUtil::SmoothingVisitor::apply\(osg::Geometry&\)/ { smoothing = count() }
    /:veltrane::sceneutils::ShaderGenerator::process\(osg::Node\*, osg::Group\*/ { shading = count() }
    function line(name, n) { printf "%-44s %15.0f %8.2f %%\n", name, n, 100 * n / total }
    END {
        line("all of it (" tiles " tiles)", total)
        line("reading", reading)
        line("optimizing", optimizing)
        line("smoothing", smoothing)
        line("writing", writing)
        own = total - reading - optimizing - smoothing - writing
        line("below our code and in none of these", own)
        line("  shader generation", shading)
        line("  the rest, freeing of graphs included", own - shading)
        line("instructions of our library itself", inLibrary)
    }' "$folder/exclusive" "$folder/inclusive"
