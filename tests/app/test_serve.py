"""`numora serve`, from outside."""

import http.client
import os
import pathlib
import re
import resource
import signal
import subprocess
import tempfile
import unittest

from numora_program import NUMORA, TOKEN, Server, Signal, run


def open_files(pid):
    """What the descriptors of a process stand for."""
    for entry in os.scandir(f"/proc/{pid}/fd"):
        try:
            yield os.readlink(entry.path)
        except FileNotFoundError:
            pass  # it is closed meanwhile


class ServeTest(unittest.TestCase):
    def test_evaluates_calls_and_says_nothing_but_where_it_listens(self):
        with Server(token=False) as server:
            self.assertRegex(server.token, "^[0-9a-f]{40}$")
            self.assertEqual(server.eval("x = 6\nprint('hello')\nx * 7"), "hello\n42\n")
            self.assertEqual(server.eval("import os; _ = os.system('echo child')"), "child\n")
            self.assertEqual(server.request("/readyz")[0], 200)
            self.assertEqual(server.request("/readyz", token="another-token-of-16")[0], 401)
            status, out, err, _ = server.stop(signal.SIGTERM)
            self.assertEqual((status, out, err), (0, "", ""))

    def test_signals_stop_it_and_running_requests_are_answered(self):
        rows = {
            "busy": (signal.SIGTERM, "while True: pass"),
            "asleep": (signal.SIGINT, "import time; time.sleep(60)"),
            "asks for input": (signal.SIGTERM, "input()"),
        }
        for name, (number, code) in rows.items():
            with self.subTest(name), Signal() as begun, Server() as server:
                running = server.start_eval(begun.code + "\n" + code)
                begun.wait()
                status, out, err, seconds = server.stop(number)
                self.assertEqual((status, out, err), (0, "", ""))
                self.assertLess(seconds, 3)
                running.result()

    def test_code_that_no_interrupt_ends_does_not_keep_it(self):
        code = ("import signal\nsignal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGINT, signal.SIGRTMIN])\n"
                "while True: pass")
        rows = {"--in-process": "error [numora] The running code does not end; the process ends without it.\n",
                "--log-level=error": ""}  # it is killed
        for option, message in rows.items():
            with self.subTest(option), Signal() as begun, Server(option) as server:
                running = server.start_eval(code.replace("while", begun.code + "\nwhile"))
                begun.wait()
                status, _, err, seconds = server.stop(signal.SIGTERM)
                self.assertEqual((status, err[25:]), (0, message))
                self.assertLess(seconds, 5)
                running.exception(60)

    def test_code_can_signal_itself_and_its_children(self):
        with Server() as server:
            self.assertIn("KeyboardInterrupt", server.eval(
                "import os, signal, time\nos.kill(os.getpid(), signal.SIGINT)\ntime.sleep(60)"))
            for number in ("SIGTERM", "SIGINT"):
                self.assertEqual(server.eval("import signal, subprocess\np = subprocess.Popen(['sleep', '60'])\n"
                                             f"p.send_signal(signal.{number})\n-p.wait(30) == signal.{number}"), "True\n")
            self.assertEqual(server.stop(signal.SIGTERM)[0], 0)

    def test_children_inherit_no_sockets_and_keep_no_port(self):
        rows = {
            "Popen": "import subprocess\nprint(subprocess.Popen(['sleep', '60'], close_fds=False).pid)",
            "posix_spawn": "import os\nprint(os.posix_spawnp('sleep', ['sleep', '60'], os.environ))",
            "fork": "import os, time\np = os.fork()\nif p == 0:\n    time.sleep(60)\n    os._exit(0)\nprint(p)",
        }
        for name, code in rows.items():
            with self.subTest(name), Server(token=False, environment={"NUMORA_TOKEN": TOKEN}) as server:
                kept = server.connect()
                kept.request("GET", "/healthz")
                kept.getresponse().read()
                child = int(server.eval(code))
                try:
                    if name != "fork":
                        self.assertEqual([link for link in open_files(child) if link.startswith(("socket", "anon"))], [])
                        with open(f"/proc/{child}/environ") as environment:
                            self.assertNotIn(TOKEN, environment.read())
                    self.assertEqual(server.end(signal.SIGTERM), 0)
                    self.assertEqual(kept.sock.recv(1), b"")
                    with Server("--mock", port=server.port):
                        pass
                finally:
                    os.kill(child, signal.SIGKILL)
                    kept.close()

    def test_standard_error_that_nobody_reads_stops_nothing(self):
        with Server("--log-level", "debug") as server:
            for _ in range(150):  # more than a pipe and the log's queue take
                server.eval("_ = 0 #" + "x" * 16384)
            self.assertEqual(server.eval("6 * 7"), "42\n")
            self.assertEqual(server.end(signal.SIGTERM), 0)
            self.assertIn("Enqueuing eval: ", server.stop(signal.SIGKILL)[2])

    def test_a_large_body_takes_a_small_multiple_of_its_size(self):
        values = "[" + ",".join(["{}"] * 5_000_000) + "]"
        bodies = {"/connector/v1/FEval": '{"function":"f","arguments":[%s]}',
                  "/cometd": '[{"channel":"/a","data":%s,"clientId":"none"}]',
                  "/connector/v1/Eval": '{"mcode":"1","unknown":%s}'}  # refused
        for path, body in bodies.items():
            with self.subTest(path), Server("--mock") as server:
                def peak():
                    with open(f"/proc/{server.pid}/status") as status:
                        return int(re.search(r"VmHWM:\s+(\d+) kB", status.read())[1]) << 10
                server.eval("1")
                before = peak()
                status, _ = server.request(path, body % values)
                self.assertEqual(status, 400 if path.endswith("/Eval") else 200)
                self.assertLess(peak() - before, 9 * len(values))

    def test_closed_descriptors_fall_to_no_other_files(self):
        command = ["sh", "-c", 'exec "$0" serve --mock --port 0 <&- 2>&-', NUMORA]
        with subprocess.Popen(command, stdout=subprocess.PIPE) as process:
            process.stdout.readline()
            self.assertEqual([os.readlink(f"/proc/{process.pid}/fd/{fd}") for fd in (0, 2)], ["/dev/null"] * 2)
            process.terminate()

    def test_flags_win_over_the_environment_and_that_over_the_file(self):
        with tempfile.TemporaryDirectory() as folder:
            os.mkdir(os.path.join(folder, "pages"))
            with open(os.path.join(folder, "pages", "index.html"), "w") as page:
                page.write("the console")
            name = os.path.join(folder, "numora.toml")
            with open(name, "w") as file:
                file.write(f'token = "{TOKEN}"\nconsole = "pages"\nport = 1\nbody_bytes = 100\n')
            os.chmod(name, 0o640)
            environment = {"NUMORA_CONFIG": name, "NUMORA_LOG_LEVEL": "warning"}
            with Server("--mock", token=False, environment=environment) as server:
                self.assertEqual(server.line, f"Listening on http://127.0.0.1:{server.port}/\n")
                self.assertEqual(server.request("/"), (200, "the console"))
                self.assertEqual(server.request("/messages", {"a": "b" * 100})[0], 413)
                self.assertIn("numora.toml, which holds the token, can be read by other users", server.stop()[2])
            environment["NUMORA_TOKEN"] = "the-token-of-the-environment"
            with Server("--mock", token=False, environment=environment) as server:
                self.assertEqual(server.request("/", token="the-token-of-the-environment")[0], 200)
                self.assertEqual(server.request("/")[0], 401)
            with Server("--mock", environment=environment) as server:
                self.assertEqual(server.eval("1 + 1"), "mock output")

    def test_calls_wait_for_what_is_configured_from_the_start_and_by_code(self):
        key = "connector.interpreter.dequeMode"
        rows = {
            "from the start": ("ppe", ""),
            "by code": ("idle", f"import numora\nnumora.configure({key!r}, 'ppe')\n"),
        }
        for name, (first, change) in rows.items():
            for place in "--in-process", "--log-level=error":
                with self.subTest(name, place=place), tempfile.TemporaryDirectory() as folder, Signal() as begun, \
                        Server(place, "--set", f"{key}={first}") as server:
                    called = os.path.join(folder, "called")
                    running = server.start_eval(
                        f"{change}{begun.code}\nimport time\nend = time.monotonic() + 50\n"
                        f"while not os.path.exists({called!r}) and time.monotonic() < end: time.sleep(0.01)\n"
                        f"os.path.exists({called!r})")
                    begun.wait()
                    call = {"function": "os.mkdir", "arguments": [called], "nargout": 0}
                    self.assertEqual(server.request("/connector/v1/FEval", call)[0], 200)
                    self.assertEqual(running.result(), "True\n")

    def test_the_sample_of_settings_has_all_and_is_read(self):
        root = pathlib.Path(__file__).parent.parent.parent
        with open(root / "packaging" / "numora.toml") as sample, open(root / "docs" / "gateway.md") as page, tempfile.TemporaryDirectory() as folder:
            text = re.sub(r'(?m)^#(?=[\w\["])', "", sample.read())
            rows = [line.split("|")[3] for line in page if line.startswith("|") and line.count("|") >= 5]
            for setting in re.findall(r"`\[*(\w+)", " ".join(rows)):
                self.assertRegex(text, rf"(?m)^\[*{setting}\b")
            with open(os.path.join(folder, "numora.toml"), "w") as file:
                file.write(text)
            with Server("--mock", "--config", file.name) as server:
                self.assertEqual(server.eval("1"), "mock output")

    def test_connections_are_as_many_as_the_file_says_and_each_may_be_a_file(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        with tempfile.NamedTemporaryFile("w", suffix=".toml") as file:
            file.write("connections = 1")
            file.flush()
            resource.setrlimit(resource.RLIMIT_NOFILE, (256, hard))
            try:
                server = Server("--mock", "--config", file.name)
            finally:
                resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))
            with server:
                self.assertEqual(resource.prlimit(server.pid, resource.RLIMIT_NOFILE)[0], 1 + 1016 + 512)
                first = server.connect()
                first.request("GET", "/?token=" + TOKEN)
                self.assertEqual(first.getresponse().status, 200)
                with self.assertRaises((ConnectionError, http.client.HTTPException)):
                    server.request("/healthz")
                first.close()

    def test_wrong_settings_end_it_with_status_2(self):
        number = " must be an integer between "
        rows = {
            ("--port", "70000"): f"numora: --port{number}0 and 65535\n",
            ("--host", "0.0.0.0"): "needs a token",
            ("--token", "short"): "The token must consist of",
            ("--token", ""): "numora: --token must not be empty\n",
            ("--tls-cert", "x"): "tls_cert and tls_key must be given together",
            ("--tls-cert", "/x", "--tls-key", "/y"): "numora: --tls-cert: /x cannot be used as a certificate in PEM: No such",
            ("--log-file", "/x/y"): "numora: --log-file: /x/y cannot be opened: No such file or directory\n",
            ("--log-format", "xml"): "numora: --log-format must be text or json\n",
            ("--config", "/nowhere.toml"): "numora: /nowhere.toml: cannot be read: No such file or directory\n",
            ("--config", "/"): "numora: /: is a folder, not a file\n",
            ("--set", "x"): "--set must be KEY=VALUE",
            ("--set", "a=b"): "--set: a is not a known key; there are connector.interpreter.dequeMode and ",
            ("--set", "connector.interpreter.telemetryFile=x"): "must be an absolute path, or empty",
            "[set]\nconnector.interpreter.dequeMode = 'Idle'": "dequeMode must be one of default, ppe, pause, prompt",
            "[interpreters.default.set]\na = 'b'": "interpreters.default: set: a is not a known key",
            ("--trust-proxy", "lab.example"): "A trusted proxy (--trust-proxy, trusted_proxies) must be an address",
            "hots = ''": "hots is not a known setting",
            "connections = 0": f"connections{number}1 and 1000000",
            "owner_wait = -1": f"owner_wait{number}0 and 3600000",
            "port = '1'": f"port{number}0 and 65535",
            "hosts = [1]": "hosts must be an array of strings",
            "log_level = 'loud'": "log_level must be debug, info, warning or error",
            "a =": "line 1",
            "tokens = 1": "tokens must be tables, each under [[tokens]]",
            "[[tokens]]\nsha256 = 'x'": "tokens[0].sha256 must be the 64 hexadecimal digits",
            f"[[tokens]]\nsha256 = '{64 * 'A'}'\ninterpreters = [1]": "tokens[0].interpreters must be an array of ids",
            f"[[tokens]]\nsha256 = '{64 * '0'}'\ninterpreters = ['*']\nrights = ['all']": "tokens[0].rights must be",
            "[interpreters.Lab]": "interpreters.Lab: id must be 1 to 63 small letters",
            "[interpreters.lab]\nid = 'x'": "interpreters.lab.id is not a known setting",
            "[interpreters.lab]\nmemoryMiB = -1": "interpreters.lab: memoryMiB must be an integer between 0",
            "[interpreters.default]\nvenv = 'no'": ".toml: interpreters.default: venv must be the path of an existing folder: /",
        }
        for given, message in rows.items():
            with self.subTest(given), tempfile.NamedTemporaryFile("w", suffix=".toml") as file:
                if isinstance(given, str):
                    file.write(given)
                    file.flush()
                status, out, err = run("serve", "--mock", *(("--config", file.name) if isinstance(given, str) else given))
                self.assertEqual((status, out), (2, ""), err)
                self.assertIn(message, err)
        self.assertIn(f"numora: NUMORA_PORT{number}0 and 65535\n", run("serve", "--mock", NUMORA_PORT="x")[2])

    def test_port_that_is_taken_ends_it_with_status_1(self):
        with Server("--mock") as server, tempfile.NamedTemporaryFile("r") as log:
            self.assertEqual(run("--log-level=error", "serve", "--mock", "--port", str(server.port), "--log-file", log.name),
                             (1, "", f"numora: Cannot listen on 127.0.0.1, port {server.port}: Address already in use\n"))
            self.assertRegex(log.read(), r"^\S+ error \[numora\] The server ends: Cannot listen on [^\n]*\n$")

