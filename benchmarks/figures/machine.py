"""Where figures come from: the machine, the versions, the commit."""

import os
import re
import subprocess
import tempfile
import time

from figures.report import UNKNOWN

# Where one of these differs, figures mean something else.
SURROUNDINGS = ("cpu", "cores", "memory", "kernel", "OpenSceneGraph", "compiler", "build", "driver", "sizes", "repeats")


def found_in(path, pattern):
    """What the pattern's group matches in the file."""
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            found = re.search(pattern, file.read(), re.MULTILINE)
    except OSError:
        return UNKNOWN
    return found.group(1) if found else UNKNOWN


def output_of(*command):
    """The first line of what a command prints; "unknown" if it fails, nothing if it prints nothing."""
    try:
        printed = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    except (OSError, subprocess.CalledProcessError):
        return UNKNOWN
    return printed.partition("\n")[0].strip()


def memory():
    kibibytes = found_in("/proc/meminfo", r"^MemTotal: *(\d+) kB")
    return UNKNOWN if kibibytes == UNKNOWN else f"{int(kibibytes) / 2**20:.1f} GiB"


def driver(build):
    """The driver that draws: the tool draws three lines and tells its name."""
    tool = os.path.join(build, "apps/sceneutils/sceneutils")
    with tempfile.TemporaryDirectory() as folder:
        axes, picture = os.path.join(folder, "axes.osgt"), os.path.join(folder, "axes.png")
        try:
            subprocess.run([tool, "axes", axes], capture_output=True, check=True)
            drawn = subprocess.run([tool, "render", axes, "-o", picture, "--verbose"], capture_output=True, text=True)
        except (OSError, subprocess.CalledProcessError):
            return UNKNOWN
    found = re.search(r"driver (.*)", drawn.stderr)
    return found.group(1) if found else UNKNOWN


def tree_of(source):
    """Whether a checkout has changes that are not committed; files that git does not know do not count."""
    changes = output_of("git", "-C", source, "status", "--porcelain", "--untracked-files=no")
    return {"": "clean", UNKNOWN: UNKNOWN}.get(changes, "changed")


def head(build, draws):
    """@param draws: whether something was drawn"""
    cache = os.path.join(build, "CMakeCache.txt")
    source = found_in(cache, r"^CMAKE_HOME_DIRECTORY:INTERNAL=(.*)")
    compiler = found_in(cache, r"^CMAKE_CXX_COMPILER:\w+=(.*)")
    return {
        "cpu": found_in("/proc/cpuinfo", r"^model name\s*: (.*)"),
        "cores": str(len(os.sched_getaffinity(0))),
        "memory": memory(),
        "kernel": os.uname().release,
        "load": f"{os.getloadavg()[0]:.1f}",
        "library": found_in(cache, r"^CMAKE_PROJECT_VERSION:STATIC=(.*)"),
        "OpenSceneGraph": output_of("pkg-config", "--modversion", "openscenegraph"),
        "compiler": output_of(compiler, "--version"),
        "build": found_in(cache, r"^CMAKE_BUILD_TYPE:\w+=(.*)"),
        "driver": driver(build) if draws else "none",
        "commit": output_of("git", "-C", source, "rev-parse", "HEAD"),
        "tree": tree_of(source),
        "date": time.strftime("%Y-%m-%d"),
    }
