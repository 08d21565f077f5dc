#!/usr/bin/env -S python3 -B
"""run_all with programs that only pretend to measure."""

import os
import re
import signal
import subprocess
import time
import unittest

from support import COLUMNS, RUN_ALL, SOURCE, RunAllTest, fields

DONE, USAGE, UNREADABLE, NOT_WRITTEN, DONE_IN_PART, INTERRUPTED = 0, 1, 2, 4, 5, 130

SHADER_CSV = """nodes,shape,state,run,ours_ms,visitor_ms,ours/visitor
1000,wide,16 shared,first,0.300,0.100,3.00
1000,wide,16 shared,second,0.200,0.000,inf
"""
JOBS_CSV = """tiles,way,cpu_s,wall_s,peak_MiB,cpu/loop,wall/loop
10,--jobs 1,2.5,1.5,20.0,,
"""
VISITOR_CSV = """benchmark,size,of,us,growth
bareTraversalOfModels,1000,geodes,10.000,
findNodeVisitor,1000,geodes,15.000,
findNodeVisitor,10000,geodes,99.000,6.6
"""
BATCH_CSV = """drawables,way,ms,of ALL,peak_MiB
1000,"batches, radius 0",4.20,1.40,3.0

drawables,way,whole: cull_ms,whole: draw_ms,whole: of before,street: cull_ms,street: draw_ms,street: of before
1000,before,0.500,1.530,1.00,0.100,0.200,1.00
"""


class RunTest(RunAllTest):
    def make(self, name, csv, ending="exit 0"):
        """A program that notes its options and writes that CSV file."""
        path = f"build/benchmarks/{name}_benchmark"
        notes = self.path(name + ".options")
        text = f"""#!/bin/sh
printf '%s\\n' "$*" >{notes}
for file; do :; done
cat >"$file" <<'END'
{csv}END
{ending}
"""
        self.write(path, text)
        os.chmod(self.path(path), 0o755)

    def run_build(self, *arguments):
        done = self.run_all("--build", self.path("build"), *arguments)
        done.stderr = re.sub(r": \d+ s\n", ": 0 s\n", done.stderr)
        return done

    def options_of(self, name):
        return re.sub(r" ?--csv \S+\n$", "", self.content(name + ".options"))


class Figures(RunTest):
    def rows(self, name, csv):
        self.make(name, csv)
        done = self.run_build("--only", name)
        self.expect(done, DONE, f"run_all: {name}: 0 s\n")
        return [fields(line) for line in done.stdout.splitlines()]

    def test_columns_of_a_program_become_figures(self):
        self.assertEqual(
            self.rows("shader", SHADER_CSV),
            [
                COLUMNS.split(","),
                ["shader", "wide, 16 shared, first", "1000 nodes", "processor time", "0.300", "ms", "3.00",
                 "osgUtil::ShaderGenVisitor"],
                ["shader", "wide, 16 shared, second", "1000 nodes", "processor time", "0.200", "ms"],
            ],
        )

    def test_cases_are_seen_against_a_peer_of_the_same_size(self):
        self.assertEqual(
            self.rows("visitor", VISITOR_CSV)[1:],
            [
                ["visitor", "bareTraversalOfModels", "1000 geodes", "processor time", "10.000", "us"],
                ["visitor", "findNodeVisitor", "1000 geodes", "processor time", "15.000", "us", "1.500",
                 "bareTraversalOfModels"],
                ["visitor", "findNodeVisitor", "10000 geodes", "processor time", "99.000", "us"],
            ],
        )

    def test_without_osgconv_there_is_nothing_to_see_jobs_against(self):
        self.assertEqual(
            self.rows("jobs", JOBS_CSV)[1:],
            [
                ["jobs", "--jobs 1", "10 tiles", "processor time", "2.5", "s"],
                ["jobs", "--jobs 1", "10 tiles", "clock", "1.5", "s"],
                ["jobs", "--jobs 1", "10 tiles", "memory", "20.0", "MiB"],
            ],
        )

    def test_all_tables_of_a_program_are_read_and_columns_added_up(self):
        self.assertEqual(
            self.rows("batch", BATCH_CSV)[1:],
            [
                ["batch", "batches, radius 0", "1000 drawables", "processor time", "4.20", "ms", "1.40",
                 "optimizer ALL"],
                ["batch", "batches, radius 0", "1000 drawables", "memory", "3.0", "MiB"],
                ["batch", "before", "1000 drawables", "frame, all in sight", "2.030", "ms", "1.00", "before"],
                ["batch", "before", "1000 drawables", "frame, street", "0.300", "ms", "1.00", "before"],
            ],
        )


