"""`numora eval` and `call` with `--url`: as in process, but against a server."""

import concurrent.futures
import http.server
import json
import os
import re
import signal
import socket
import subprocess
import tempfile
import threading
import unittest

from numora_program import TOKEN, CuttingProxy, Server, Signal, run, start

UUID_OR_NUMBER = re.compile(r'"(uuid|request)":"[^"]*",?|"seq":\d+,?')


def comparable(outcome):
    return outcome[0], UUID_OR_NUMBER.sub("", outcome[1]), outcome[2]


class SameAsInProcessTest(unittest.TestCase):
    """Every command gives the same status, output and errors with a new server as in process."""

    def check(self, rows, stdin=b""):
        for name, arguments in rows.items():
            with self.subTest(name), Server() as server:
                expected = run(*arguments, stdin=stdin)
                command, *rest = arguments
                remote = run(command, "--url", server.url, *rest, stdin=stdin)
                self.assertEqual(comparable(remote), comparable(expected))

    def test_eval(self):
        self.check({
            "success, failure and text beyond the basic plane": ["eval", "x = 6", "print('a 😀'); 1 / 0", "x * 7"],
            "input": ["eval", "n = input('Name? ')", "Ada", "print('Hello', n)", "input('? ')"],
            "pause": ["eval", "if 1:\n    import numora; numora.pause()", "", "3"],
            "open block": ["eval", "for i in (1, 2):", "5"],
            "time limit": ["eval", "--timeout", "1", "while True: pass", "6 * 7"],
            "much": ["eval", "for i in range(300): print(str(i) * 10_000)"],
            "stream as json": ["eval", "--stream", "--json", "import numora; print('gone <'); numora.clc(); numora.home()"],
            "json": ["eval", "--json", "undefned = '\\u2028<'; print(undefned)", "undefnd"],
        })

    def test_call(self):
        self.check({
            "unknown function": ["call", "nowhere"],
            "time limit": ["call", "--timeout", "1", "time.sleep", "60"],
        })


