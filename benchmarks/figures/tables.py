"""Tables to be read: as text and, for a page, as Markdown."""

import re

from figures.report import Figure, Unreadable, write_whole

PAGE_PART = re.compile(r"(?<=<!-- figures -->\n).*(?=<!-- end of figures -->)", re.DOTALL)


def is_numeric(cells):
    return all(re.fullmatch(r"[+-]?\d+(\.\d+)?", cell) for cell in cells if cell)


def as_text(columns, rows):
    """Columns set below one another, numbers to the right."""
    widths = [max(map(len, cells)) for cells in zip(columns, *rows)]
    justify = [str.rjust if is_numeric(cells[1:]) else str.ljust for cells in zip(columns, *rows)]
    lines = []
    for row in [columns, *rows]:
        cells = [justify_cell(cell, width) for justify_cell, cell, width in zip(justify, row, widths)]
        lines.append("  ".join(cells).rstrip() + "\n")
    return "".join(lines)


def as_markdown(columns, rows):
    rules = ["---:" if is_numeric(cells[1:]) else "---" for cells in zip(columns, *rows)]
    lines = [" | ".join(columns), " | ".join(rules), *map(" | ".join, rows)]
    return "".join(f"| {line} |\n" for line in lines)


def largest_with_ratio(figures):
    """Of each case the largest size of a kind, which is the last one, if it is seen against another one."""
    largest = {}
    for figure in figures:
        is_itself = f"{figure.case}, ".startswith(f"{figure.against}, ")  # perhaps from somewhere: "before, street"
        if figure.ratio and not is_itself:
            largest[figure.benchmark, figure.case, re.sub(r"\d+", "", figure.size), figure.measure] = figure
    return list(largest.values())


def for_page(report):
    """What docs/performance.md says of a run."""
    where = as_markdown(("measured with", ""), list(report.head.items()))
    return where + "\n" + as_markdown(Figure._fields, largest_with_ratio(report.figures))


def fill_page(path, report):
    """Puts the figures in place of those that the page has. Raises Unreadable."""
    try:
        with open(path, encoding="utf-8") as file:
            page = file.read()
    except OSError as error:
        raise Unreadable(f"{path}: {error.strerror}") from error
    if not PAGE_PART.search(page):
        raise Unreadable(f"{path}: has no part for figures")
    part = "\n" + for_page(report) + "\n"
    write_whole(path, PAGE_PART.sub(lambda _: part, page, count=1))
