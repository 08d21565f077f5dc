#!/usr/bin/env -S python3 -B
"""run_all table: figures as text, as Markdown and in a page."""

import unittest

from support import HEAD, RunAllTest, csv_of, row

DONE, UNREADABLE, NOT_WRITTEN = 0, 2, 4

ROWS = [
    row("1.50", "2.00", "peer"),
    row("15.00", "3.00", "peer", size="100 nodes"),
    row("7", case="deep"),
    row("8.00", "1.00", "peer", case='"peer, seen"'),
    row("9.00", "1.00", "peer", case="peer"),
    row("9.50", "1.00", "peer", case="peers"),
    row("4.00", "5.00", "peer", size="10 lines"),
    row("20", "1.00", "floor", case='"a, b"', measure="memory", unit="MiB"),
]
MARKDOWN = (
    "| measured with |  |\n| --- | --- |\n"
    + "".join(f"| {key} | {value} |\n" for key, value in HEAD.items())
    + "\n"
    + "| benchmark | case | size | measure | figure | unit | ratio | against |\n"
    + "| --- | --- | --- | --- | ---: | --- | ---: | --- |\n"
    + "| shader | wide | 100 nodes | processor time | 15.00 | ms | 3.00 | peer |\n"
    + "| shader | peers | 10 nodes | processor time | 9.50 | ms | 1.00 | peer |\n"
    + "| shader | wide | 10 lines | processor time | 4.00 | ms | 5.00 | peer |\n"
    + "| shader | a, b | 10 nodes | memory | 20 | MiB | 1.00 | floor |\n"
)


class Table(RunAllTest):
    def setUp(self):
        super().setUp()
        self.write("all.csv", csv_of(*ROWS))

    def test_text_has_all_figures(self):
        done = self.run_all("table", "all.csv")
        self.expect(done, DONE, "")
        self.assertEqual(
            done.stdout,
            "benchmark  case        size       measure         figure  unit  ratio  against\n"
            "shader     wide        10 nodes   processor time    1.50  ms     2.00  peer\n"
            "shader     wide        100 nodes  processor time   15.00  ms     3.00  peer\n"
            "shader     deep        10 nodes   processor time       7  ms\n"
            "shader     peer, seen  10 nodes   processor time    8.00  ms     1.00  peer\n"
            "shader     peer        10 nodes   processor time    9.00  ms     1.00  peer\n"
            "shader     peers       10 nodes   processor time    9.50  ms     1.00  peer\n"
            "shader     wide        10 lines   processor time    4.00  ms     5.00  peer\n"
            "shader     a, b        10 nodes   memory              20  MiB    1.00  floor\n",
        )

    def test_markdown_has_the_largest_sizes_of_what_is_seen_against_another(self):
        done = self.run_all("table", "all.csv", "--markdown")
        self.expect(done, DONE, "")
        self.assertEqual(done.stdout, MARKDOWN)

    def test_a_page_gets_the_figures_in_place_of_its_own(self):
        self.write("page.md", "# A page\n\n<!-- figures -->\nold\n<!-- end of figures -->\n\nThe end\n")
        for _ in range(2):
            self.expect(self.run_all("table", "all.csv", "--into", "page.md"), DONE, "")
            expected = f"# A page\n\n<!-- figures -->\n\n{MARKDOWN}\n<!-- end of figures -->\n\nThe end\n"
            self.assertEqual(self.content("page.md"), expected)

    def test_a_page_without_a_place_stays_as_it_is(self):
        self.write("page.md", "# A page\n")
        done = self.run_all("table", "all.csv", "--into", "page.md")
        self.expect(done, UNREADABLE, "run_all: page.md: has no part for figures\n")
        self.assertEqual(self.content("page.md"), "# A page\n")

    def test_a_page_that_is_not_there(self):
        done = self.run_all("table", "all.csv", "--into", "page.md")
        self.expect(done, UNREADABLE, "run_all: page.md: No such file or directory\n")

    def test_a_file_of_others(self):
        self.write("all.csv", "a,b\n")
        self.expect(self.run_all("table", "all.csv"), UNREADABLE, "run_all: all.csv: was not written by run_all.py\n")


if __name__ == "__main__":
    unittest.main()
