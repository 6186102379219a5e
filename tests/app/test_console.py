"""`numora console` at a terminal, in process and with a server, and with a script."""

import os
import pty
import re
import select
import signal
import stat
import tempfile
import time
import unittest

from numora_program import NUMORA, Server, run

CONTROL = re.compile(r"\x1b\[[0-9;?]*[A-Za-z]|\x1b[=>78]|[\x07\r]")


class Terminal:
    """A console at a terminal of its own."""

    def __init__(self, state, *options):
        self.text = ""
        self._seen = 0
        self.pid, self._fd = pty.fork()
        if self.pid == 0:
            environment = dict(os.environ, TERM="xterm", XDG_STATE_HOME=state, LC_ALL="C.UTF-8")
            os.execve(NUMORA, [NUMORA, "console", *options], environment)

    def send(self, text):
        os.write(self._fd, text.encode())

    def expect(self, wanted):
        """Waits until `wanted` comes, after what was waited for before; returns what came with it."""
        deadline = time.monotonic() + 60
        while (at := self.text.find(wanted, self._seen)) < 0:
            if time.monotonic() > deadline or not self.receive(1):
                raise AssertionError(f"{wanted!r} does not come after {self.text!r}")
        skipped = self.text[self._seen:at]
        self._seen = at + len(wanted)
        return skipped

    def enter(self, line, wanted):
        self.send(line + "\r")
        self.expect(line)  # the echo
        return self.expect(wanted)

    def receive(self, seconds):
        if not select.select([self._fd], [], [], seconds)[0]:
            return True
        try:
            data = os.read(self._fd, 65536)
        except OSError:  # the other side is closed
            return False
        self.text += CONTROL.sub("", data.decode())
        return True

    def wait(self):
        while self.receive(60):
            pass
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])

    def close(self):
        try:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        except (ProcessLookupError, ChildProcessError):
            pass
        os.close(self._fd)


