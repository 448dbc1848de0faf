"""Private copies of the tree, in which faults are put, built and tested."""

import os
import json
import re
import shutil
import signal
import subprocess
import threading
import time
from collections import Counter
from concurrent.futures import ThreadPoolExecutor

# Nothing that a fault lets loose outlives its test or writes elsewhere than to a /tmp of its own.
CONTAINED = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", "sh", "-c",
             'mount -t tmpfs none /tmp && exec "$@"', "sh"]
BUILD_SECONDS = 600


class Unbelievable(Exception):
    """What happened says nothing about a fault."""


class Copy:
    """A copy of the tree at `path` with a build of its own, without optimiser and with the checks
    for undefined behaviour, which end a program."""

    def __init__(self, tree, path):
        self.path, self.build = path, os.path.join(path, "build")
        self._take(tree)
        environment = {"CCACHE_DIR": os.path.join(os.path.dirname(path), "ccache"),
                       "CCACHE_BASEDIR": path, "CCACHE_NOHASHDIR": "1", "CCACHE_MAXSIZE": "2G"}
        self.environment = dict(os.environ, **environment)
        done = subprocess.run(
            ["cmake", "-S", path, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=",
             "-DCMAKE_CXX_COMPILER=clang++", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache",
             "-DCMAKE_CXX_FLAGS=-O0 -fsanitize=undefined -fno-sanitize=vptr -fsanitize-trap=undefined",
             "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld", "-DTOVI_TESTS=ON",
             "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"],
            env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        problem = done.stdout if done.returncode != 0 else self.problem_of_build()
        if problem is not None:
            raise Unbelievable("the tree does not build\n" + problem)

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

    def problem_of_build(self):
        """What the build says when it fails, else None. A second attempt tells a compiler that was
        killed from one that refuses."""
        for _ in range(2):
            try:
                done = subprocess.run(["ninja", "-C", self.build], env=self.environment, text=True,
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                      timeout=BUILD_SECONDS)
            except subprocess.TimeoutExpired:
                continue
            if done.returncode == 0:
                return None
            if not re.search(r"Killed|unable to execute|due to signal|No space left", done.stdout):
                return done.stdout
        raise Unbelievable("the build was ended from outside, twice")


def same(one, other):
    with open(one, "rb") as first, open(other, "rb") as second:
        return first.read() == second.read()


class Tests:
    """The tests of the copy `first`. Each runs by itself, in a place of its own; those that noticed
    a fault near by come first, then the short ones."""

    def __init__(self, first, jobs):
        self.jobs = jobs
        self.root = first.path
        listed = subprocess.run(["ctest", "--test-dir", first.build, "--show-only=json-v1"],
                                check=True, stdout=subprocess.PIPE, text=True).stdout
        self.commands = {test["name"].split(".", 1)[1]: test["command"]
                         for test in json.loads(listed)["tests"]}
        self.seconds = dict.fromkeys(self.commands, 10.0)
        self.noticed = Counter()
        contained = not first.path.startswith("/tmp/") and subprocess.run(
            CONTAINED + ["true"], stderr=subprocess.DEVNULL).returncode == 0
        self.around = CONTAINED if contained else []

    def measure(self, copy):
        """Runs all of them; those that failed twice."""
        return self._run(copy, list(self.commands), to_the_end=True)

    def first_failure(self, copy, path):
        """The test that fails, twice, with the fault in `path`; None when all pass."""
        def value(name):
            parts = path.split("/")
            near = [self.noticed["/".join(parts[:n]), name] for n in range(len(parts), 0, -1)]
            return [-count for count in near] + [self.seconds[name]]

        failed = self._run(copy, sorted(self.commands, key=value), to_the_end=False)
        for name in failed:
            parts = path.split("/")
            self.noticed.update(("/".join(parts[:n]), name) for n in range(1, len(parts) + 1))
        return failed[0] if failed else None

    def _run(self, copy, names, to_the_end):
        failed, running, lock = [], set(), threading.Lock()

        def stopped():
            return failed and not to_the_end

        def test(name):
            if stopped() or self._passes(copy, name, running, lock, stopped, to_the_end):
                return
            # Again: a machine that was too busy for the test is no verdict.
            if stopped() or self._passes(copy, name, running, lock, stopped, to_the_end):
                return
            with lock:
                if stopped():
                    return
                failed.append(name)
                if not to_the_end:
                    for other in running:
                        end(other)

        with ThreadPoolExecutor(self.jobs) as pool:
            list(pool.map(test, names))
        return failed

    def _passes(self, copy, name, running, lock, stopped, measured):
        command = [word.replace(self.root, copy.path, 1) for word in self.commands[name]]
        begin = time.monotonic()
        with lock:
            if stopped():
                return True
            process = subprocess.Popen(self.around + command, cwd=os.path.join(copy.build, "tests"),
                                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL, start_new_session=True)
            running.add(process)
        try:
            status = process.wait(20 + 5 * self.seconds[name])
        except subprocess.TimeoutExpired:
            status = None
        with lock:
            end(process)
            running.discard(process)
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
