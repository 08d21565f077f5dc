"""What the benchmarks measured, and where: as a CSV file of two tables, an empty line between them."""

import collections
import csv
import io
import os
import re
import tempfile
from typing import NamedTuple

NUMBER = re.compile(r"\d+(\.\d+)?")
HEAD_COLUMNS = ["key", "value"]
UNKNOWN = "unknown"


class Figure(NamedTuple):
    """A row. Numbers stay as they were printed."""

    benchmark: str
    case: str
    size: str
    measure: str
    figure: str
    unit: str
    ratio: str  # empty if there is nothing to see the figure against
    against: str

    @property
    def name(self):
        return ", ".join(self[:4])


class Report(NamedTuple):
    head: dict  # where they come from: see machine.py
    figures: list


class Unreadable(Exception):
    """What is wrong with a file, in a line."""


class NotWritten(Exception):
    """Why a file is not, in a line."""


def folder_of(path):
    return os.path.dirname(os.path.abspath(path))


def check_place(path):
    """Raises NotWritten if a file cannot be written there."""
    if not os.path.isdir(folder_of(path)):
        raise NotWritten(f"{path}: there is no such folder")
    if os.path.isdir(path):
        raise NotWritten(f"{path}: is a folder")


def write_whole(path, text):
    """Writes beside the file and renames, so that it is never there in part. Raises NotWritten."""
    check_place(path)
    try:
        with tempfile.TemporaryDirectory(prefix=".figures", dir=folder_of(path)) as folder:
            part = os.path.join(folder, "part")
            with open(part, "w", encoding="utf-8", newline="") as file:
                file.write(text)
            os.replace(part, path)
    except OSError as error:
        raise NotWritten(f"{path}: {error.strerror}") from error


def write(report, path):
    text = io.StringIO()
    csv.writer(text, lineterminator="\n").writerows(
        [HEAD_COLUMNS, *report.head.items(), [], Figure._fields, *report.figures]
    )
    write_whole(path, text.getvalue())


def tables_in(path):
    """The tables of a CSV file, which are divided by empty lines, as pairs of the number of a line and its cells."""
    tables = [[]]
    try:
        with open(path, encoding="utf-8", newline="") as file:
            reader = csv.reader(file, strict=True)
            for row in reader:
                if row:
                    tables[-1].append((reader.line_num, row))
                else:
                    tables.append([])
    except OSError as error:
        raise Unreadable(f"{path}: {error.strerror}") from error
    except (UnicodeDecodeError, csv.Error) as error:
        raise Unreadable(f"{path}: is no CSV: {error}") from error
    for table in tables:
        for line, row in table:
            if len(row) != len(table[0][1]):
                raise Unreadable(f"{path}:{line}: has {len(row)} cells under {len(table[0][1])} headings")
    return [table for table in tables if table]


def check_number(place, text):
    if not NUMBER.fullmatch(text):
        raise Unreadable(f"{place}: '{text}' is no number")


def read(path):
    """What write() wrote; what its head does not tell is unknown. Raises Unreadable."""
    tables = tables_in(path)
    if [table[0][1] for table in tables] != [HEAD_COLUMNS, list(Figure._fields)]:
        raise Unreadable(f"{path}: was not written by run_all.py")
    figures = {}
    for line, row in tables[1][1:]:
        figure = Figure(*row)
        check_number(f"{path}:{line}", figure.figure)
        if figure.ratio:
            check_number(f"{path}:{line}", figure.ratio)
        if figure.name in figures:
            raise Unreadable(f"{path}:{line}: is there twice: {figure.name}")
        figures[figure.name] = figure
    head = collections.defaultdict(lambda: UNKNOWN, (row for _, row in tables[0][1:]))
    return Report(head, list(figures.values()))
