"""`numora eval` and `call`, from outside."""

import json
import os
import signal
import subprocess
import unittest

from numora_program import NUMORA, Signal, run, start


class EvalTest(unittest.TestCase):
    def test_successful_code_prints_to_standard_output_only(self):
        rows = {
            "print and text beyond the basic plane": (["print('grüße 😀')"], "grüße 😀\n"),
            "one interpreter for all": (["x = 20", "def f(y):\n    return x + y", "f(1)"], "21\n"),
            "brackets do not mean several codes": (["[1, 2]", "{}"], "[1, 2]\n{}\n"),
            "the name of a command is code": (["console = 3", "console"], "3\n"),
            "code that begins with a dash": (["--", "-4"], "-4\n"),
            "standard input between other code": (["y = 5", "-", "y"], "6\n"),
            "output of a child process": (["import os", "_ = os.system('echo child')"], "child\n"),
            "window size": (["--width", "41", "--height", "7", "import shutil; tuple(shutil.get_terminal_size())"],
                            "(41, 7)\n"),
        }
        for name, (arguments, expected) in rows.items():
            with self.subTest(name):
                self.assertEqual(run("eval", *arguments, stdin=b"y += 1"), (0, expected, ""))

    def test_what_the_c_library_says_at_an_abort_reaches_standard_error(self):
        status, _, err = run("eval", "import ctypes\n"
                             "ctypes.PyDLL(None).__assert_fail(b'good', b'native.c', 7, b'check')")
        self.assertEqual(status, -signal.SIGABRT)
        self.assertIn("native.c:7: check: Assertion `good' failed.", err)

    def test_json_is_one_line_for_each_response(self):
        status, out, err = run("eval", "--json", "print('a\\n\\x01\\u2028')", "oops")
        self.assertEqual((status, err, out.count("\n")), (1, "", 2))
        first, second = map(json.loads, out.rstrip("\n").split("\n"))
        self.assertEqual(first.pop("uuid").count("-"), 4)
        self.assertEqual(first, {"responseStr": "a\n\x01\u2028\n", "promptType": 0, "isError": False,
                                 "clearCommandWindow": False, "messageFaults": []})
        self.assertTrue(second["isError"])

    def test_output_and_errors_are_printed_apart_and_the_rest_still_runs(self):
        status, out, err = run("eval", "print('before'); 1 / 0", "n = input('Name? ')", "Ada", "n",
                               "while True: pass", "undefned = 1; undefnd", "--timeout", "1")
        self.assertEqual((status, out), (1, "before\nName? 'Ada'\n"))
        self.assertRegex(err, r"(?s)ZeroDivisionError: division by zero\n.*"
                              r"numora: the code timed out after 1 seconds\n.*Did you mean: undefned \?\n$")

    def test_stream_as_json_is_one_line_for_each_message_in_order(self):
        code = "import numora; print('gone'); numora.clc(); print('kept'); numora.home()"
        status, out, err = run("eval", "--stream", "--json", code)
        messages = [json.loads(line) for line in out.splitlines()]
        told = [(m["channel"].removeprefix("/eval/response/"), m["data"]) for m in messages]
        self.assertEqual((status, err), (0, ""))
        self.assertEqual(told, [("iqminput", "NO_PROMPT"), ("output", "gone\n"), ("commandwindow/clear", "clear"),
                                ("output", "kept\n"), ("commandwindow/home", "home"), ("iqminput", "BASE_PROMPT"),
                                ("completion", "Done: success")])

    def test_no_further_code_is_run_when_one_swallows_the_interrupt(self):
        read, write = os.pipe()
        self.addCleanup(os.close, read)
        self.addCleanup(os.close, write)
        code = ("import select\nwhile True:\n  try:\n    _ = select.select([%d], [], [], 20)\n    break\n"
                "  except KeyboardInterrupt:\n    pass" % read)
        told = b""
        with start("eval", "--timeout", "1", code, "print('second')", pass_fds=[read]) as process:
            for line in process.stderr:
                told += line
                if b"in spite of the interrupt" in line:
                    os.write(write, b"x")
            out = process.stdout.read()
        self.assertEqual((process.returncode, out, told),
                         (1, b"", b"numora: the code timed out after 1 seconds\n"
                                  b"numora: the code continues in spite of the interrupt\n"))

    def test_all_is_printed(self):
        status, out, _ = run("eval", "for i in range(4): print('x' * 30_000_000)")
        self.assertEqual((status, len(out)), (0, 120_000_004))

    def test_call_prints_results_as_json(self):
        self.assertEqual(run("call", "--nargout", "2", "divmod", "17", "5"), (0, "[3,2]\n", ""))
        self.assertEqual(run("call", "nowhere"),
                         (1, "", "numora: NUMORA.CodeError: NameError: there is no function named 'nowhere'\n"))

    def test_wrong_usage_and_bad_input_end_with_status_2(self):
        rows = {
            "no command": ([], b"", "\nCommands:\n  eval "),
            "unknown command": (["bogus"], b"", "numora: bogus is no command; there are call, console, deaths, eval, "
                                "interpreters, interrupt, kernel, restart, run, serve and status\n"),
            "unknown option": (["eval", "--bogus", "1"], b"", "numora: --bogus is no option of numora eval\nRun 'numora eval --help'"),
            "unknown option alone": (["eval", "--bogus"], b"", "numora: --bogus is no option of numora eval\n"),
            "no code": (["eval"], b"", "numora: CODE is required\n"),
            "fraction": (["eval", "--timeout", "1.5", "1"], b"",
                         "numora: --timeout must be an integer between 1 and 2147483\n"),
            "twice": (["eval", "--width", "5", "--width", "6", "1"], b"", "numora: --width must be given only once\n"),
            "no value": (["eval", "--width"], b"", "numora: --width needs a value\n"),
            "unknown level": (["--log-level", "loud", "eval", "1"], b"",
                              "numora: --log-level must be debug, info, warning or error\n"),
            "argument": (["eval", "1", b"ab\xff"], b"", "numora: CODE number 2 is not valid UTF-8: wrong byte at offset 2\n"),
            "cut sequence": (["eval", "-"], "aä".encode()[:-1],
                             "numora: standard input is not valid UTF-8: wrong byte at offset 1\n"),
            "standard input twice": (["eval", "-", "-"], b"1", "only once"),
            "argument of a call": (["call", "abs", "1,2"], b"", "numora: argument number 1: "),
        }
        for name, (arguments, stdin, message) in rows.items():
            with self.subTest(name):
                status, out, err = run(*arguments, stdin=stdin)
                self.assertEqual((status, out), (2, ""), err)
                self.assertIn(message, err)

    def test_code_that_waits_for_input_is_typed_the_next_code(self):
        rows = {
            "input": (["n = input('Name? ')", "Ada", "print('Hello', n)"], (0, "Name? Hello Ada\n", "")),
            "pause": (["import numora; numora.pause()", "", "3"], (0, "3\n", "")),
            "no more code": (["input('Name? ')"], (1, "Name? ", "numora: the code still waits for input\n")),
            "open block": (["for i in (1, 2):"],
                           (1, "", "numora: the code ends inside an open block and was not run\n")),
        }
        for name, (codes, expected) in rows.items():
            with self.subTest(name):
                self.assertEqual(run("eval", *codes), expected)

    def test_time_limit_ends_the_code_only_also_where_the_interrupt_signal_is_ignored(self):
        notice = "numora: the code timed out after 1 seconds\nTraceback"
        command = [NUMORA, "eval", "--timeout", "1", "while True: pass", "6 * 7"]
        for action in signal.SIG_DFL, signal.SIG_IGN:
            done = subprocess.run(command, capture_output=True, timeout=60, text=True,
                                  preexec_fn=lambda: signal.signal(signal.SIGINT, action))
            self.assertEqual((done.returncode, done.stdout, done.stderr[:len(notice)]), (1, "42\n", notice))

    def test_interrupt_signal_ends_the_running_code_only(self):
        with Signal() as begun:
            with start("eval", begun.code + "\nwhile True: pass", "7") as process:
                begun.wait()
                process.send_signal(signal.SIGINT)
                out, err = process.communicate(timeout=60)
        self.assertEqual((process.returncode, out), (1, b"7\n"), err)
        self.assertTrue(err.endswith(b"KeyboardInterrupt\n"), err)

    def test_closed_pipe_ends_quietly(self):
        read, write = os.pipe()
        os.close(read)
        done = subprocess.run([NUMORA, "eval", "1", "2"], stdout=write, stderr=subprocess.PIPE, timeout=60)
        os.close(write)
        self.assertEqual((done.returncode, done.stderr), (1, b""))
