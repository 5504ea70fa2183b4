"""What the parts of scripts/mutants share."""
import shlex
import subprocess
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
SOURCE = HERE.parent.parent
KILLED, SURVIVED, BROKEN, SAME = "killed", "survived", "does not compile", "same code"


def fail(text):
    sys.exit("mutants: " + text)


def run(command, folder, what):
    done = subprocess.run(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        fail("%s: %s\n%s" % (what, shlex.join(command), done.stdout[-4000:]))
    return done.stdout
