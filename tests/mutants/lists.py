"""The lists that a run reads and writes."""
import collections
import hashlib
import threading

from common import HERE, fail


class Explained:
    """The survivors that are no gap, from equivalent.txt: each entry explains one."""

    def __init__(self, path):
        self.path = path
        self.entries = collections.Counter()
        file, before, after = None, None, None
        for number, line in enumerate(path.read_text().splitlines(), 1):
            kind, text = line[:2], line[2:].strip()
            if not line.strip() or line.startswith("#"):
                continue
            if kind == "- ":
                before, after = text, None
            elif kind == "+ ":
                after = text
            elif kind == "= " and file and before is not None and after is not None:
                self.entries[file, before, after] += 1
                before = after = None
            elif kind == "  ":
                pass  # the reason goes on
            elif not line[0].isspace() and before is None:
                file = line.strip()
            else:
                fail("%s:%d: not understood: %s" % (path.name, number, line))
        self.left = collections.Counter(self.entries)

    def takes(self, file, before, after):
        if self.left[file, before, after] == 0:
            return False
        self.left[file, before, after] -= 1
        return True


class Results:
    """What came out, a line each, so that an interrupted run can go on."""

    def __init__(self, path, fresh):
        self.path, self.known, self.lock = path, {}, threading.Lock()
        if path is None:
            return
        path.parent.mkdir(parents=True, exist_ok=True)
        if fresh:
            path.unlink(missing_ok=True)
        for line in path.read_text().splitlines() if path.exists() else ():
            key, outcome, told = line.split("\t")[:3]
            self.known[key] = (outcome, told)

    def add(self, key, outcome, told, seconds, file, number, lines):
        if self.path is None:
            return
        with self.lock, open(self.path, "a") as stream:
            stream.write("\t".join([key, outcome, told, "%.2f" % seconds, file, str(number), *lines]) + "\n")


def programs_of_files():
    """From programs.txt: which test programs concern a file, the most likely to notice a fault first."""
    table = {}
    for line in (HERE / "programs.txt").read_text().splitlines():
        if line.strip() and not line.startswith("#"):
            files, _, programs = line.partition(":")
            for file in files.split():
                table[file] = programs.split()
    return table


def keys_of(file, source, mutants):
    """What a fault is known by from run to run, as long as the lines around it stay: a key for each, in order."""
    seen = collections.Counter()
    keys = []
    for mutant in mutants:
        excerpt = mutant.excerpt(source)
        seen[excerpt] += 1
        keys.append(hashlib.sha1(("%s\0%d\0%s" % (file, seen[excerpt], excerpt)).encode()).hexdigest())
    return keys
