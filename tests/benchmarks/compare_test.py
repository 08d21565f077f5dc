#!/usr/bin/env -S python3 -B
"""run_all compare: what it prints, what it judges and how it ends."""

import unittest

from support import COLUMNS, RunAllTest, csv_of, fields, row

DONE, USAGE, UNREADABLE, HAS_GROWN = 0, 1, 2, 3
NAME = "shader, wide, 10 nodes, processor time"


class CompareTest(RunAllTest):
    def compare(self, old, new, *options):
        self.write("old.csv", old)
        self.write("new.csv", new)
        return self.run_all("compare", "old.csv", "new.csv", *options)

    def compare_rows(self, old, new, *options):
        return self.compare(csv_of(old), csv_of(new), *options)


class Printing(CompareTest):
    def test_figures_that_differ_are_a_table(self):
        done = self.compare(
            csv_of(row("100", "2.00", "peer"), row("7", case="deep")),
            csv_of(row("110", "1.90", "peer"), row("7", case="deep"), commit="89abcde", tree="changed"),
        )
        self.expect(done, DONE, "")
        self.assertEqual(
            done.stdout,
            "old.csv: version 0.1.0, commit 1234567, tree clean\n"
            "new.csv: version 0.1.0, commit 89abcde, tree changed\n"
            "\n"
            "benchmark  case  size      measure         old  new  unit  change_%  old_ratio  new_ratio  change_%\n"
            "shader     wide  10 nodes  processor time  100  110  ms       +10.0       2.00       1.90      -5.0\n",
        )

    def test_two_equal_files_are_said_to_be_equal(self):
        done = self.compare_rows(row(), row())
        self.expect(done, DONE, "")
        self.assertEqual(done.stdout.splitlines()[2:], ["", "No figure differs."])

    def test_figures_of_one_file_only_are_named(self):
        done = self.compare(csv_of(row(), row(case="old")), csv_of(row(), row(case="new"), row(size="20 nodes")))
        self.expect(done, DONE, "")
        self.assertEqual(
            done.stdout.splitlines()[4:],
            [
                "only in old.csv: shader, old, 10 nodes, processor time",
                "only in new.csv: shader, new, 10 nodes, processor time",
                "only in new.csv: shader, wide, 20 nodes, processor time",
            ],
        )

    def test_a_figure_that_was_nothing_has_no_change_in_percent(self):
        done = self.compare_rows(row("0.00"), row("0.00", "1.0", "peer"))
        self.assertEqual(fields(done.stdout.splitlines()[-1])[4:], ["0.00", "0.00", "ms", "1.0"])


class Judging(CompareTest):
    def test_a_figure_that_has_grown_is_a_line(self):
        done = self.compare(csv_of(row("100"), row("5", case="deep")), csv_of(row("115.1"), row("6", case="deep")))
        self.expect(
            done,
            HAS_GROWN,
            f"run_all: {NAME}: has grown from 100 to 115.1 ms, by 15.1 %; 15 % is allowed\n"
            "run_all: shader, deep, 10 nodes, processor time: has grown from 5 to 6 ms, by 20.0 %; 15 % is allowed\n",
        )

    def test_just_what_is_allowed_is_no_growth(self):
        self.expect(self.compare_rows(row("100"), row("115")), DONE, "")
        self.expect(self.compare_rows(row("1.1"), row("1.32"), "--allow", "20"), DONE, "")

    def test_allow_says_how_much(self):
        self.expect(self.compare_rows(row("100"), row("130"), "--allow", "30"), DONE, "")
        self.expect(
            self.compare_rows(row("100"), row("103"), "--allow", "2.5"),
            HAS_GROWN,
            f"run_all: {NAME}: has grown from 100 to 103 ms, by 3.0 %; 2.5 % is allowed\n",
        )

    def test_less_is_no_growth(self):
        self.expect(self.compare_rows(row("100", "2", "peer"), row("10", "1", "peer")), DONE, "")

    def test_a_ratio_that_has_grown_is_a_line(self):
        self.expect(
            self.compare_rows(row("100", "2.00", "peer"), row("100", "2.50", "peer")),
            HAS_GROWN,
            f"run_all: {NAME}: the ratio to peer has grown from 2.00 to 2.50, by 25.0 %; 15 % is allowed\n",
        )

    def test_ratios_to_different_things_are_not_compared(self):
        self.expect(self.compare_rows(row("100", "2.00", "peer"), row("100", "9.00", "other")), DONE, "")

    def test_a_ratio_that_only_one_has_is_not_judged(self):
        self.expect(self.compare_rows(row("100", "2.00", "peer"), row("100", "", "peer")), DONE, "")
        self.expect(self.compare_rows(row("100", "", "peer"), row("100", "2.00", "peer")), DONE, "")

    def test_the_clock_is_not_judged(self):
        for measure in ("clock", "clock of a frame"):
            old, new = row("1", "1", "peer", measure=measure), row("9", "9", "peer", measure=measure)
            self.expect(self.compare_rows(old, new), DONE, "")

    def test_less_than_a_mebibyte_more_is_not_judged(self):
        self.expect(self.compare_rows(row("1.0", unit="MiB"), row("1.9", unit="MiB")), DONE, "")
        self.expect(
            self.compare_rows(row("1.0", unit="MiB"), row("2.0", unit="MiB")),
            HAS_GROWN,
            f"run_all: {NAME}: has grown from 1.0 to 2.0 MiB, by 100.0 %; 15 % is allowed\n",
        )

    def test_growth_from_nothing_has_no_percentage(self):
        self.expect(
            self.compare_rows(row("0.0"), row("0.1")),
            HAS_GROWN,
            f"run_all: {NAME}: has grown from 0.0 to 0.1 ms; 15 % is allowed\n",
        )


