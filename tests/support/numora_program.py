"""The program under test as its users start it, whose path is in the environment variable NUMORA."""

import collections
import concurrent.futures
import contextlib
import http.client
import json
import os
import re
import select
import signal
import socket
import subprocess
import tempfile
import threading
import time

NUMORA = os.environ["NUMORA"]
os.environ.pop("VIRTUAL_ENV", None)  # that of whoever runs the tests
TOKEN = "a-token-of-the-tests"
LIMIT = 60  # seconds for whatever is waited for


def run(*arguments, stdin=b"", **environment):
    """Runs numora; returns (exit status, standard output, standard error)."""
    done = subprocess.run([NUMORA, *arguments], input=stdin, capture_output=True, timeout=LIMIT,
                          env=dict(os.environ, **environment))
    return done.returncode, done.stdout.decode(), done.stderr.decode()


def start(*arguments, pass_fds=()):
    return subprocess.Popen([NUMORA, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, pass_fds=pass_fds)


class Server:
    """A server with a token of the tests, which is stopped at the end of the block."""

    def __init__(self, *arguments, token=True, port=0, program=NUMORA, environment=None, preexec_fn=None,
                 stdin=subprocess.DEVNULL):
        chosen = ["--token", TOKEN] if token else []
        environment = {"NUMORA_LOG_LEVEL": "error", **os.environ, **(environment or {})}
        self._process = subprocess.Popen([program, "serve", "--port", str(port), *chosen, *arguments],
                                         stdin=stdin, stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=preexec_fn,
                                         env={name: value for name, value in environment.items() if value})
        self.line = self._process.stdout.readline().decode()
        found = re.fullmatch(r"Listening on (https?://127\.0\.0\.1:(\d+)/)(?:\?token=(\S+))?\n", self.line)
        if not found:
            self._process.kill()
            raise AssertionError(f"{self.line!r} {self._process.communicate()}")
        self.pid = self._process.pid
        self.port, self.token = int(found[2]), found[3] or TOKEN
        self.url = f"{found[1]}?token={self.token}"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop(signal.SIGKILL)

    def connect(self):
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=LIMIT)

    def request(self, path, message=None, token=None, **more):
        """The status and the body of the answer to a POST of `message`, or of a text as it stands, or to a GET without one."""
        with contextlib.closing(self.connect()) as connection:
            headers = {"Authorization": "Bearer " + (token or self.token), "Content-Type": "application/json", **more}
            body = message if message is None or isinstance(message, str) else json.dumps(message)
            connection.request("GET" if message is None else "POST", path, body, headers)
            answer = connection.getresponse()
            return answer.status, answer.read().decode()

    def eval(self, code):
        """What evaluated code prints."""
        status, body = self.request("/connector/v1/Eval", {"mcode": code})
        if status != 200:
            raise AssertionError(f"{status}: {body}")
        return json.loads(body)["responseStr"]

    def start_eval(self, code):
        """Evaluates on a thread of its own; gives a future."""
        return concurrent.futures.ThreadPoolExecutor(1).submit(self.eval, code)

    def end(self, number):
        """The exit status; for when children of the server keep its output open, or when it is not to be read."""
        self._process.send_signal(number)
        return self._process.wait(LIMIT)

    def stop(self, number=signal.SIGTERM):
        """Returns (exit status, rest of standard output, standard error, seconds until the end)."""
        begin = time.monotonic()
        if self._process.poll() is None:
            self._process.send_signal(number)
        out, err = self._process.communicate(timeout=LIMIT)
        return self._process.returncode, out.decode(), err.decode(), time.monotonic() - begin


class Session:
    """A session of a client that subscribes to patterns and gets what comes by long polls."""

    def __init__(self, server, *patterns, path="/cometd"):
        self._connection, self._path, self._token = server.connect(), path, server.token
        self._waiting = collections.deque()
        self._identity = {}
        handshake = self.send("/meta/handshake", version="1.0", supportedConnectionTypes=["long-polling"])
        self._identity = {"clientId": handshake["clientId"]}
        self.reply = self.send("/meta/subscribe", subscription=patterns)

    def send(self, channel, **message):
        """The reply to a message; an error that refuses it is raised."""
        headers = {"Authorization": "Bearer " + self._token, "Content-Type": "application/json"}
        body = json.dumps([{"channel": channel, "id": channel, **self._identity, **message}])
        self._connection.request("POST", self._path, body, headers)
        reply = None
        for came in json.loads(self._connection.getresponse().read()):
            if reply is None and came["channel"] == channel and "successful" in came and "data" not in came:
                reply = came
            else:
                self._waiting.append(came)
        if not reply or not reply["successful"]:
            raise AssertionError(reply)
        return reply

    def stream(self, code, name, **options):
        self.send("/eval/request", data=code, ext={"connector": {"request": name, **options}})

    def until(self, is_last):
        """What has come since the last time, up to the first message for which `is_last` is true."""
        came, end = [], time.monotonic() + LIMIT
        while not came or not is_last(came[-1]):
            while not self._waiting:
                if time.monotonic() > end:
                    raise AssertionError(f"the last message does not come after {came}")
                self.send("/meta/connect", connectionType="long-polling")
            came.append(self._waiting.popleft())
        return came

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._connection.close()


class Signal:
    """Lets code in another process tell when it has come somewhere: by the code `self.code`."""

    def __enter__(self):
        self._folder = tempfile.TemporaryDirectory()
        path = os.path.join(self._folder.name, "signal")
        os.mkfifo(path)
        self._read = os.open(path, os.O_RDWR)  # for writing, too, so that it never ends
        # At once and not by a finalizer, where an interrupt that comes right then would be lost.
        self.code = f"import os; _ = os.write(os.open({path!r}, os.O_WRONLY), b'x')"
        return self

    def wait(self):
        if not select.select([self._read], [], [], LIMIT)[0]:
            raise AssertionError("the code does not come there")
        os.read(self._read, 1)

    def __exit__(self, *_):
        os.close(self._read)
        self._folder.cleanup()


class CuttingProxy:
    """A port through which a server is reached, whose connections can be cut."""

    def __init__(self, port):
        self._target = port
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        self._sockets = []
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        with contextlib.suppress(OSError):  # the listener is closed
            while True:
                client = self._listener.accept()[0]
                server = socket.create_connection(("127.0.0.1", self._target))
                self._sockets += [client, server]
                for pair in (client, server), (server, client):
                    threading.Thread(target=self._pass_on, args=pair, daemon=True).start()

    @staticmethod
    def _pass_on(source, target):
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                target.sendall(data)
            target.shutdown(socket.SHUT_WR)

    def cut(self):
        for end in self._sockets:
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        self.cut()
        for end in self._sockets:
            end.close()
