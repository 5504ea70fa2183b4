"""Runs programs where they can do no harm."""
import os
import shlex
import signal
import subprocess

from common import HERE, SOURCE, fail

NOBODY = 65534
# As the tests have it from CTest, but for the first.
ENVIRONMENT = {"GTEST_FAIL_FAST": "1", "G_SLICE": "always-malloc", "G_DEBUG": "", "GTEST_DEATH_TEST_STYLE": "threadsafe"}


class Sandbox:
    """Runs programs where they can do no harm; what is in it says sandbox.sh."""

    def __init__(self, build):
        # Root without rights over anything outside: the user "nobody" in a user namespace, or who calls.
        self.prefix = ["unshare", "--user", "--map-root-user", "--mount", "--pid", "--net", "--ipc", "--fork",
                       "--kill-child", "--mount-proc", "bash", str(HERE / "sandbox.sh"), str(SOURCE), str(build.library)]
        if os.geteuid() == 0:
            self.prefix = ["setpriv", "--reuid=%d" % NOBODY, "--regid=%d" % NOBODY, "--clear-groups"] + self.prefix
        self.environment = {**os.environ, **ENVIRONMENT}

    def run(self, library, words, limit):
        """The exit status, None when the time is over, and the output."""
        child = subprocess.Popen(self.prefix + [str(library)] + words, cwd="/", env=self.environment, text=True,
                                 errors="replace", stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                 stderr=subprocess.STDOUT, start_new_session=True)
        try:
            output = child.communicate(timeout=limit)[0]
        except subprocess.TimeoutExpired:
            os.killpg(child.pid, signal.SIGKILL)
            child.communicate()
            return None, ""
        if child.returncode == 97:
            fail("the sandbox cannot be set up: %s\n%s" % (shlex.join(self.prefix), output))
        return child.returncode, output