class Surroundings(CompareTest):
    def test_what_makes_figures_mean_something_else_is_a_warning(self):
        for key in ("memory", "kernel", "OpenSceneGraph", "compiler", "build", "driver", "sizes", "repeats"):
            old, new = csv_of(row(), **{key: "this"}), csv_of(row(), **{key: "that"})
            self.expect(self.compare(old, new), DONE, f"run_all: warning: {key} differs: this, that\n")

    def test_two_versions_are_no_warning(self):
        new = csv_of(row(), library="9", commit="9", tree="changed", date="9", load="9")
        self.expect(self.compare(csv_of(row()), new), DONE, "")

    def test_of_two_machines_only_ratios_are_judged(self):
        for key in ("cpu", "cores"):
            old = csv_of(row("1", "1", "peer"), **{key: "9"})
            done = self.compare(old, csv_of(row("2", "2", "peer"), **{key: "8"}))
            self.expect(
                done,
                HAS_GROWN,
                f"run_all: warning: {key} differs: 9, 8\n"
                "run_all: warning: these are two machines: only ratios are judged\n"
                f"run_all: {NAME}: the ratio to peer has grown from 1 to 2, by 100.0 %; 15 % is allowed\n",
            )

    def test_what_a_head_does_not_tell_is_unknown(self):
        old = csv_of(row()).replace("kernel,6.1\n", "")
        self.expect(self.compare(old, csv_of(row())), DONE, "run_all: warning: kernel differs: unknown, 6.1\n")


class Files(CompareTest):
    def expect_unreadable(self, text, error):
        self.expect(self.compare(csv_of(row()), text), UNREADABLE, f"run_all: new.csv{error}\n")

    def test_a_file_that_is_not_there(self):
        done = self.run_all("compare", "a.csv", "b.csv")
        self.expect(done, UNREADABLE, "run_all: a.csv: No such file or directory\n")

    def test_a_folder(self):
        self.expect(self.run_all("compare", ".", "b.csv"), UNREADABLE, "run_all: .: Is a directory\n")

    def test_the_first_of_the_two(self):
        self.expect(self.compare("", csv_of(row())), UNREADABLE, "run_all: old.csv: was not written by run_all.py\n")

    def test_a_quotation_mark_that_stays_open(self):
        self.expect_unreadable(csv_of(row()) + '"shader', ": is no CSV: unexpected end of data")

    def test_files_of_others(self):
        figures = COLUMNS + "\n" + row() + "\n"
        for text in ("", "\n", "a,b\n", figures, "key,value\n", "a,b\n\n" + figures, csv_of(row()) + "\na,b\n",
                     csv_of(row()).replace(COLUMNS, COLUMNS.replace("case", "way"))):
            self.expect_unreadable(text, ": was not written by run_all.py")

    def test_rows_that_are_too_short_or_too_long(self):
        self.expect_unreadable(csv_of(row(), "a,b"), ":20: has 2 cells under 8 headings")
        self.expect_unreadable(csv_of(row() + ","), ":19: has 9 cells under 8 headings")
        self.expect_unreadable(csv_of(row(), kernel="6,1"), ":5: has 3 cells under 2 headings")

    def test_numbers_that_are_none(self):
        for number in ("", "nan", "inf", "-1", "1e3", "1.", " 1", "many"):
            self.expect_unreadable(csv_of(row(number)), f":19: '{number}' is no number")
        for number in ("nan", "-1", "many"):
            self.expect_unreadable(csv_of(row("1", number, "peer")), f":19: '{number}' is no number")

    def test_a_figure_that_is_there_twice(self):
        self.expect_unreadable(csv_of(row("1"), row("2")), f":20: is there twice: {NAME}")

    def test_files_without_a_figure_in_common(self):
        self.expect(
            self.compare_rows(row(), row(case="deep")),
            UNREADABLE,
            "run_all: old.csv and new.csv: have no figure in common\n",
        )


class CommandLine(CompareTest):
    def test_one_file_is_not_enough(self):
        done = self.run_all("compare", "old.csv")
        self.expect(done, USAGE, "run_all compare: the following arguments are required: NEW.csv (see --help)\n")

    def test_a_percentage_is_a_number_from_0_on(self):
        for text in ("much", "-1", "15%"):
            done = self.run_all("compare", "old.csv", "new.csv", "--allow=" + text)
            error = f"run_all compare: argument --allow: '{text}' is no percentage (see --help)\n"
            self.expect(done, USAGE, error)


if __name__ == "__main__":
    unittest.main()