class ConsoleTest(unittest.TestCase):
    def setUp(self):
        state = tempfile.TemporaryDirectory()
        self.addCleanup(state.cleanup)
        self.state = state.name

    options = []

    def open(self):
        terminal = Terminal(self.state, *self.options)
        self.addCleanup(terminal.close)
        terminal.expect(">>> ")
        return terminal

    def test_lines_blocks_and_end(self):
        terminal = self.open()
        self.assertEqual(terminal.enter("'ä' * 2", ">>> "), "\n'ää'\n")
        terminal.enter("for i in (1, 2):", "... ")
        terminal.enter("    if i:", "... ")
        terminal.enter("        print(i)", "... ")
        self.assertEqual(terminal.enter("", ">>> "), "\n1\n2\n")
        terminal.enter("if False: pass", ">>> ")
        terminal.enter("text = '''", "... ")
        terminal.enter("no code", "... ")
        terminal.enter("'''", ">>> ")
        self.assertEqual(terminal.enter("text", ">>> "), "\n'\\nno code\\n'\n")
        terminal.enter("import numora; print('gone'); numora.clc(); print('kept')", "kept\n>>> ")
        self.assertNotIn("gone\n", terminal.text)
        terminal.send("\x04")
        self.assertEqual(terminal.wait(), 0)

    def test_prompts_are_answered_in_place(self):
        terminal = self.open()
        terminal.enter("name = input('first\\nName? ')", "\nfirst\nName? ")
        self.assertEqual(terminal.enter("Ada", ">>> "), "\n")
        self.assertEqual(terminal.enter("name", ">>> "), "\n'Ada'\n")
        terminal.enter("breakpoint()", "(Pdb) ")
        self.assertEqual(terminal.enter("p name", "(Pdb) "), "\n'Ada'\n")
        self.assertNotIn(">>>", terminal.enter("c", "\n"))
        terminal.expect(">>> ")

    def test_control_c_discards_the_line_that_is_edited(self):
        terminal = self.open()
        terminal.enter("def f():", "... ")
        terminal.send("    oops\x03")
        terminal.expect("^C\n>>> ")
        self.assertEqual(terminal.enter("5", ">>> "), "\n5\n")

    def test_control_c_interrupts_running_code(self):
        terminal = self.open()
        marker = os.path.join(self.state, "running")
        terminal.send("open(%r, 'w').close(); [None for _ in iter(int, 1)]\r" % marker)
        while not os.path.exists(marker):
            terminal.receive(0.01)
        terminal.send("\x03")
        terminal.expect("KeyboardInterrupt\n>>> ")
        self.assertEqual(terminal.enter("9", ">>> "), "\n9\n")

    def test_control_c_interrupts_a_prompt(self):
        terminal = self.open()
        terminal.enter("n = input('Number? ')", "\nNumber? ")
        terminal.send("12\x03")
        self.assertIn("Traceback", terminal.expect("KeyboardInterrupt\n>>> "))
        terminal.enter("try: input('? ')", "... ")
        terminal.enter("except KeyboardInterrupt: print('caught')", "? ")
        terminal.send("\x03")
        terminal.expect("caught\n>>> ")
        terminal.enter("import numora; numora.keyboard()", "K>> ")
        terminal.send("\x03")
        terminal.expect("KeyboardInterrupt\nK>> ")
        self.assertEqual(terminal.enter("40 + 2", "K>> "), "\n42\n")
        terminal.enter("exit()", ">>> ")
        self.assertEqual(terminal.enter("8", ">>> "), "\n8\n")

    def test_history_is_kept_for_the_user_alone(self):
        terminal = self.open()
        terminal.enter("'remembered'", ">>> ")
        terminal.enter("input('Secret? ')", "Secret? ")
        terminal.enter("xyzzy", ">>> ")
        terminal.send("\x04")
        terminal.wait()
        path = os.path.join(self.state, "numora", "history")
        self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
        with open(path) as file:
            self.assertNotIn("xyzzy", file.read())
        terminal = self.open()
        terminal.send("\x1b[A\x1b[A\r")
        terminal.expect("\n'remembered'\n>>> ")

    def test_script_on_standard_input(self):
        script = "x = 6\nfor i in (1, 2):\n    x += i\n\ninput('? ')\nline\n1 / 0\nif x:\n    print('ä', x)"
        status, out, err = run("console", *self.options, stdin=script.encode())
        self.assertEqual((status, out), (0, "? 'line'\nä 9\n"))
        self.assertIn("ZeroDivisionError", err)


class RemoteConsoleTest(ConsoleTest):
    def setUp(self):
        super().setUp()
        self.server = self.enterContext(Server())
        self.options = ["--url", self.server.url]

    def test_goes_on_in_another_life_of_an_interpreter_that_dies(self):
        terminal = self.open()
        terminal.enter("import ctypes; x = input('Name? '); ctypes.string_at(0)", "Name? ")
        self.assertEqual(terminal.enter("Ada", ">>> "),
                         '\nnumora: The interpreter "default" has died: SIGSEGV (segmentation fault) while it ran '
                         'connector/v1/Eval. Its variables are lost; the next request starts it anew.\n')
        self.assertEqual(terminal.enter("'x' in globals()", ">>> "), "\nFalse\n")
        self.assertEqual(run("restart", *self.options)[0], 0)
        self.assertIn("numora: the interpreter was started anew since", terminal.enter("5", "\n5\n>>> "))
        terminal.enter("x = input('Password? ')", "Password? ")
        self.assertEqual(run("restart", *self.options)[0], 0)
        self.assertEqual(terminal.enter("print('typed')", ">>> "),
                         "\nnumora: the interpreter was started anew since the last request; what was before is lost\n")
        self.assertEqual(terminal.enter("'x' in globals()", ">>> "), "\nFalse\n")

    def test_a_server_that_goes_away_ends_it_with_status_1(self):
        terminal = self.open()
        self.server.stop(signal.SIGKILL)
        terminal.enter("1", "numora: cannot connect to http://127.0.0.1:")
        self.assertEqual(terminal.wait(), 1)
