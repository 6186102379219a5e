"""A server as who operates it sees it: its logs, and what SIGHUP does."""

import concurrent.futures
import contextlib
import hashlib
import http.client
import json
import os
import pty
import re
import signal
import ssl
import subprocess
import tempfile
import threading
import unittest

from numora_program import LIMIT, TOKEN, Server, Session, Signal, start
from test_workers import wait_until
from test_workplace import make_environment

TIME = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z"
RELOADED, FAILED = "Reloaded certificate, tokens and log", "Reloading failed, and the old settings stay: "
OTHER, WRONG = "another-token-of-the-tests", "a-token-that-is-wrong"


class OperationTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def read(self, name):
        with open(self.path(name)) as file:
            return file.read()

    def settings(self, *lines):
        with open(self.path("numora.toml"), "w") as file:
            file.write("\n".join(('log_file = "log"', 'access_log = "access"', *lines)))
        return self.path("numora.toml")

    def server(self, *arguments, environment=None, **more):
        return Server("--config", self.path("numora.toml"), *arguments, token=False,
                      environment={"NUMORA_LOG_LEVEL": "", **(environment or {})}, **more)

    def wait_for(self, text, name="log", count=1):
        wait_until(lambda: os.path.exists(self.path(name)) and self.read(name).count(text) >= count)

    def reload(self, server, text=RELOADED):
        before = self.read("log").count(text)
        os.kill(server.pid, signal.SIGHUP)
        self.wait_for(text, count=before + 1)

    def test_records_and_requests_are_lines_of_text_or_json(self):
        code = "/connector/v1/Eval"
        said = [("info", "numora", None, r"Numora Connector \S+ starts: process \d+, settings of \S+numora.toml"),
                ("info", "gateway::interpreters", None, r'The interpreter "default" runs: life 1, process \d+\.'),
                ("info", "numora", None, r"Listening on http://127\.0\.0\.1:\d+/"),
                ("warning", "gateway", None, r"Refused a request from 127\.0\.0\.1: the token is missing or wrong"),
                ("warning", "gateway", None, r"Refused a request from 127\.0\.0\.1: the Host .*: evil\\nhost"),
                ("warning", "gateway", "default", f"Unknown members of a request to {code[1:]}: \"unknown\""),
                ("error", "gateway::interpreters", None, r'The interpreter "default" has died: .*'),
                ("info", "numora", None, "Stopping on SIGTERM")]
        asked = [("GET", "/readyz", 200), ("GET", "/readyz", 401), ("GET", "/readyz", 401), ("POST", code, 200),
                 ("GET", "/healthz", 403), ("POST", code, 200), ("GET", "/cometd", 426), ("GET", "/cometd", 101), ("CLOSE", "/cometd", 1006),
                 ("POST", code, 502)]
        agent = 'an "agent"\tof caf\u00e9'
        for form in "text", "json":
            self.settings()
            secret = {"NUMORA_TOKEN": TOKEN, "NUMORA_URL": "http://host/?token=" + TOKEN}
            with self.subTest(form), self.server(environment={"NUMORA_LOG_FORMAT": form, **secret}) as server:
                self.assertEqual(server.line, f"Listening on http://127.0.0.1:{server.port}/\n")
                server.request("/readyz?token=" + TOKEN, **{"User-Agent": agent.encode()})
                for _ in range(2):
                    server.request("/readyz?token=" + WRONG, token=WRONG)
                for name in "environ", "cmdline":
                    with open(f"/proc/{server.pid}/{name}") as file:
                        self.assertNotIn(TOKEN, file.read())
                self.assertEqual(server.eval("import os; [name for name in os.environ if name.startswith('NUMORA_')]"),
                                 "[]\n")
                server.request("/healthz", Host="u:" + WRONG + "@evil\\nhost")
                server.request(code, {"mcode": "1", "unknown": 1})
                for version, status in ("12", 426), ("13", 101):
                    with contextlib.closing(server.connect()) as socket:
                        socket.request("GET", "/cometd", headers={
                            "Authorization": "Bearer " + TOKEN, "Connection": "Upgrade", "Upgrade": "websocket",
                            "Sec-WebSocket-Version": version, "Sec-WebSocket-Key": "AAAAAAAAAAAAAAAAAAAAAA=="})
                        self.assertEqual(socket.getresponse().status, status)
                self.wait_for("CLOSE", "access")
                server.request(code, {"mcode": "os._exit(1)"})
                metrics = server.request("/metrics")[1]
                for line in 'token"} 2', 'host"} 1', 'origin"} 0':
                    self.assertIn('\nnumora_refused_total{reason="' + line + "\n", metrics)
                status, out, err, _ = server.stop()
                self.assertEqual((status, out, err), (0, "", ""))
            log, access = self.read("log"), self.read("access")
            for name, text in ("log", log), ("access", access):
                self.assertNotIn("token-", text)
                self.assertEqual(os.stat(self.path(name)).st_mode & 0o777 & ~0o640, 0)
                os.unlink(self.path(name))
            if form == "json":
                records = [json.loads(line) for line in log.splitlines()]
                got = [(r["level"], r["logger"], r.get("interpreter"), r["text"]) for r in records]
                entries = [json.loads(line) for line in access.splitlines()]
                self.assertEqual((entries[0]["userAgent"], entries[0]["client"]), (agent, "127.0.0.1"))
                requests = [(e["method"], e["path"], e["status"]) for e in entries]
            else:
                form = re.compile(TIME + r" (\w+) \[(\S+)\] (?:interpreter=(\S+) )?(.*)")
                got = [form.fullmatch(line).groups() for line in log.splitlines()]
                form = re.compile(TIME + r' info \[access\] 127\.0\.0\.1 (\S+) (\S+) (\d+) \d+ \d+ms "([^"]*)"')
                entries = [form.fullmatch(line).groups() for line in access.splitlines()]
                self.assertEqual(entries[0][3], r"an \x22agent\x22\x09of caf\xc3\xa9")
                requests = [(method, path, int(status)) for method, path, status, _ in entries]
            self.assertEqual(len(got), len(said), log)
            for record, (*fields, text) in zip(got, said):
                self.assertEqual(list(record[:3]), fields)
                self.assertRegex(record[3], f"^{text}$")
            self.assertEqual(requests[:-1], asked)

    def certificate(self, name):
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                        "-subj", "/CN=" + name, "-addext", "subjectAltName=IP:127.0.0.1", "-days", "1",
                        "-keyout", self.path("key"), "-out", self.path("cert")], check=True, capture_output=True)
        return ssl.PEM_cert_to_DER_cert(self.read("cert"))

    def test_reloads_under_load_lose_nothing(self):
        self.certificate("first")
        self.settings(f'token = "{TOKEN}"', 'tls_cert = "cert"', 'tls_key = "key"')
        isOver = threading.Event()
        context = ssl._create_unverified_context()

        def ask(server):
            def connect():
                return contextlib.closing(
                    http.client.HTTPSConnection("127.0.0.1", server.port, timeout=LIMIT, context=context))
            with connect() as kept:
                while not isOver.is_set():
                    with connect() as other:
                        for connection in kept, other:
                            connection.request("POST", "/connector/v1/Eval", '{"mcode":"1"}', {
                                "Authorization": "Bearer " + TOKEN, "Content-Type": "application/json"})
                            answer = connection.getresponse()
                            if answer.status != 200 or not answer.read():
                                raise AssertionError(answer.status)

        with self.server("--mock") as server, concurrent.futures.ThreadPoolExecutor(20) as pool:
            asking = [pool.submit(ask, server) for _ in range(20)]
            try:
                for i in range(5):
                    latest = self.certificate(f"of {i}")
                    for _ in range(10):
                        os.rename(self.path("log"), self.path("log.old"))
                        os.kill(server.pid, signal.SIGHUP)
                        self.wait_for(RELOADED)
                self.wait_for("cert has expired, or does so within 14 days.")
            finally:
                isOver.set()
            for each in asking:
                each.result(LIMIT)
            served = ssl.get_server_certificate(("127.0.0.1", server.port))
            self.assertEqual(ssl.PEM_cert_to_DER_cert(served), latest)

    def test_tokens_are_exchanged_and_what_has_begun_goes_on(self):
        restricted = [f'[[tokens]]\nsha256 = "{hashlib.sha256(text.encode()).hexdigest()}"\ninterpreters = ["*"]\n'
                      'rights = ["use"]' for text in (OTHER, WRONG)]
        self.settings(f'token = "{TOKEN}"', restricted[0])
        with self.server() as server, Session(server, "/eval/response/**") as session:
            server.eval("x = 1")
            session.stream("print(x)\ninput('more? ')\nprint(x + 1)", "r")
            session.until(lambda message: "more" in str(message.get("data")))
            self.settings(f'token = "{TOKEN[::-1]}"', restricted[1])
            self.reload(server)
            statuses = {token: server.request("/readyz", token=token)[0]
                        for token in (TOKEN, OTHER, TOKEN[::-1], WRONG)}
            self.assertEqual(list(statuses.values()), [401, 401, 200, 200])
            server.request("/connector/v1/Eval", {"mcode": "go\n"}, token=WRONG)
            came = session.until(lambda message: "Done: success" in str(message.get("data")))
            self.assertTrue(any("2" in str(message.get("data")) for message in came), came)
            handshake = [{"channel": "/meta/handshake", "version": "1.0", "supportedConnectionTypes": ["long-polling"],
                          "ext": {"connector": {"token": TOKEN}}}]
            self.assertIn("401", server.request("/cometd", handshake, token=OTHER)[1])
            self.settings(f'token = "{TOKEN}"', 'log_level = "debug"')
            self.reload(server)
            wait_until(lambda: server.eval("x") == "1\n" and "Enqueuing eval: x" in self.read("log"))

    def test_what_is_wrong_changes_nothing_and_is_named(self):
        rows = {
            "token = 1": "token must be a string",
            "hots = []": "hots is not a known setting",
            "": "token must stay set",
            f'token = "{OTHER}"\nlog_file = "no/log"': "--log-file: ",
            f'token = "{OTHER}"\ntls_cert = "no"\ntls_key = "no"': "tls_cert and tls_key must be set when the server",
        }
        self.settings(f'token = "{TOKEN}"', "connections = 100", 'host = "127.0.0.1"')
        fifo = self.path("fifo")
        os.mkfifo(fifo)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.folder)
        server = Server("--in-process", "--folder", "/", "--config", "numora.toml", "--set",
                        "connector.interpreter.telemetryFile=" + fifo, token=False, environment={"NUMORA_LOG_LEVEL": ""})
        with server:
            for text, problem in rows.items():
                with self.subTest(problem):
                    with open(self.path("numora.toml"), "w") as file:
                        file.write(text)
                    self.reload(server, FAILED)
                    self.assertIn(problem, self.read("log").splitlines()[-1])
                    self.assertEqual(server.eval("1"), "1\n")
            os.rename(fifo, self.path("numora.toml"))
            self.reload(server, FAILED + self.path("numora.toml: must be a regular file"))
            os.unlink(self.path("numora.toml"))
            self.settings(f'token = "{OTHER}"', "connections = 99", "port = 1")
            for _ in range(2):
                self.reload(server, "Changed, but read at start only: connections, host, port")
            self.assertEqual(server.request("/readyz", token=OTHER)[0], 200)

    def test_a_signal_ends_a_start_that_hangs(self):
        make_environment(self.path("venv"))
        packages = self.path("venv/lib/python3.11/site-packages")
        os.makedirs(packages)
        with Signal() as begun:
            with open(packages + "/hangs.pth", "w") as file:
                file.write(begun.code + "; import time; time.sleep(1000)\n")
            with start("serve", "--port", "0", "--venv", self.path("venv")) as server:
                begun.wait()
                server.terminate()
                out, err = server.communicate(timeout=LIMIT)
        self.assertEqual((server.returncode, out), (0, b""), err)
        self.assertIn(b"Stopping on SIGTERM", err)

    def test_a_terminal_that_is_closed_ends_it(self):
        self.settings()
        mine, its = pty.openpty()
        try:
            with self.server("--mock", stdin=its) as server:
                self.assertEqual(server.stop(signal.SIGHUP)[0], 0)
        finally:
            os.close(mine)
            os.close(its)