class Csv(RunTest):
    def head(self, name, *options):
        self.run_build("--only", name, "--csv", "all.csv", *options)
        return dict(line.split(",", 1) for line in self.content("all.csv").partition("\n\n")[0].splitlines())

    def test_it_begins_with_where_it_was_measured(self):
        self.make("shader", SHADER_CSV)
        self.write("build/CMakeCache.txt", "CMAKE_PROJECT_VERSION:STATIC=1.2.3\nCMAKE_BUILD_TYPE:STRING=Debug\n")
        head = self.head("shader", "--repeats", "7")
        self.assertEqual(
            list(head),
            ["key", "cpu", "cores", "memory", "kernel", "load", "library", "OpenSceneGraph", "compiler", "build",
             "driver", "commit", "tree", "date", "sizes", "repeats"],
        )
        self.assertEqual(head["kernel"], os.uname().release)
        self.assertEqual(head["cores"], str(len(os.sched_getaffinity(0))))
        bytes_of_memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES")
        self.assertEqual(head["memory"], f"{bytes_of_memory / 2**30:.1f} GiB")
        told = {"library": "1.2.3", "build": "Debug", "driver": "none", "sizes": "usual", "repeats": "7"}
        unknown = {"compiler": "unknown", "commit": "unknown", "tree": "unknown"}
        self.assertEqual({**head, **told, **unknown}, head)

    def test_the_tool_tells_the_driver_of_what_was_drawn(self):
        self.make("batch", BATCH_CSV)
        tool = "build/apps/sceneutils/sceneutils"
        draw = '[ "$1" = render ] && [ -e "$2" ] && echo "sceneutils: driver soft, OpenGL 4.5" >&2'
        self.write(tool, f'#!/bin/sh\nif [ "$1" = axes ]; then touch "$2"; else {draw}; fi\n')
        os.chmod(self.path(tool), 0o755)
        self.assertEqual(self.head("batch")["driver"], '"soft, OpenGL 4.5"')

    def test_the_commit_is_that_of_the_sources_that_were_built(self):
        self.make("shader", SHADER_CSV)
        self.write("source/file", "as it is committed")
        self.write("build/CMakeCache.txt", f"CMAKE_HOME_DIRECTORY:INTERNAL={self.path('source')}\n")
        git = ["git", "-C", self.path("source"), "-c", "user.name=me", "-c", "user.email=me@here"]
        for words in (["init", "-q"], ["add", "file"], ["commit", "-q", "-m", "first"]):
            subprocess.run(git + words, check=True)
        commit = subprocess.run(git + ["rev-parse", "HEAD"], check=True, capture_output=True, text=True).stdout.strip()
        self.write("source/other", "that git does not know")
        head = self.head("shader")
        self.assertEqual((head["commit"], head["tree"]), (commit, "clean"))
        self.write("source/file", "changed")
        head = self.head("shader")
        self.assertEqual((head["commit"], head["tree"]), (commit, "changed"))

    def test_its_figures_are_those_that_are_printed(self):
        self.make("batch", BATCH_CSV)
        printed = self.run_build("--only", "batch", "--csv", "all.csv").stdout
        self.assertEqual(self.run_all("table", "all.csv").stdout, printed)

    def test_it_takes_the_place_of_a_former_one(self):
        self.make("shader", SHADER_CSV)
        self.write("all.csv", "old")
        self.run_build("--only", "shader", "--csv", "all.csv")
        self.assertTrue(self.content("all.csv").startswith("key,value\n"))

    def test_without_a_place_for_it_nothing_is_run(self):
        self.make("shader", SHADER_CSV)
        done = self.run_build("--only", "shader", "--csv", "none/all.csv")
        self.expect(done, NOT_WRITTEN, "run_all: none/all.csv: there is no such folder\n")
        done = self.run_build("--only", "shader", "--csv", "build")
        self.expect(done, NOT_WRITTEN, "run_all: build: is a folder\n")
        self.assertFalse(os.path.exists(self.path("shader.options")))