class RemoteTest(unittest.TestCase):
    def test_interrupt_signal_ends_the_running_code_only(self):
        with Signal() as begun, Server() as server:
            with start("eval", "--url", server.url, begun.code + "\nwhile True: pass", "7") as process:
                begun.wait()
                process.send_signal(signal.SIGINT)
                out, err = process.communicate(timeout=60)
        self.assertEqual((process.returncode, out), (1, b"7\n"), err)
        self.assertTrue(err.endswith(b"KeyboardInterrupt\n"), err)

    def test_code_of_another_process_that_waits_is_typed_a_line_and_followed(self):
        with Server() as server:
            def numora(*arguments):
                return run("eval", *arguments, NUMORA_URL=server.url)

            waits = (1, "? ", "numora: the code still waits for input\n")
            self.assertEqual(numora("n = input('? '); print('Hello', n); 1 / 0"), waits)
            status, out, err = numora("Ada")
            self.assertEqual((status, out), (1, "Hello Ada\n"))
            self.assertRegex(err, r"(?s)^numora: other code waited for input, and was typed this\nTraceback.*division by zero\n$")
            self.assertEqual(numora("n = input('? ')"), waits)
            self.assertEqual(numora("--json", "Bob")[0], 0)
            self.assertEqual(numora("n"), (0, "'Bob'\n", ""))

    def test_waiting_for_other_code_is_told(self):
        go = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), "go")
        os.mkfifo(go)
        with Signal() as begun, Server() as server:
            with start("eval", "--url", server.url, f"{begun.code}\n_ = open({go!r}).read()") as first:
                begun.wait()
                with start("eval", "--timeout", "1", "--url", server.url, "7") as second:
                    self.assertEqual(second.stderr.readline(),
                                     b"numora: the interpreter runs other code, which is waited for\n")
                    with open(go, "w") as end: end.write("x")
                    self.assertEqual((*second.communicate(timeout=60), second.returncode), (b"7\n", b"", 0))
            self.assertEqual(first.returncode, 0)

    def test_streams_of_two_users_are_apart(self):
        alice = "for i in range(400): print('alice', i)"
        bob = "import sys\nfor i in range(400): print('bob', i, file=sys.stderr)\n1 / 0"
        with Server() as server:
            for turn in range(3):
                with concurrent.futures.ThreadPoolExecutor() as pool:
                    runs = [pool.submit(run, "eval", "--url", server.url, code) for code in (alice, bob)]
                status, output, errors = runs[0].result()
                self.assertEqual((status, output, errors), (0, "".join("alice %d\n" % i for i in range(400)), ""))
                status, output, errors = runs[1].result()
                self.assertEqual((status, output), (1, ""))
                self.assertEqual(errors[:errors.index("Traceback")], "".join("bob %d\n" % i for i in range(400)))
                self.assertTrue(errors.endswith("ZeroDivisionError: division by zero\n"), errors[-200:])

    def test_stream_that_lost_text_fails(self):
        code = "import numora\nfor i in range(4):\n  print('x' * 30_000_000)\n  numora.clc()"  # clc ends a message
        for options in [], ["--stream", "--json"]:
            with self.subTest(options), Server("--owner-wait", "0") as server:
                with start("eval", "--url", server.url, *options, code) as process:
                    process.stdout.read(1)  # the code runs
                    run("eval", "--url", server.url, "0")  # nothing more is read before all is printed
                    out, err = process.communicate(timeout=60)
                self.assertEqual(process.returncode, 1)
                self.assertEqual(b"numora: printed text was lost: " in err, not options)
                self.assertEqual(b'"/connector/dropped"' in out, bool(options))

    def test_stream_survives_cut_connections(self):
        go = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), "go")
        os.mkfifo(go)
        with Server("--allow-host", "127.0.0.1") as server, CuttingProxy(server.port) as proxy:
            code = f"print('one')\n_ = open({go!r}).read()\nprint('two')"
            with start("eval", "--url", f"http://127.0.0.1:{proxy.port}", "--token", TOKEN, code) as process:
                self.assertEqual(process.stdout.readline(), b"one\n")
                proxy.cut()
                with open(go, "w") as end: end.write("x")
                self.assertEqual((*process.communicate(timeout=60), process.returncode), (b"two\n", b"", 0))

    def test_lost_server_is_told(self):
        for options in [], ["--json"]:
            with self.subTest(options), Signal() as begun, Server() as server:
                code = f"import time\n{begun.code}\ntime.sleep(60)"
                with start("eval", *options, "--url", server.url, code) as process:
                    begun.wait()
                    server.stop(signal.SIGKILL)
                    out, err = process.communicate(timeout=60)
                self.assertEqual((process.returncode, out), (1, b""))
                self.assertRegex(err.decode(), r"^numora: (the connection is lost|cannot connect) to "
                                               r"http://127\.0\.0\.1:\d+/: [^\n]+\n$")

    def test_address_and_token_come_from_options_or_the_environment(self):
        with Server("--mock") as server:
            address = f"http://127.0.0.1:{server.port}"
            good = (0, "mock output", "")
            wrong = (1, "", "numora: the server answered with status 401: The token is missing or wrong.\n")
            other = "another-token-of-16"
            rows = {
                "the line of the server": (["--url", server.line], {"NUMORA_TOKEN": TOKEN}, good),
                "environment": ([], {"NUMORA_URL": address + "/", "NUMORA_TOKEN": TOKEN}, good),
                "the URL wins over the environment": (["--url", server.url], {"NUMORA_TOKEN": other}, good),
                "the option wins over the URL": (["--url", server.url, "--token", other], {}, wrong),
                "no token": (["--url", address], {}, wrong),
            }
            for name, (options, environment, expected) in rows.items():
                with self.subTest(name):
                    self.assertEqual(run("eval", *options, "1", **environment), expected)

    def test_bad_urls_and_tokens_end_with_status_2(self):
        rows = ["127.0.0.1:8350", "ftp://127.0.0.1/", "http://", "http://u@127.0.0.1/", "http://127.0.0.1:0/",
                "http://127.0.0.1/?tokn=x", "http://127.0.0.1/#x", "http://a b/", "http://127.0.0.1/?token=a%0Ab"]
        for url in rows:
            with self.subTest(url):
                status, out, err = run("eval", "--url", url, "1")
                self.assertEqual((status, out, err.count("\n")), (2, "", 1), err)
        self.assertEqual(run("eval", "--token", TOKEN, "1")[0], 2)

    def test_refusals_are_told(self):
        with tempfile.NamedTemporaryFile("w", suffix=".toml") as settings:
            settings.write("body_bytes = 1000\n")
            settings.flush()
            with Server("--mock", "--config", settings.name) as server:
                self.assertEqual(run("eval", "--url", server.url, "1" * 2000),
                                 (1, "", "numora: the server answered with status 413: The body is too large.\n"))
        with Answering(503, b'{"error": "The server is stopping."}') as url:
            self.assertEqual(run("eval", "--url", url, "1"),
                             (1, "", "numora: the server answered with status 503: The server is stopping.\n"))
        with Answering(200, b"{}", [("Connector-Dropped", "true")]) as url:
            self.assertEqual(run("eval", "--json", "--url", url, "1"),
                             (1, "{}\n", "numora: the code was not run, because an interrupt came while it waited\n"))
        with Answering(200, b"<html>") as url:
            self.assertIn("numora: the server's answer must be JSON: ", run("eval", "--url", url, "1")[2])
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = free.getsockname()[1]
        self.assertEqual(run("eval", "--url", f"http://127.0.0.1:{port}", "1"),
                         (1, "", f"numora: cannot connect to http://127.0.0.1:{port}/: Connection refused\n"))

    def test_certificates_are_verified(self):
        with tempfile.TemporaryDirectory() as folder:
            certificate, key = os.path.join(folder, "cert.pem"), os.path.join(folder, "key.pem")
            subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                            "-keyout", key, "-out", certificate, "-subj", "/CN=test", "-days", "2",
                            "-addext", "subjectAltName=IP:127.0.0.1"], check=True, capture_output=True)
            with Server("--mock", "--tls-cert", certificate, "--tls-key", key) as server:
                trusted = {"SSL_CERT_FILE": certificate}
                self.assertEqual(run("eval", "--url", server.url, "1", **trusted), (0, "mock output", ""))
                rows = {"unknown issuer": (server.url, {}),
                        "other name": (server.url.replace("127.0.0.1", "localhost"), trusted)}
                for name, (url, environment) in rows.items():
                    with self.subTest(name):
                        status, out, err = run("eval", "--url", url, "1", **environment)
                        self.assertEqual((status, out), (1, ""))
                        self.assertRegex(err, r"^numora: cannot connect with TLS to https://\S+/: "
                                              r"certificate verify failed[^\n]*\n$")


