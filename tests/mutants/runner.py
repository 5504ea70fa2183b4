"""Tries one fault after the other."""
import collections
import concurrent.futures
import os
import re
import threading
import time

from common import BROKEN, KILLED, SAME, SOURCE, SURVIVED, fail
from sandbox import Sandbox
from toolchain import Compiler, Bench, Program, digest


class Runner:
    """Tells of one fault after the other, several at a time, what becomes of it."""

    def __init__(self, build, scratch, jobs):
        self.build = build
        self.scratch = scratch
        self.jobs = jobs
        self.compiler = Compiler(build, scratch)
        self.base, self.benches = {}, []
        self.benches = [Bench(build, self.compiler, self.base, scratch / str(number)) for number in range(jobs)]
        self.free = list(self.benches)
        self.lock = threading.Lock()
        self.sandbox = Sandbox(build)
        self.programs, self.optimised = {}, {}
        self.seen = collections.defaultdict(set)
        self._build_library()

    def _build_library(self):
        objects = self.scratch / "base"
        objects.mkdir()

        def one(name):
            output = objects / name.replace("/", "_")
            if not self.compiler.compile(name, self.benches[0].tree, output):
                fail(name + " does not compile without a fault")
            return name, output
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            self.base.update(pool.map(one, self.build.sources.values()))
        self.digests = {name: digest(path) for name, path in self.base.items()}
        self.library = objects / "libkxPAL_impl.so"
        if not self.benches[0].link(self.build.library_link, {}, self.library):
            fail("the library does not link without a fault")

    def measure(self, names):
        """Runs programs that are needed for the first time, without a fault."""
        new = [name for name in names if name not in self.programs]
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            self.programs.update(zip(new, pool.map(self._measure, new)))

    def _measure(self, name):
        program = Program(self.build, name)
        path = program.path
        if program.is_white_box:
            path = self.scratch / "base" / os.path.basename(name)
            if not self.benches[0].link(program.link, {}, path):
                fail(name + " does not link without a fault")
        start = time.monotonic()
        status, output = self.sandbox.run(self.library, [str(path)], 300)
        if status != 0:
            fail("%s fails without a fault:\n%s" % (name, output[-4000:]))
        # What happens to the schedule of a stress test on a busy machine is no fault.
        factor, more = (10, 30) if "stress" in name else (3, 4)
        program.limit = factor * (time.monotonic() - start) + more
        skipped = re.findall(r"^\[  SKIPPED \] (\S+)$", output, re.MULTILINE)
        if skipped:
            print("%s skips in the sandbox: %s" % (name, " ".join(sorted(set(skipped)))), flush=True)
        return program

    def try_out(self, file, source, mutant, names):
        """(outcome, what tells it)"""
        with self.lock:
            bench = self.free.pop()
        try:
            path = bench.tree / file
            path.write_text(mutant.applied(source))
            try:
                return self._judge(bench, file, names)
            finally:
                path.write_text(source)
        finally:
            with self.lock:
                self.free.append(bench)

    def _judge(self, bench, file, names):
        made = bench.compile(bench.objects_of(file))
        if made is None:
            return BROKEN, ""
        if file.endswith(".cpp"):
            code = digest(next(iter(made.values())))
            with self.lock:
                if code == self.digests[self.build.sources[file]] or code in self.seen[file]:
                    return SAME, ""
                self.seen[file].add(code)
        if not bench.link(self.build.library_link, made, bench.library):
            return BROKEN, ""
        for name in names:
            told = self._told_by(bench, file, self.programs[name], made)
            if told:
                return KILLED, told
        if file.endswith(".cpp") and self._is_same_when_optimised(bench, file):
            return SAME, "when optimised"
        return SURVIVED, ""

    def _told_by(self, bench, file, program, made):
        path, objects = program.path, dict(made)
        if not file.endswith(".cpp"):
            stale = [name for name in program.objects
                     if "/kxPAL_objects.dir/" not in name and self.build.depends(name, file)]
            compiled = self._compile_tests(bench, stale)
            if compiled is None:
                return program.name + " (does not compile)"
            objects.update(compiled)
        if program.is_white_box or len(objects) > len(made):
            path = bench.out / os.path.basename(program.name)
            if not bench.link(program.link, objects, path):
                return program.name + " (does not link)"
        status, _ = self.sandbox.run(bench.library, [str(path)], program.limit)
        if status == 0:
            return ""
        return program.name + (" (time)" if status is None else " (crash)" if status < 0 or status > 1 else "")

    def _compile_tests(self, bench, names):
        made = {}
        for number, name in enumerate(names):
            output = bench.out / ("test%d.o" % number)
            if not self.compiler.compile(name, bench.tree, output):
                return None
            made[name] = output
        return made

    def _is_same_when_optimised(self, bench, file):
        name = self.build.sources[file]
        mutated = bench.compile([name], ("-O2",))
        changed = (bench.tree / file).read_text()
        (bench.tree / file).write_text((SOURCE / file).read_text())
        try:
            with self.lock:
                known = self.optimised.get(file)
            if known is None:
                output = bench.out / "optimised.o"
                self.compiler.compile(name, bench.tree, output, ("-O2",))
                known = digest(output)
                with self.lock:
                    self.optimised[file] = known
        finally:
            (bench.tree / file).write_text(changed)
        return mutated is not None and digest(mutated[name]) == known
