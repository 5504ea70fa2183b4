"""How the library and its tests are built, and built anew with a fault in them."""
import functools
import hashlib
import json
import os
import re
import shlex
import shutil
import subprocess
from pathlib import Path

from common import SOURCE, run

COMPILE_OPTIONS = ["-O0", "-g0", "-w"]


class Build:
    """What a build tree tells: how its objects are compiled, and its programs linked."""

    def __init__(self, folder):
        self.folder = Path(folder).resolve()
        self.library = self.folder / "libkxPAL_impl.so"
        self.commands = {}
        for entry in json.loads((self.folder / "compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            words = words[1:] if os.path.basename(words[0]) == "ccache" else words
            self.commands[words[words.index("-o") + 1]] = words
        self.sources = {os.path.relpath(self._source_of(words), SOURCE): object_file
                        for object_file, words in self.commands.items() if "/kxPAL_objects.dir/" in object_file}
        self.library_link = self._link_command("libkxPAL_impl.so")
        self._headers = self._headers_of_objects()

    def _source_of(self, words):
        return words[words.index("-c") + 1]

    def _link_command(self, target):
        text = run(["ninja", "-t", "commands", "-s", target], self.folder, "asking ninja for the link of " + target)
        words = shlex.split(text.strip().splitlines()[-1])
        # CMake puts the linker between ": &&" and "&& :".
        words = words[words.index("&&") + 1:] if "&&" in words else words
        return words[:words.index("&&")] if "&&" in words else words

    def program_link(self, program):
        return self._link_command("tests/" + program)

    def _headers_of_objects(self):
        real = functools.lru_cache(None)(os.path.realpath)
        headers = {}
        for block in run(["ninja", "-t", "deps"], self.folder, "asking ninja for the headers").split("\n\n"):
            name, _, rest = block.strip().partition(":")
            headers[name] = {real(self.folder / line.strip()) for line in rest.splitlines()[1:]}
        return headers

    def depends(self, object_file, header):
        """Whether the object was made from the header."""
        return str(SOURCE / header) in self._headers.get(object_file, ())


class Compiler:
    """Compiles objects of the build anew: from a copy of the sources, without optimisation or warnings."""

    def __init__(self, build, scratch):
        self.build = build
        self.scratch = scratch
        names = self._system_headers()
        self.precompiled = {
            True: self._precompile("library.h", names, next(iter(build.sources.values()))),
            False: self._precompile("tests.h", names | {"<gmock/gmock.h>"},
                                    next(name for name in build.commands if name.endswith("_test.cpp.o")))}

    @staticmethod
    def _system_headers():
        names = set()
        for path in list((SOURCE / "src").glob("*/*")) + list((SOURCE / "inc").glob("*.h")):
            names.update(re.findall(r"^#include (<[^>]+>)", path.read_text(), re.MULTILINE))
        return names

    def _precompile(self, file, names, like):
        """One header for all that is included of the system's, which takes longer to read than all else."""
        header = self.scratch / file
        header.write_text("".join("#include %s\n" % name for name in sorted(names)))
        words = self.command(like, SOURCE, str(header) + ".gch", use=False)
        words[words.index("-c") + 1] = str(header)
        run(words[:1] + ["-x", "c++-header"] + words[1:], self.scratch, "precompiling")
        return header

    def command(self, object_file, tree, output, use=True, options=()):
        words = []
        for word in self.build.commands[object_file]:
            word = word.replace(str(self.build.folder / "include"), str(tree / "include"))
            word = re.sub(re.escape(str(SOURCE)) + r"(?=/(src|inc|tests)(/|$)|/=)", str(tree), word)
            words.append(word)
        words = [word for word in words if not re.match(r"-(O|g|W|M)|.*\.d$", word) or word == "-g"]
        words[words.index("-o") + 1] = str(output)
        is_library = "/kxPAL_objects.dir/" in object_file
        include = ["-include", str(self.precompiled[is_library])] if use and object_file.endswith(".cpp.o") else []
        return words[:1] + include + words[1:] + COMPILE_OPTIONS + list(options)

    def compile(self, object_file, tree, output, options=()):
        """Whether it compiles."""
        use = "-O2" not in options
        command = self.command(object_file, tree, output, use, options)
        try:
            return subprocess.run(command, cwd=self.build.folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                  timeout=120).returncode == 0
        except subprocess.TimeoutExpired:
            return False


class Program:
    """A test program: what it is linked from, and how long it takes when there is no fault."""

    def __init__(self, build, name):
        self.name = name
        self.path = build.folder / "tests" / name
        self.link = build.program_link(name)
        self.objects = [word for word in self.link if word.endswith(".o")]
        self.is_white_box = any("/kxPAL_objects.dir/" in word for word in self.objects)
        self.limit = 60.0


def digest(path):
    return hashlib.sha1(Path(path).read_bytes()).hexdigest()


class Bench:
    """A copy of the sources with one fault at a time, and what is built from it. Each worker has one."""

    def __init__(self, build, compiler, base, folder):
        self.build, self.compiler, self.base = build, compiler, base
        self.tree = folder / "tree"
        self.out = folder / "out"
        self.out.mkdir(parents=True)
        for name in ("src", "inc", "tests"):
            shutil.copytree(SOURCE / name, self.tree / name)
        (self.tree / "include").mkdir()
        (self.tree / "include" / "kxPAL").symlink_to(self.tree / "inc")
        self.library = self.out / "libkxPAL_impl.so"

    def objects_of(self, file):
        """The library's objects that are made from the file."""
        if file in self.build.sources:
            return [self.build.sources[file]]
        return [name for name in self.build.sources.values() if self.build.depends(name, file)]

    def compile(self, names, options=()):
        """Which objects came out, by name; None when one did not."""
        made = {}
        for number, name in enumerate(names):
            output = self.out / ("%d%s.o" % (number, "".join(options)))
            if not self.compiler.compile(name, self.tree, output, options):
                return None
            made[name] = output
        return made

    def link(self, command, made, output):
        words = [str(made.get(word) or self.base.get(word) or word) for word in command]
        words[words.index("-o") + 1] = str(output)
        words = [word for word in words if not word.startswith("-Wl,--dependency-file")]
        return subprocess.run(words + ["-fuse-ld=gold"], cwd=self.build.folder, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL).returncode == 0