class Options(RunTest):
    def options(self, name, *arguments):
        self.make(name, {"jobs": JOBS_CSV, "shader": SHADER_CSV}[name])
        self.assertEqual(self.run_build("--only", name, *arguments).returncode, DONE)
        return self.options_of(name)

    def test_programs_have_their_own_defaults(self):
        self.assertEqual(self.options("shader"), "")

    def test_quick_takes_small_sizes_once(self):
        self.assertEqual(self.options("shader", "--quick"), "--nodes 1000 --repeats 1")
        self.assertEqual(self.options("shader", "--quick", "--repeats", "4"), "--nodes 1000 --repeats 4")

    def test_large_goes_to_those_that_have_it(self):
        self.assertEqual(self.options("jobs", "--large"), "--large")
        self.assertEqual(self.options("shader", "--large"), "")

    def test_only_takes_several_names(self):
        self.make("shader", SHADER_CSV)
        self.make("jobs", JOBS_CSV)
        done = self.run_build("--only", "shader", "--only", "jobs")
        self.expect(done, DONE, "run_all: jobs: 0 s\nrun_all: shader: 0 s\n")

    def test_nonsense_is_refused(self):
        done = self.run_build("--repeats", "0")
        error = "run_all: argument --repeats: '0' is no number from 1 on (see --help)\n"
        self.expect(done, USAGE, error)
        self.assertEqual(self.run_build("--only", "nothing").returncode, USAGE)
        self.assertEqual(self.run_build("--quick", "--large").returncode, USAGE)


class Failures(RunTest):
    def run_with_shader(self, name):
        self.make("shader", SHADER_CSV)
        return self.run_build("--only", name, "--only", "shader")

    def test_a_program_that_fails_is_named_and_the_others_are_run(self):
        self.make("jobs", JOBS_CSV, "echo no room >&2; exit 3")
        done = self.run_with_shader("jobs")
        self.expect(done, DONE_IN_PART, "run_all: jobs: ended with status 3: no room\nrun_all: shader: 0 s\n")
        self.assertEqual([fields(line)[0] for line in done.stdout.splitlines()], ["benchmark", "shader", "shader"])

    def test_a_program_that_says_nothing(self):
        self.make("jobs", JOBS_CSV, "exit 3")
        done = self.run_with_shader("jobs")
        errors = "run_all: jobs: ended with status 3: it printed nothing\nrun_all: shader: 0 s\n"
        self.expect(done, DONE_IN_PART, errors)

    def test_a_program_that_is_not_built(self):
        path = self.path("build/benchmarks/jobs_benchmark")
        done = self.run_with_shader("jobs")
        self.expect(done, DONE_IN_PART, f"run_all: jobs: {path}: No such file or directory\nrun_all: shader: 0 s\n")

    def test_a_column_that_is_not_there(self):
        self.make("visitor", VISITOR_CSV.replace("us,", "ms,"))
        done = self.run_with_shader("visitor")
        errors = "run_all: shader: 0 s\nrun_all: visitor: no table has the columns benchmark, of, size, us\n"
        self.expect(done, DONE_IN_PART, errors)

    def test_a_figure_that_is_none(self):
        self.make("jobs", JOBS_CSV.replace("2.5", "nan"))
        done = self.run_with_shader("jobs")
        errors = "run_all: jobs: 'nan' is no figure: jobs, --jobs 1, 10 tiles, processor time\nrun_all: shader: 0 s\n"
        self.expect(done, DONE_IN_PART, errors)

    def test_without_any_figure_there_is_no_table_and_no_file(self):
        path = self.path("build/benchmarks/jobs_benchmark")
        done = self.run_build("--only", "jobs", "--csv", "all.csv")
        errors = (
            f"run_all: jobs: {path}: No such file or directory\n"
            "run_all: there are no figures; build the benchmarks: docs/performance.md tells how\n"
        )
        self.expect(done, UNREADABLE, errors)
        self.assertEqual((done.stdout, os.path.exists(self.path("all.csv"))), ("", False))


    def test_an_interrupted_run_ends_at_once(self):
        self.make("jobs", JOBS_CSV, "exec sleep 60")
        # Of a test in the background it would inherit that the signal is ignored.
        command = ["env", "--default-signal=INT", RUN_ALL, "--build", self.path("build"), "--only", "jobs"]
        with subprocess.Popen(command, stderr=subprocess.PIPE, text=True) as running:
            while not os.path.exists(self.path("jobs.options")):
                time.sleep(0.01)
            running.send_signal(signal.SIGINT)
            self.assertEqual((running.communicate()[1], running.returncode), ("", INTERRUPTED))


class Programs(RunAllTest):
    def test_every_benchmark_of_the_build_is_run(self):
        with open(os.path.join(SOURCE, "benchmarks", "CMakeLists.txt"), encoding="utf-8") as file:
            built = re.findall(r"add_executable\((\w+)_benchmark", file.read())
        names = re.search(r"--only NAME\s+([\w,\s]*);", self.run_all("--help").stdout).group(1)
        self.assertEqual(sorted(built), sorted(re.findall(r"\w+", names)))


if __name__ == "__main__":
    unittest.main()
