"""`jupyter console` at a terminal, and a second one that joins its kernel."""

import pathlib
import shutil
import time
import unittest

import pexpect

import kernels
from numora_program import LIMIT


class TerminalTest(unittest.TestCase):
    def start(self, *arguments):
        console = pexpect.spawn(shutil.which("jupyter-console", path="/usr/bin"), ["--simple-prompt", "--no-confirm-exit", *arguments],
                                timeout=LIMIT, encoding="utf-8", dimensions=(40, 120))
        self.addCleanup(console.close, True)
        console.expect_exact("In [")
        return console

    def enter(self, console, line, *expected):
        """What comes before the next question."""
        console.sendline(line)
        for text in expected:
            console.expect_exact(text)
        console.expect_exact("In [")
        return console.before

    def test_a_session_and_a_second_one_beside_it(self):
        console = self.start("--kernel", kernels.NAME)
        self.enter(console, "6 * 7", "Out[1]: 42")
        self.enter(console, "print('one'); import sys; print('two', file=sys.stderr)", "one", "two")
        console.sendline("name = input('Who? ')")
        console.expect_exact("Who? ")
        self.enter(console, "Ada")
        console.sendline("import getpass; word = getpass.getpass('Word: ')")
        console.expect_exact("Word: ")
        self.assertNotIn("hidden", self.enter(console, "hidden"))
        self.enter(console, "name, word", "('Ada', 'hidden')")
        self.enter(console, "1 / 0", "ZeroDivisionError", "division by zero")

        file = next(pathlib.Path(kernels.FOLDER, "runtime").glob("kernel-*.json"))
        other = self.start("--existing", str(file))
        self.enter(other, "name", "'Ada'")
        self.enter(other, "from_there = 7")
        self.enter(console, "from_there + 1", "8")

        console.sendline("import time; print('begun', flush=True); time.sleep(60)")
        console.expect_exact("begun\r\n")
        begin = time.monotonic()
        console.sendintr()
        console.expect_exact("KeyboardInterrupt")
        console.expect_exact("In [")
        self.assertLess(time.monotonic() - begin, 10)  # two on a machine that has time

        self.enter(other, "print('still here')", "still here")
        other.sendeof()
        other.expect(pexpect.EOF)
        self.enter(console, "'after it'", "'after it'")
        console.sendline("exit")
        console.expect(pexpect.EOF)
        console.close()
        self.assertEqual((console.exitstatus, console.signalstatus), (0, None))
        self.assertFalse(file.exists())


if __name__ == "__main__":
    unittest.main()