class RunTest(unittest.TestCase):
    """Scripts run alike in process and with a server."""

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.script = os.path.join(self.folder, "script.py")

    def write(self, source, name="script.py"):
        with open(os.path.join(self.folder, name), "w") as file:
            file.write(source)

    def test_scripts_run_as_main(self):
        self.write("x = 7", "helper.py")
        file = re.escape(f'  File "{self.script}", line ')
        rows = {
            "arguments, module and folder": ("import sys, helper\nprint(sys.argv[1:], __name__, __file__ == sys.argv[0], helper.x)",
                                             0, r"\['--url', '-h', '\[1\]', '😀'\] __main__ True 7\n", ""),
            "status": ("import sys; print('a'); sys.exit(3)", 3, "a\n", ""),
            "text as status": ("import sys; sys.exit('why')", 1, "", "why\n"),
            "error": ("def f():\n    1 / 0\nf()", 1, "", r"Traceback \(most recent call last\):\n" + file + r"3, in <module>\n    f\(\)\n" +
                      file + r"2, in f\n    1 / 0\n    ~~\^~~\nZeroDivisionError: division by zero\n"),
            "syntax": ("y = 1\nx = = 1", 1, "", file + r"2\n    x = = 1\n        \^\nSyntaxError: invalid syntax\n"),
            "large": ("x = '" + "ä" * 2_000_000 + "'\nprint(len(x))", 0, "2000000\n", ""),
            "input and its end": ("import sys\nprint(input('? '))\nprint(sys.stdin.read().upper())\ninput()", 1, r"\? a\nB\nC\n\n",
                                  r"Traceback[\s\S]*EOFError[\s\S]*"),
            "other processes": ("import multiprocessing as m, os, sys\ndef f(x): return x * x\nif __name__ == '__main__':\n"
                                "  with m.Pool(2) as pool: print(pool.map(f, [1, 2]))\n"
                                "  if os.fork() == 0: sys.exit(5)\n  print(os.WEXITSTATUS(os.wait()[1]))", 0, r"\[1, 4\]\n5\n", ""),
            "thread": ("import threading, time\ndef f(): time.sleep(0.3); print('late')\nthreading.Thread(target=f).start()", 0, "late\n", ""),
        }
        with Server() as server:
            for name, (source, *expected) in rows.items():
                self.write(source)
                for options in [], ["--url", server.url]:
                    with self.subTest(name, options=options):
                        status, out, err = run("run", *options, self.script, "--url", "-h", "[1]", "😀", stdin=b"a\nb\nc\n")
                        self.assertEqual(status, expected[0], err)
                        self.assertRegex(out, r"\A" + expected[1] + r"\Z")
                        self.assertRegex(err, r"\A" + expected[2] + r"\Z")
            self.write("import sys; print(sum(map(int, sys.stdin)))")
            many = run("run", "--url", server.url, self.script, stdin=b"1\n" * 10_000)  # minutes, if asked for one by one
            self.assertEqual(many, (0, "10000\n", ""))
            self.assertEqual(run("eval", "--url", server.url, "f.__name__"), (0, "'f'\n", ""))  # it is in the workspace

    def test_standard_input_exit_hooks_and_wrong_usage(self):
        hook = b"import atexit, sys; atexit.register(print, 'bye'); print(sys.argv)"
        self.assertEqual(run("run", "-", "x", stdin=hook), (0, "['-', 'x']\nbye\n", ""))
        self.write("import os; print('last'); os._exit(3)")
        self.assertEqual(run("run", self.script), (3, "last\n", ""))
        rows = [["run"], "numora: FILE is required\n"], [["run", "no.py"], "numora: cannot read no.py: No such file or directory\n"], \
               [["run", "--bogus", self.script], "numora: --bogus is no option of numora run\n"]
        for arguments, message in rows:
            self.assertEqual(run(*arguments), (2, "", message))

    def test_interrupt_ends_the_script(self):
        with Server() as server:
            for options in [], ["--url", server.url]:
                with self.subTest(options), Signal() as begun:
                    self.write(begun.code + "\nwhile True: pass")
                    with start("run", *options, self.script) as process:
                        begun.wait()
                        process.send_signal(signal.SIGINT)
                        _, err = process.communicate(timeout=60)
                    self.assertEqual(process.returncode, 130)
                    self.assertRegex(err, rb"(?s)^Traceback.*KeyboardInterrupt\n$")

    def test_each_of_two_clients_gets_its_status_and_is_not_typed_for_the_other(self):
        self.write("import sys; sys.exit(int(sys.argv[1]))")
        with Server() as server, concurrent.futures.ThreadPoolExecutor() as pool:
            runs = [pool.submit(run, "run", "--url", server.url, self.script, str(i)) for i in range(8)]
            self.assertEqual([each.result()[0] for each in runs], list(range(8)))
            run("eval", "--url", server.url, "n = input('? ')")
            with start("run", "--url", server.url, self.script, "9") as process:
                self.assertEqual(process.stderr.readline(), b"numora: the interpreter waits for input of other code\n")
                run("eval", "--url", server.url, "Ada")
                self.assertEqual((*process.communicate(timeout=60), process.returncode), (b"", b"", 9))
            self.assertEqual(run("eval", "--url", server.url, "n"), (0, "'Ada'\n", ""))


