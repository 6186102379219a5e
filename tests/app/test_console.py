"""`numora console` at a terminal, with an interpreter of its own and with a server, and with a script."""

import fcntl
import os
import pty
import re
import select
import signal
import stat
import struct
import tempfile
import termios
import time
import unittest

from numora_program import NUMORA, Server, Signal, run

OPEN, CLOSED = "\x1b[?2004h", "\x1b[?2004l"  # what comes first and last of a prompt that edits
CONTROL = re.compile(r"\x1b\[[0-9;?]*[A-Za-z]|\x1b[=>78]|[\x07\r]")


class Terminal:
    """A program at a terminal of its own."""

    def __init__(self, *arguments, program=NUMORA, **environment):
        self.text = ""
        self._seen = 0
        self.pid, self._fd = pty.fork()
        if self.pid == 0:
            os.execve(program, [program, *arguments], dict(os.environ, LC_ALL="C.UTF-8", **environment))
        fcntl.ioctl(self._fd, termios.TIOCSWINSZ, struct.pack("4H", 40, 100, 0, 0))

    def send(self, text):
        os.write(self._fd, text.encode())

    def expect(self, wanted):
        """Waits until `wanted` comes, after what was waited for before; returns what came with it, without colours."""
        deadline = time.monotonic() + 60
        while (at := self.text.find(wanted, self._seen)) < 0:
            if time.monotonic() > deadline or not self._receive(1):
                raise AssertionError(f"{wanted!r} does not come after {self.text!r}")
        skipped = self.text[self._seen:at]
        self._seen = at + len(wanted)
        return CONTROL.sub("", skipped)

    def enter(self, text, question=">>>"):
        """What comes between the line and the next prompt."""
        self.send(text + "\r")
        self.expect(CLOSED)
        came = self.expect(OPEN)
        self.expect(question)
        return came.rstrip(" ").removesuffix(question)  # which is printed before the editor takes it over

    def _receive(self, seconds):
        if not select.select([self._fd], [], [], seconds)[0]:
            return True
        try:
            self.text += os.read(self._fd, 65536).decode("utf-8", "replace")
        except OSError:  # the other side is closed
            return False
        return True

    def wait(self):
        while self._receive(60):
            pass
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])

    def close(self):
        try:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        except (ProcessLookupError, ChildProcessError):
            pass
        os.close(self._fd)


class TerminalTest(unittest.TestCase):
    def setUp(self):
        self.state = self.enterContext(tempfile.TemporaryDirectory())

    def open(self, *options, program=NUMORA, **environment):
        environment = {"TERM": "xterm", "XDG_STATE_HOME": self.state, **environment}
        terminal = Terminal("console", *options, program=program, **environment)
        self.addCleanup(terminal.close)
        terminal.greeting = terminal.expect(">>>")
        return terminal


