#!/usr/bin/env -S python3 -B
"""run_all --quick with the programs of a build tree.

    tests/benchmarks/quick_test.py BUILD
"""

import sys
import unittest

from support import RunAllTest, fields

BUILD = ""


class Quick(RunAllTest):
    def test_visitors_are_measured_against_bare_traversals(self):
        done = self.run_all("--build", BUILD, "--quick", "--only", "visitor", "--csv", "all.csv")
        self.assertEqual(done.returncode, 0, done.stderr)
        rows = [fields(line) for line in done.stdout.splitlines()[1:]]
        bare = {row[1]: float(row[4]) for row in rows if row[1].startswith("bare")}
        self.assertEqual(sorted(bare), ["bareTraversalOfGraphs", "bareTraversalOfModels"])
        seen = {row[1]: (row[2], row[6], row[7]) for row in rows if row[1] not in bare}
        expected = {
            name: (size, f"{float(row[4]) / bare[against]:.3f}", against)
            for name, size, against in (
                ("stateSetVisitor", "1000 nodes", "bareTraversalOfGraphs"),
                ("forceTextureFilter", "1000 nodes", "bareTraversalOfGraphs"),
                ("calculateBoundingBox", "1000 geodes", "bareTraversalOfModels"),
                ("findNodeVisitor", "1000 geodes", "bareTraversalOfModels"),
            )
            for row in rows
            if row[1] == name
        }
        self.assertEqual((seen, len(seen)), (expected, 4))
        self.assertIn("\nsizes,small\nrepeats,1\n", self.content("all.csv"))
        self.expect(self.run_all("compare", "all.csv", "all.csv"), 0, "")


if __name__ == "__main__":
    BUILD = sys.argv.pop()
    unittest.main()
