"""Private copies of the tree, in which faults are put, built and tested."""

import functools
import hashlib
import json
import os
import re
import shutil
import signal
import subprocess
import threading
import time
from collections import Counter
from concurrent.futures import ThreadPoolExecutor

# Nothing that a fault lets loose outlives its test or writes elsewhere than to a /tmp of its own;
# what is a mount point cannot be removed or replaced.
CONTAINED = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", "sh", "-c",
             'mount -t tmpfs none /tmp && for device in full null zero; do '
             'mount --bind /dev/$device /dev/$device || exit; done && exec "$@"', "sh"]
BUILD_SECONDS = 600


class Unbelievable(Exception):
    """What happened says nothing about a fault."""


class Copy:
    """A copy of the tree at `path` with a build of its own, without optimiser and with the checks
    for undefined behaviour, which end a program. Only `targets` are built, all if that is empty."""

    def __init__(self, tree, path, targets):
        self.path, self.build, self.targets = path, os.path.join(path, "build"), targets
        self._take(tree)
        environment = {"CCACHE_DIR": os.path.join(os.path.dirname(path), "ccache"),
                       "CCACHE_BASEDIR": path, "CCACHE_NOHASHDIR": "1", "CCACHE_MAXSIZE": "2G"}
        self.environment = dict(os.environ, **environment)
        done = subprocess.run(
            ["cmake", "-S", path, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=",
             "-DCMAKE_CXX_COMPILER=clang++", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache",
             "-DCMAKE_CXX_FLAGS=-O0 -fsanitize=undefined -fno-sanitize=vptr -fsanitize-trap=undefined",
             "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld -static", "-DTOVI_TESTS=ON",
             "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"],
            env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        problem = done.stdout if done.returncode != 0 else self.problem_of_build()
        if problem is not None:
            raise Unbelievable("the tree does not build\n" + problem)
        self.unchanged = {}

    def _take(self, tree):
        """Writes what differs, so that little is built anew; removes what is no longer there."""
        listed = subprocess.run(["git", "-C", tree, "ls-files", "-co", "--exclude-standard"],
                                check=True, stdout=subprocess.PIPE, text=True).stdout.split("\n")
        names = {name for name in listed if name and os.path.isfile(os.path.join(tree, name))}
        for folder, folders, files in os.walk(self.path):
            if folder == self.path and "build" in folders:
                folders.remove("build")
            for file in files:
                if os.path.relpath(os.path.join(folder, file), self.path) not in names:
                    os.unlink(os.path.join(folder, file))
        for name in names:
            source, target = os.path.join(tree, name), os.path.join(self.path, name)
            if os.path.isfile(target) and same(source, target):
                continue
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copy(source, target)

    def write(self, name, text):
        with open(os.path.join(self.path, name), "w", encoding="utf-8") as file:
            file.write(text)

    def remember(self, programs):
        """Has their bytes without a fault."""
        self.unchanged = {name: self._digest(name) for name in programs}

    def changed(self):
        """Those that are others with the fault that is built."""
        return {name for name, digest in self.unchanged.items() if self._digest(name) != digest}

    def _digest(self, name):
        with open(os.path.join(self.build, name), "rb") as file:
            return hashlib.sha256(file.read()).digest()

    def problem_of_build(self):
        """What the build says when it fails, else None. A second attempt tells a compiler that was
        killed from one that refuses."""
        for _ in range(2):
            try:
                done = subprocess.run(["ninja", "-C", self.build, *self.targets],
                                      env=self.environment, text=True, stdout=subprocess.PIPE,
                                      stderr=subprocess.STDOUT, timeout=BUILD_SECONDS)
            except subprocess.TimeoutExpired:
                continue
            if done.returncode == 0:
                return None
            if not re.search(r"Killed|unable to execute|due to signal|No space left", done.stdout):
                return done.stdout
        raise Unbelievable("the build was ended from outside, twice")


@functools.cache
def programs_of(build, test):
    """A test's program and those that are built with it, by their names in the build folder."""
    test = os.path.relpath(test, build)
    inputs = subprocess.run(["ninja", "-C", build, "-t", "inputs", test], check=True,
                            stdout=subprocess.PIPE, text=True).stdout.split("\n")
    paths = {name: os.path.join(build, name) for name in [test, *inputs]
             if name and not name.startswith("/")}
    return {name for name, path in paths.items()
            if os.path.isfile(path) and os.access(path, os.X_OK)}


def works_on_qrtr(copy):
    """Whether the programs of a copy pass the checks inside the emulated machine."""
    done = subprocess.run([os.path.join(copy.path, "tools/qrtr-lab/check"), "--commands"],
                          env=dict(os.environ, BUILD=copy.build, VM_TIMEOUT="200"),
                          stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL)
    return done.returncode == 0


def same(one, other):
    with open(one, "rb") as first, open(other, "rb") as second:
        return first.read() == second.read()


class Tests:
    """The tests of the copy `first`. Each runs by itself, in a place of its own; those that noticed
    a fault near by come first, then the short ones. One whose programs are the
    same as without the fault is left out. What only a kernel's QRTR reaches is tried on one, where
    that can be emulated."""

    def __init__(self, first, jobs):
        self.jobs = jobs
        self.root = first.path
        listed = subprocess.run(["ctest", "--test-dir", first.build, "--show-only=json-v1"],
                                check=True, stdout=subprocess.PIPE, text=True).stdout
        self.commands = {test["name"].split(".", 1)[1]: test["command"]
                         for test in json.loads(listed)["tests"]
                         if not test["name"].endswith("_NOT_BUILT")}
        self.programs = {name: programs_of(first.build, command[0])
                         for name, command in self.commands.items()}
        self.seconds = dict.fromkeys(self.commands, 10.0)
        self.noticed = Counter()
        self.running, self.lock = {}, threading.Lock()
        contained = not first.path.startswith("/tmp/") and subprocess.run(
            CONTAINED + ["true"], stderr=subprocess.DEVNULL).returncode == 0
        self.around = CONTAINED if contained else []
        self.has_qrtr = False

    def measure(self, copy, on_qrtr):
        """Runs all of them; those that failed, by themselves too."""
        failed = self._run(copy, list(self.commands), to_the_end=True)
        emulates = shutil.which("qemu-system-x86_64") is not None
        self.has_qrtr = on_qrtr and emulates and works_on_qrtr(copy)
        return [name for name in failed if not self._passes(copy, name, True)]

    def first_failure(self, copy, path):
        """The test that fails, twice, with the fault in `path`; None when all pass."""
        def value(name):
            parts = path.split("/")
            near = [self.noticed["/".join(parts[:n]), name] for n in range(len(parts), 0, -1)]
            return [-count for count in near] + [self.seconds[name]]

        changed = copy.changed()
        names = [name for name, programs in self.programs.items() if programs & changed]
        failed = self._run(copy, sorted(names, key=value), to_the_end=False)
        for name in failed[:1]:
            parts = path.split("/")
            self.noticed.update(("/".join(parts[:n]), name) for n in range(1, len(parts) + 1))
        if not failed and self.has_qrtr and "qrtr" in path:
            return None if works_on_qrtr(copy) or works_on_qrtr(copy) else "the kernel's QRTR"
        return failed[0] if failed else None

    def end_all(self, copy=None):
        """Ends what runs, of one copy if it is given."""
        with self.lock:
            for process in [one for one, its in self.running.items() if copy in (None, its)]:
                end(process)

    def _run(self, copy, names, to_the_end):
        failed = []

        def fails(name):
            return not (failed and not to_the_end) and not self._passes(copy, name, to_the_end)

        def test(name):
            # Twice: a machine that was too busy for the test is no verdict.
            if fails(name) and fails(name):
                failed.append(name)
                if not to_the_end:
                    self.end_all(copy)

        with ThreadPoolExecutor(self.jobs) as pool:
            list(pool.map(test, names))
        return failed

    def _passes(self, copy, name, measured):
        command = [word.replace(self.root, copy.path, 1) for word in self.commands[name]]
        begin = time.monotonic()
        with self.lock:
            process = subprocess.Popen(self.around + command, cwd=os.path.join(copy.build, "tests"),
                                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL, start_new_session=True)
            self.running[process] = copy
        try:
            status = process.wait(20 + 5 * self.seconds[name])
        except subprocess.TimeoutExpired:
            status = None
        with self.lock:
            end(process)
            del self.running[process]
        process.wait()
        if measured and status == 0:
            self.seconds[name] = time.monotonic() - begin
        return status == 0


def end(process):
    """With all that it started."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