class ConsoleTest(TerminalTest):
    def test_blocks_commands_and_completion(self):
        terminal = self.open(MARKED="5")
        self.assertIn(", Python 3.", terminal.greeting)
        terminal.send("for i in (1, 2):\r")
        terminal.expect("... ")  # the editor indents
        self.assertEqual(terminal.enter("print(i)\r"), "1\n2\n")
        self.assertEqual(terminal.enter("\x1b[A"), "1\n2\n")  # recalled as a whole
        pasted = "class Point:\n    x = 1\n\n    def double(self):\n        return 2 * self.x\n\nPoint().double()\n"
        self.assertEqual(terminal.enter(f"\x1b[200~{pasted}\x1b[201~"), "2\n")
        terminal.enter("import os")
        terminal.send("os.environ['MAR\t")
        terminal.expect("KED")  # which only the mapping's own code can tell, while no other runs
        self.assertEqual(terminal.enter("']"), "'5'\n")
        terminal.send("Point.dou\t")
        terminal.expect("ble")  # of "double"
        self.assertEqual(terminal.enter("(Point())"), "2\n")
        self.assertIn("Call:  Point.double(self)\n", terminal.enter("Point.double?"))
        self.assertIn("return 2 * self.x\n", terminal.enter("Point.double??"))
        self.assertRegex(terminal.enter("%time _ * 10"), r"^Time: .*\n20\n$")
        self.assertEqual(terminal.enter("!echo a; echo b >&2; cat"), "a\nb\n")
        self.assertEqual(terminal.enter(f"%cd {self.state}"), os.path.realpath(self.state) + "\n")
        program = os.path.join(self.state, "program.py")
        with open(program, "w") as file: file.write("import sys; print(__name__, sys.argv[1:])")
        self.assertEqual(terminal.enter("%run program.py 'a b' c"), "__main__ ['a b', 'c']\n")
        came = terminal.enter(f"\x1b[200~%pwd\n!echo a\\\nb\nfor i in 1, 2:\n    i\ni\x1b[201~")
        self.assertEqual(came, f"{os.path.realpath(self.state)}\nab\n2\n")
        self.assertIn("%who takes no argument", terminal.enter("\x1b[200~%who 1\ni = 0\x1b[201~"))
        self.assertEqual(terminal.enter("i"), "2\n")
        self.assertIn("there is no %bogus", terminal.enter("%bogus"))
        self.assertIn("begun its life number 2", terminal.enter("%restart"))
        self.assertIn("NameError", terminal.enter("Point"))
        terminal.send("abc\x03")  # discards
        terminal.expect(CLOSED)
        terminal.expect(">>>")
        self.assertEqual(terminal.enter("5"), "5\n")
        self.assertEqual(terminal.enter("def f(a):\r    b = a\r\r    return b\rf(5)"), "5\n")  # sent by a program
        terminal.send("exit(4)\r")
        self.assertEqual(terminal.wait(), 4)
        path = os.path.join(self.state, "numora", "history")
        self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
        again = self.open()
        self.assertEqual(again.enter("\x1b[A" * 2), "5\n")
        again.send("\x04")
        self.assertEqual(again.wait(), 0)

    def test_output_is_live_and_control_c_interrupts(self):
        terminal = self.open("--no-color")
        with Signal() as begun:
            terminal.send(f"print('\\r10%', end='\\r20%'); {begun.code}; [None for _ in iter(int, 1)]\r")
            begun.wait()
            terminal.expect("\r10%\r20%")
        terminal.send("\x03")
        terminal.expect("KeyboardInterrupt")
        terminal.expect(">>>")
        self.assertEqual(terminal.enter("9"), "9\n")

    def test_prompts_of_code(self):
        terminal = self.open()
        terminal.enter("name = input('first\\n\\tName? ')", "Name?")
        self.assertNotIn("^I", terminal.text)
        self.assertEqual(terminal.enter("Ada"), "")
        terminal.enter("import getpass; word = getpass.getpass()", "Password:")
        terminal.enter("xyzzy")
        self.assertNotRegex(terminal.text, r"xyzzy|\*")
        self.assertEqual(terminal.enter("name, word"), "('Ada', 'xyzzy')\n")
        terminal.enter("breakpoint()", "(Pdb)")
        self.assertEqual(terminal.enter("p name", "(Pdb)"), "'Ada'\n")
        terminal.enter("c")
        terminal.enter("input('? ')", "?")
        terminal.send("\x04")
        terminal.expect("EOFError")
        terminal.expect(">>>")
        terminal.enter("import numora; numora.keyboard()", "K>>")
        terminal.send("12\x03")
        terminal.expect("KeyboardInterrupt")
        terminal.expect("K>>")
        terminal.enter("exit()")
        with open(os.path.join(self.state, "numora", "history")) as file:
            self.assertNotIn("Ada\n", file.read())

    def test_colours(self):
        red = "\x1b[31mTraceback"
        for options, environment, coloured in ([], {}, True), (["--no-color"], {}, False), ([], {"NO_COLOR": "1"}, False):
            with self.subTest(options=options, environment=environment):
                terminal = self.open(*options, **environment)
                self.assertIn("ZeroDivisionError", terminal.enter("1 / 0"))
                self.assertEqual(red in terminal.text, coloured)
                self.assertEqual(bool(re.search(r"\x1b\[[0-9;]*3[0-9]", terminal.text)), coloured)

    def test_its_interpreter_ends_with_it(self):
        terminal = self.open()
        server = int(terminal.enter("import os; os.getppid()"))
        descriptor = os.pidfd_open(server)
        self.addCleanup(os.close, descriptor)
        os.kill(terminal.pid, signal.SIGKILL)
        self.assertTrue(select.select([descriptor], [], [], 60)[0])

    def test_lines_are_plain_without_its_libraries(self):
        prefix = self.enterContext(tempfile.TemporaryDirectory(dir=os.path.dirname(os.path.dirname(NUMORA))))
        package = os.path.join(prefix, "share/numora/python/numora_client")
        os.makedirs(package)
        os.mkdir(os.path.join(prefix, "bin"))
        program = os.path.join(prefix, "bin/numora")
        os.link(NUMORA, program)
        with open(os.path.join(package, "__init__.py"), "w") as file: file.write("import prompt_toolkit_is_missing")
        for environment in {}, {"TERM": "dumb"}:
            terminal = self.open(program=program, **environment)
            self.assertEqual("install python3-prompt-toolkit" in terminal.text, not environment)
            self.assertNotIn(OPEN, terminal.text)
            terminal.send("print(6 * 7)\n")
            terminal.expect("42")
            terminal.expect(">>>")
            terminal.send("\x04")
            self.assertEqual(terminal.wait(), 0)

    def test_script_on_standard_input(self):
        script = "x = 6\nfor i in (1, 2):\n    x += i\n\ninput('? ')\nline\n1 / 0\nif x:\n    print('ä', x)\n\nquit()\n7"
        with Server() as server:
            for options in [], ["--url", server.url]:
                status, out, err = run("console", *options, stdin=script.encode())
                self.assertEqual((status, out), (0, "? 'line'\nä 9\n"))
                self.assertIn("ZeroDivisionError", err)


class RemoteConsoleTest(TerminalTest):
    def test_a_second_console_a_crash_and_the_end_of_the_server(self):
        with Server() as server:
            first, second = (self.open("--url", server.url, "--no-color") for _ in range(2))
            self.assertIn('interpreter "default" at http:', first.greeting)
            self.assertNotIn(server.token, first.text)
            first.enter("x = input('Name? ')", "Name?")
            second.send("'x' in globals()\r")
            second.expect("The interpreter waits for input of other code")
            second.send("\x03")
            second.expect(">>>")
            self.assertIn("Call:  len(obj, /)\n", second.enter("len?"))  # at once
            first.enter("Ada")
            first.enter("import os; os._exit(3)")
            self.assertIn('The interpreter "default" has died: it exited with status 3', first.text)
            second.expect('The interpreter "default" has died: it exited with status 3')
            self.assertEqual(first.enter("'x' in globals()"), "False\n")
            self.assertEqual(run("restart", "--url", server.url)[0], 0)
            second.expect("was restarted by a client")
            second.send("import time; print('be' 'gun'); time.sleep(60)\r")
            second.expect("begun")
            server.stop(signal.SIGKILL)
            second.expect("connection to the server is lost")
            second.send("\x03")
            second.expect(">>>")
            with Server(port=server.port):
                self.assertIn("was started again", second.enter("1 + 1"))
                self.assertEqual(second.enter("1 + 1"), "2\n")
