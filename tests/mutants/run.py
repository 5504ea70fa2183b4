"""Plants faults into the library's sources, one at a time, and lists those that no test notices. See scripts/mutants."""
import argparse
import collections
import concurrent.futures
import glob
import os
import random
import signal
import sys
import tempfile
import time
from pathlib import Path

import plant
from common import BROKEN, HERE, KILLED, SAME, SOURCE, SURVIVED, fail
from lists import Explained, Results, keys_of, programs_of_files
from runner import Runner
from toolchain import Build


class Run:
    """All faults of the files that were asked for."""

    def __init__(self, arguments):
        self.arguments = arguments
        self.table = programs_of_files()
        self.explained = Explained(HERE / "equivalent.txt")
        self.report = Path(arguments.report or SOURCE / "build" / "release" / "mutants")
        self.report.mkdir(parents=True, exist_ok=True)
        # A sample stands for itself: whatever is known is tried again, and nothing is kept.
        self.results = Results(None if arguments.sample else self.report / "results.tsv", arguments.fresh)
        self.runner = None  # made when it turns out that something is left to be tried
        self.totals, self.tried, self.seconds = collections.Counter(), 0, 0.0

    def work(self):
        files = self.arguments.files or sorted(
            os.path.relpath(path, SOURCE) for pattern in ("src/*/*", "inc/*.h") for path in glob.glob(str(SOURCE / pattern)))
        work = []
        for file in files:
            if file not in self.table:
                fail("tests/mutants/programs.txt has no test programs for " + file)
            source = (SOURCE / file).read_text()
            work += [(file, source, mutant) for mutant in plant.mutants_of(source)]
        if self.arguments.sample:
            work = random.Random(self.arguments.seed).sample(work, min(len(work), self.arguments.sample))
        by_file = collections.OrderedDict()
        for file, source, mutant in sorted(work, key=lambda item: files.index(item[0])):
            by_file.setdefault(file, (source, []))[1].append(mutant)
        return by_file

    def go(self):
        by_file = self.work()
        if self.arguments.list:
            for file, (source, mutants) in by_file.items():
                for mutant in mutants:
                    print("%s:%d\n- %s\n+ %s" % ((file, mutant.line_number(source)) + mutant.lines(source)))
            return 0
        print("%d faults in %d files" % (sum(len(entry[1]) for entry in by_file.values()), len(by_file)), flush=True)
        with tempfile.TemporaryDirectory(prefix="mutants.", ignore_cleanup_errors=True) as scratch:
            os.chmod(scratch, 0o755)  # for the sandbox's user
            self.scratch = Path(scratch)
            for file, (source, mutants) in by_file.items():
                self._file(file, source, mutants)
        return self._sum_up(by_file)

    def _file(self, file, source, mutants):
        start = time.monotonic()
        todo = []
        outcomes = {}
        self.keys = dict(zip(mutants, keys_of(file, source, mutants)))
        for mutant in mutants:
            known = self.results.known.get(self.keys[mutant])
            if known and known[0] != SURVIVED:
                outcomes[mutant] = known
            else:
                todo.append(mutant)
        if todo and self.runner is None:
            self.runner = Runner(Build(SOURCE / "build" / "release"), self.scratch, self.arguments.jobs)
        if todo:
            self.runner.measure(self.table[file])
        with concurrent.futures.ThreadPoolExecutor(self.arguments.jobs) as pool:
            outcomes.update(zip(todo, pool.map(lambda mutant: self._one(file, source, mutant), todo)))
        self._report(file, source, mutants, outcomes, len(todo), time.monotonic() - start)

    def _one(self, file, source, mutant):
        start = time.monotonic()
        outcome, told = self.runner.try_out(file, source, mutant, self.table[file])
        self.results.add(self.keys[mutant], outcome, told, time.monotonic() - start, file, mutant.line_number(source),
                         mutant.lines(source))
        return outcome, told

    def _report(self, file, source, mutants, outcomes, tried, seconds):
        counts = collections.Counter(outcomes[mutant][0] for mutant in mutants)
        lines = []
        for mutant in mutants:
            before, after = mutant.lines(source)
            if outcomes[mutant][0] != SURVIVED:
                continue
            if self.explained.takes(file, before, after):
                counts["explained"] += 1
            else:
                lines.append("%s:%d\n- %s\n+ %s\n" % (file, mutant.line_number(source), before, after))
        counts["unexplained"] = len(lines)
        self.totals.update(counts)
        self.tried += tried
        self.seconds += seconds
        summary = self._summary(counts) + "; %.2f s a fault" % (seconds / max(1, tried))
        (self.report / (file.replace("/", "_") + ".txt")).write_text("# " + summary + "\n" + "".join(lines))
        print("%s: %s" % (file, summary), flush=True)
        print("".join(lines), end="", flush=True)

    @staticmethod
    def _summary(counts):
        return "%d killed, %d explained, %d survived unexplained (%d the same code, %d do not compile)" % (
            counts[KILLED], counts["explained"], counts["unexplained"], counts[SAME], counts[BROKEN])

    def _sum_up(self, by_file):
        noticed = self.totals[KILLED] + self.totals["unexplained"] + self.totals["explained"]
        print("\nall: %s; %.1f %% of %d killed; %.2f s a fault with %d jobs" % (
            self._summary(self.totals), 100.0 * self.totals[KILLED] / max(1, noticed), noticed,
            self.seconds / max(1, self.tried), self.arguments.jobs))
        stale = []
        if not self.arguments.sample:
            for file, (source, mutants) in by_file.items():
                there = collections.Counter((file,) + mutant.lines(source) for mutant in mutants)
                stale += [entry for entry in self.explained.entries
                          if entry[0] == file and there[entry] < self.explained.entries[entry]]
        for file, before, after in stale:
            print("equivalent.txt explains what is no fault of %s (any more):\n- %s\n+ %s" % (file, before, after))
        return 1 if self.totals["unexplained"] or stale else 0


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutants", description=__doc__)
    parser.add_argument("files", nargs="*", help="sources and headers, from the project's root; all if none is given")
    parser.add_argument("--sample", type=int, help="try this many faults only, chosen by --seed")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("-j", "--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--fresh", action="store_true", help="forget what came out before")
    parser.add_argument("--list", action="store_true", help="list the faults and try none")
    parser.add_argument("--report", help="the folder for the lists of survivors, one a file; build/release/mutants if not given")
    os.umask(0o022)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # so that the scratch folder goes
    sys.exit(Run(parser.parse_args()).go())


if __name__ == "__main__":
    main()
