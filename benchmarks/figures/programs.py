"""The benchmark programs, and what of their tables is a figure."""

import os
import string
import subprocess
import tempfile
from decimal import Decimal
from typing import NamedTuple

from figures.report import NUMBER, Figure, Unreadable, tables_in


class Column(NamedTuple):
    """A measure that begins with "clock" is not judged in comparisons."""

    measure: str
    name: str  # or several, to be added up: "cull_ms + draw_ms"
    unit: str
    ratio: str = ""  # the column that has it
    against: str = ""

    def names(self):
        return self.name.split(" + ")

    def figure(self, row):
        cells = [row[name] for name in self.names()]
        return str(sum(map(Decimal, cells))) if all(map(NUMBER.fullmatch, cells)) else " + ".join(cells)


class Rows(NamedTuple):
    """The rows of a table; names of its columns stand in braces."""

    case: str
    size: str
    columns: tuple
    peers: dict = {}  # which case others are seen against, if no column tells

    def headings(self):
        names = {field for _, field, _, _ in string.Formatter().parse(self.case + self.size) if field}
        for column in self.columns:
            names.update(column.names(), [column.ratio] if column.ratio else [])
        return names


class Program(NamedTuple):
    name: str  # of the program, without "_benchmark"
    quick: list  # options for small sizes
    rows: tuple
    has_large: bool = False  # whether it takes --large
    draws: bool = False


FLOOR = {"library": "floor", "tool": "floor"}
BARE = {
    "stateSetVisitor": "bareTraversalOfGraphs",
    "forceTextureFilter": "bareTraversalOfGraphs",
    "calculateBoundingBox": "bareTraversalOfModels",
    "findNodeVisitor": "bareTraversalOfModels",
}
LOOPS = {
    "bubbleUpGeodes": "plainLoopOverGeodes",
    "createMatrixForGeodes": "plainLoopOverGeodes",
    "bubbleUpOneGeode": "plainLoopOverOneGeode",
}

PROGRAMS = (
    Program("conversion", ["--tiles", "10"], (
        Rows("{way}", "{tiles} tiles", (
            Column("processor time", "ms/tile", "ms/tile"), Column("memory", "peak_MiB", "MiB")), FLOOR),
    ), has_large=True),
    Program("jobs", ["--tiles", "10"], (
        Rows("{way}", "{tiles} tiles", (
            Column("processor time", "cpu_s", "s", "cpu/loop", "osgconv loop"),
            Column("clock", "wall_s", "s", "wall/loop", "osgconv loop"),
            Column("memory", "peak_MiB", "MiB"))),
    ), has_large=True),
    Program("shader", ["--nodes", "1000"], (
        Rows("{shape}, {state}, {run}", "{nodes} nodes", (
            Column("processor time", "ours_ms", "ms", "ours/visitor", "osgUtil::ShaderGenVisitor"),)),
    )),
    Program("batch", ["--drawables", "1000", "--frames", "5"], (
        Rows("{way}", "{drawables} drawables", (
            Column("processor time", "ms", "ms", "of ALL", "optimizer ALL"), Column("memory", "peak_MiB", "MiB"))),
        Rows("{way}", "{drawables} drawables", (
            Column("frame, all in sight", "whole: cull_ms + whole: draw_ms", "ms", "whole: of before", "before"),
            Column("frame, street", "street: cull_ms + street: draw_ms", "ms", "street: of before", "before"))),
    ), draws=True),
    Program("visitor", ["--benchmark_filter=:1000$", "--benchmark_min_time=0.02"], (
        Rows("{benchmark}", "{size} {of}", (Column("processor time", "us", "us"),), BARE),
    )),
    Program("transform", ["--benchmark_filter=:1000$", "--benchmark_min_time=0.02"], (
        Rows("{benchmark}", "{size} {of}", (Column("processor time", "us", "us"),), LOOPS),
    )),
    Program("debug_geometry", ["--lines", "10000"], (
        Rows("adding lines", "{lines} lines", (
            Column("processor time", "ours_ms", "ms", "ours/floor", "lists filled by hand"),)),
        Rows("one more line after a frame", "{lines} lines", (Column("processor time", "one_more_ns", "ns"),)),
        Rows("frame", "{lines} lines", (Column("processor time", "frame_ms", "ms"),)),
        Rows("frame after adding", "{lines} lines", (Column("processor time", "frame_after_ms", "ms"),)),
    ), draws=True),
    Program("frame", ["--sample-tiles", "4", "--drawables", "1000", "--tiles", "4", "--frames", "5"], (
        Rows("{way}, {view}", "{scene}", (Column("frame", "cull_ms + draw_ms", "ms", "of before", "before"),)),
        Rows("{way}, {view}", "{scene}", (Column("frame", "cull_ms + draw_ms", "ms", "of fixed", "fixed function"),)),
        Rows("{way}, {view}", "{tiles} tiles", (
            Column("clock of the first picture", "first_ms", "ms", "first/one", "one file"),
            Column("processor time of the first picture", "first_cpu_ms", "ms"),
            Column("memory", "rest_MiB", "MiB", "rest/one", "one file"))),
    ), draws=True),
)


