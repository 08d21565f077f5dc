#!/usr/bin/env python3
"""Runs all benchmarks and makes one table of them; compares two such tables. See docs/performance.md."""

import argparse
import os
import sys
import time
from decimal import Decimal

sys.dont_write_bytecode = True  # this folder holds sources only

from figures import comparison, machine, programs, tables
from figures.report import NUMBER, Figure, NotWritten, Report, Unreadable, check_place, read, write

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

DONE = 0
USAGE = 1
INPUT_UNREADABLE = 2
HAS_GROWN = 3
OUTPUT_NOT_WRITTEN = 4
DONE_IN_PART = 5
INTERRUPTED = 130


class Parser(argparse.ArgumentParser):
    def error(self, message):
        self.exit(USAGE, f"{self.prog}: {message} (see --help)\n")


def tell(text):
    print(f"run_all: {text}", file=sys.stderr, flush=True)


def percent(text):
    if not NUMBER.fullmatch(text):
        raise argparse.ArgumentTypeError(f"'{text}' is no percentage")
    return Decimal(text)


def count(text):
    if not text.isdecimal() or int(text) == 0:
        raise argparse.ArgumentTypeError(f"'{text}' is no number from 1 on")
    return int(text)


def options_for(program, arguments):
    options = list(program.quick) if arguments.quick else []
    if arguments.large and program.has_large:
        options.append("--large")
    repeats = arguments.repeats or (1 if arguments.quick else None)
    return options + (["--repeats", str(repeats)] if repeats else [])


def head_of(chosen, arguments):
    head = machine.head(arguments.build, any(program.draws for program in chosen))
    head["sizes"] = "small" if arguments.quick else "large" if arguments.large else "usual"
    head["repeats"] = str(arguments.repeats or (1 if arguments.quick else "as usual"))
    return head


def run(arguments):
    if arguments.csv:
        check_place(arguments.csv)
    chosen = [program for program in programs.PROGRAMS if not arguments.only or program.name in arguments.only]
    head = head_of(chosen, arguments)
    figures, status = [], DONE
    for program in chosen:
        start = time.monotonic()
        try:
            figures += programs.measure(program, arguments.build, options_for(program, arguments))
            tell(f"{program.name}: {time.monotonic() - start:.0f} s")
        except programs.Failed as error:
            tell(error)
            status = DONE_IN_PART
    if not figures:
        tell("there are no figures; build the benchmarks: docs/performance.md tells how")
        return INPUT_UNREADABLE
    sys.stdout.write(tables.as_text(Figure._fields, figures))
    if arguments.csv:
        write(Report(head, figures), arguments.csv)
    return status


def describe(name, report):
    head = report.head
    return f"{name}: version {head['library']}, commit {head['commit']}, tree {head['tree']}\n"


def compare(arguments):
    old, new = read(arguments.old), read(arguments.new)
    pairs = comparison.pairs_of(old, new)
    if not pairs:
        raise Unreadable(f"{arguments.old} and {arguments.new}: have no figure in common")
    sys.stdout.write(describe(arguments.old, old) + describe(arguments.new, new) + "\n")
    differences = comparison.differences(pairs)
    sys.stdout.write(tables.as_text(comparison.COLUMNS, differences) if differences else "No figure differs.\n")
    for name, report, other in ((arguments.old, old, new), (arguments.new, new, old)):
        for figure in comparison.only_in(report, other):
            print(f"only in {name}: {figure}")
    sys.stdout.flush()

    for key in comparison.surroundings_that_differ(old, new):
        tell(f"warning: {key} differs: {old.head[key]}, {new.head[key]}")
    is_one_machine = comparison.are_of_one_machine(old, new)
    if not is_one_machine:
        tell("warning: these are two machines: only ratios are judged")
    growths = comparison.growths(pairs, arguments.allow, is_one_machine)
    for line in growths:
        tell(line)
    return HAS_GROWN if growths else DONE


def show(arguments):
    report = read(arguments.csv)
    if arguments.into:
        tables.fill_page(arguments.into, report)
    elif arguments.markdown:
        sys.stdout.write(tables.for_page(report))
    else:
        sys.stdout.write(tables.as_text(Figure._fields, report.figures))
    return DONE


def make_parser():
    parser = Parser(prog="run_all", description="Runs all benchmarks and prints one table of their figures.")
    parser.set_defaults(run=run)
    names = [program.name for program in programs.PROGRAMS]
    parser.add_argument(
        "--only", action="append", choices=names, metavar="NAME", help=", ".join(names) + "; again for more"
    )
    sizes = parser.add_mutually_exclusive_group()
    sizes.add_argument("--quick", action="store_true", help="small sizes, once each: to try it, not to compare")
    sizes.add_argument("--large", action="store_true", help="convert 10000 tiles as well")
    parser.add_argument(
        "--repeats", type=count, metavar="N", help="rounds, of which medians are taken (each program has its number)"
    )
    parser.add_argument("--csv", metavar="FILE", help="also write the figures, the machine and the versions")
    build = os.path.join(SOURCE, "build", "release")
    parser.add_argument("--build", default=build, metavar="TREE", help="where they are built (build/release)")

    commands = parser.add_subparsers(title="commands", metavar="", parser_class=Parser)
    command = commands.add_parser("compare", help="compare two files that --csv wrote")
    command.set_defaults(run=compare)
    command.add_argument("old", metavar="OLD.csv")
    command.add_argument("new", metavar="NEW.csv")
    command.add_argument(
        "--allow", type=percent, default=Decimal(15), metavar="PERCENT", help="growth that is no fault (15)"
    )

    command = commands.add_parser("table", help="print a file that --csv wrote")
    command.set_defaults(run=show)
    command.add_argument("csv", metavar="FILE.csv")
    command.add_argument("--markdown", action="store_true", help="as docs/performance.md has it")
    command.add_argument("--into", metavar="PAGE", help="put it into this page")
    return parser


def main():
    arguments = make_parser().parse_args()
    try:
        return arguments.run(arguments)
    except Unreadable as error:
        tell(error)
        return INPUT_UNREADABLE
    except NotWritten as error:
        tell(error)
        return OUTPUT_NOT_WRITTEN
    except KeyboardInterrupt:
        return INTERRUPTED


if __name__ == "__main__":
    sys.exit(main())
