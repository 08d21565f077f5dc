"""Two reports against one another."""

from decimal import Decimal

from figures import machine
from figures.report import NUMBER

CHANGE = "change_%"
COLUMNS = ("benchmark", "case", "size", "measure", "old", "new", "unit", CHANGE, "old_ratio", "new_ratio", CHANGE)
SMALLEST_MEMORY_CHANGE = Decimal(1)  # MiB; what pages and allocators do from run to run


def by_name(report):
    return {figure.name: figure for figure in report.figures}


def pairs_of(old, new):
    """What both have."""
    others = by_name(new)
    return [(figure, others[figure.name]) for figure in old.figures if figure.name in others]


def only_in(report, other):
    others = by_name(other)
    return [figure.name for figure in report.figures if figure.name not in others]


def change(old, new):
    """In percent, as a text; nothing if it cannot be told."""
    if not NUMBER.fullmatch(old) or not NUMBER.fullmatch(new) or Decimal(old) == 0:
        return ""
    return f"{(Decimal(new) / Decimal(old) - 1) * 100:+.1f}"


def differences(pairs):
    """Rows for COLUMNS."""
    rows = []
    for old, new in pairs:
        if (old.figure, old.ratio) == (new.figure, new.ratio):
            continue
        figures = (old.figure, new.figure, old.unit, change(old.figure, new.figure))
        rows.append((*old[:4], *figures, old.ratio, new.ratio, change(old.ratio, new.ratio)))
    return rows


def surroundings_that_differ(old, new):
    return [key for key in machine.SURROUNDINGS if old.head[key] != new.head[key]]


def are_of_one_machine(old, new):
    return all(old.head[key] == new.head[key] for key in ("cpu", "cores"))


def has_grown(old, new, allowed):
    return Decimal(new) > Decimal(old) * (1 + allowed / 100)


def growth(what, old, new, unit, allowed):
    percent = change(old, new)
    by = f", by {percent[1:]} %" if percent else ""
    return f"{what} has grown from {old} to {new}{unit}{by}; {allowed} % is allowed"


def figure_has_grown(old, new, allowed):
    is_noise = old.unit == "MiB" and Decimal(new.figure) - Decimal(old.figure) < SMALLEST_MEMORY_CHANGE
    return not is_noise and has_grown(old.figure, new.figure, allowed)


def ratio_has_grown(old, new, allowed):
    is_the_same = old.ratio and new.ratio and old.against == new.against
    return is_the_same and has_grown(old.ratio, new.ratio, allowed)


def growths(pairs, allowed, judges_figures):
    """A line for each figure and each ratio that has grown by more percent than allowed."""
    lines = []
    for old, new in pairs:
        if old.measure.startswith("clock"):
            continue
        if judges_figures and figure_has_grown(old, new, allowed):
            lines.append(growth(f"{old.name}:", old.figure, new.figure, " " + old.unit, allowed))
        if ratio_has_grown(old, new, allowed):
            lines.append(growth(f"{old.name}: the ratio to {old.against}", old.ratio, new.ratio, "", allowed))
    return lines