class InterpretersTest(unittest.TestCase):
    def test_a_death_ends_commands_with_its_sentence_and_can_be_looked_up(self):
        died = r'\Anumora: The interpreter "default" has died: SIGABRT [^\n]* the next request starts it anew\.\n\Z'
        with Server() as server:
            def numora(*arguments):
                return run(*arguments, NUMORA_URL=server.url)

            for command in ["eval", "import os; os.abort()", "7"], ["call", "os.abort"]:
                with self.subTest(command):
                    status, out, err = numora(*command)
                    self.assertEqual((status, out), (1, ""))
                    self.assertRegex(err, died)
            self.assertEqual(numora("restart"), (0, 'The interpreter "default" has begun its life number 3.\n', ""))
            status, out, err = numora("eval", "print('first', flush=True); _ = input()", "x", "import os; os.abort()", "7")
            self.assertEqual((status, out), (1, "first\n"))
            self.assertRegex(err, died)
            status, out, err = numora("deaths", "-n", "1")
            self.assertRegex(out, r'(?s)has died: SIGABRT.*\n  life 3, .*import os; os.abort\(\)\n.*first\n.*Fatal Python error: Aborted')
            lives = [json.loads(line)["life"] for line in numora("deaths", "--json")[1].splitlines()]
            self.assertEqual(lives, [3, 2, 1])

    def test_what_runs_is_told_and_interrupted(self):
        with Signal() as begun, Server() as server:
            def numora(*arguments):
                return run(*arguments, NUMORA_URL=server.url)

            self.assertEqual(numora("interrupt"), (0, 'Nothing ran in the interpreter "default".\n', ""))
            with start("eval", "--url", server.url, begun.code + "\nwhile True: pass") as process:
                begun.wait()
                self.assertRegex(numora("status")[1], r"\Ahttp://127\.0\.0\.1:\d+/ takes requests\n  default: ready, busy; life 1, \d+ MiB\n")
                self.assertEqual(numora("interrupt"), (0, 'The interpreter "default" was interrupted.\n', ""))
                self.assertEqual(process.wait(60), 1)
            status, out, _ = numora("status", "--json", "--interpreter", "default")
            told = json.loads(out)
            self.assertEqual((status, told["isReady"], [each["id"] for each in told["interpreters"]]), (0, True, ["default"]))
            server.stop(signal.SIGKILL)
            self.assertEqual(numora("status")[:2], (1, ""))

    def test_interpreters_are_made_used_and_deleted(self):
        with Server() as server:
            def numora(*arguments):
                return run(*arguments, NUMORA_URL=server.url)

            self.assertEqual(numora("interpreters", "create", "lab1", "--env", "LAB=one"), (0, "lab1\n", ""))
            code = "import os; print(os.environ.get('LAB'))"
            for address in ["--interpreter", "lab1"], ["--url", server.url.replace("/?", "/interpreters/lab1/?")]:
                self.assertEqual(numora("eval", *address, code), (0, "one\n", ""))
            self.assertEqual(numora("eval", code), (0, "None\n", ""))
            self.assertRegex(numora("interpreters")[1], r"(?m)^lab1 +ready, idle +1 +\d+ MiB$")
            self.assertEqual(numora("interpreters", "delete", "lab1"), (0, "", ""))
            self.assertEqual(numora("interpreters", "delete", "lab1"),
                             (1, "", 'numora: the server answered with status 404: There is no interpreter "lab1".\n'))


class Answering:
    """A server that answers everything in one way; gives its URL."""

    def __init__(self, status, body, headers=()):
        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                self.send_response(status)
                for header in headers:
                    self.send_header(*header)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            do_POST = do_GET

            def log_message(self, *_):
                pass

        self._server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
        self._thread = threading.Thread(target=self._server.serve_forever)

    def __enter__(self):
        self._thread.start()
        return f"http://127.0.0.1:{self._server.server_port}"

    def __exit__(self, *_):
        self._server.shutdown()
        self._thread.join()
        self._server.server_close()