class Failed(Exception):
    """Why there are no figures of a program, in a line."""


def path_of(program, build):
    return os.path.join(build, "benchmarks", program.name + "_benchmark")


def ratio_of(figure, peer):
    return f"{float(figure) / float(peer):.3f}" if float(peer) > 0 else ""


def with_peers(figures, peers):
    """Ratios to figures of other cases."""
    known = {(figure.case, figure.size, figure.measure): figure.figure for figure in figures}
    result = []
    for figure in figures:
        against = peers.get(figure.case, "")
        peer = known.get((against, figure.size, figure.measure))
        ratio = ratio_of(figure.figure, peer) if peer else ""
        result.append(figure._replace(ratio=ratio, against=against) if ratio else figure)
    return result


def figures_in(program, rows, table):
    """@param table as dictionaries by columns"""
    figures = []
    for row in table:
        for column in rows.columns:
            ratio = row.get(column.ratio, "")
            has_ratio = NUMBER.fullmatch(ratio)
            figure = Figure(
                program.name,
                rows.case.format_map(row),
                rows.size.format_map(row),
                column.measure,
                column.figure(row),
                column.unit,
                ratio if has_ratio else "",
                column.against if has_ratio else "",
            )
            if not NUMBER.fullmatch(figure.figure):
                raise Failed(f"{program.name}: '{figure.figure}' is no figure: {figure.name}")
            figures.append(figure)
    return with_peers(figures, rows.peers)


def read_figures(program, path):
    try:
        tables = [[row for _, row in table] for table in tables_in(path)]
    except Unreadable as error:
        raise Failed(f"{program.name}: {error}") from error
    figures = []
    for rows in program.rows:
        fitting = [table for table in tables if rows.headings() <= set(table[0])]
        if not fitting:
            raise Failed(f"{program.name}: no table has the columns {', '.join(sorted(rows.headings()))}")
        columns, *lines = fitting[0]
        figures += figures_in(program, rows, [dict(zip(columns, line)) for line in lines])
    return figures


def measure(program, build, options):
    """Runs a program and returns its figures. Raises Failed."""
    with tempfile.TemporaryDirectory() as folder:
        csv = os.path.join(folder, "figures.csv")
        command = [path_of(program, build), *options, "--csv", csv]
        try:
            done = subprocess.run(
                command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace", check=False
            )
        except OSError as error:
            raise Failed(f"{program.name}: {command[0]}: {error.strerror}") from error
        if done.returncode != 0:
            last_line = (done.stdout.strip().splitlines() or ["it printed nothing"])[-1]
            raise Failed(f"{program.name}: ended with status {done.returncode}: {last_line}")
        return read_figures(program, csv)
