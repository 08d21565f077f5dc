"""What the tests of benchmarks/run_all.py share."""

import os
import re
import subprocess
import tempfile
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
RUN_ALL = os.path.join(SOURCE, "benchmarks", "run_all.py")

HEAD = {
    "cpu": "a processor",
    "cores": "2",
    "memory": "23.5 GiB",
    "kernel": "6.1",
    "load": "0.1",
    "library": "0.1.0",
    "OpenSceneGraph": "3.6.5",
    "compiler": "c++ 12.2.0",
    "build": "Release",
    "driver": "llvmpipe",
    "commit": "1234567",
    "tree": "clean",
    "date": "2026-01-01",
    "sizes": "usual",
    "repeats": "5",
}
COLUMNS = "benchmark,case,size,measure,figure,unit,ratio,against"


def csv_of(*rows, **head):
    """The text of a file that run_all wrote."""
    pairs = [f"{key},{value}" for key, value in {**HEAD, **head}.items()]
    return "\n".join(["key,value", *pairs, "", COLUMNS, *rows]) + "\n"


def row(figure="100", ratio="", against="", *, case="wide", size="10 nodes", measure="processor time", unit="ms"):
    return f"shader,{case},{size},{measure},{figure},{unit},{ratio},{against}"


def fields(line):
    """The cells of a line of a table."""
    return re.split(r"  +", line.strip())


class RunAllTest(unittest.TestCase):
    """Runs the command in a folder of its own."""

    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, text):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def content(self, name):
        with open(self.path(name), encoding="utf-8") as file:
            return file.read()

    def run_all(self, *arguments):
        return subprocess.run([RUN_ALL, *arguments], cwd=self.folder, capture_output=True, text=True, check=False)

    def expect(self, done, status, errors):
        self.assertEqual((done.stderr, done.returncode), (errors, status))
