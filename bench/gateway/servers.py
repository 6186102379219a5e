"""The servers that are compared, each a process of its own on the loopback."""

import contextlib
import glob
import importlib.util
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
CLIENT_PACKAGES = os.path.join(HERE, "..", "..", "tests", "clients")
TICK = os.sysconf("SC_CLK_TCK")


class Server:
    """A process that is ended, by its id, with the `with` block."""

    def __init__(self, command, **options):
        self.begin = time.perf_counter()
        self.process = subprocess.Popen(command, **{"stdin": subprocess.DEVNULL, **options})

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()

    def processor_seconds(self):
        """That all threads have used, in user and kernel mode, to a hundredth."""
        with open(f"/proc/{self.process.pid}/stat", encoding="ascii") as stat:
            fields = stat.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / TICK

    def memory(self, row="VmRSS"):
        """A row of its status in MiB: the resident size, or VmHWM, the largest it had."""
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            return next(int(line.split()[1]) for line in status if line.startswith(row + ":")) / 1024

    def wait_until_listening(self, port):
        end = time.monotonic() + 30
        while self.process.poll() is None and time.monotonic() < end:
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port), 1):
                return
            time.sleep(.002)
        Server.__exit__(self)
        raise RuntimeError(f"{self.process.args[0]} does not listen")


class Numora(Server):
    token = "0123456789abcdef"

    def __init__(self, build, *options):
        program = os.path.join(build, "bin", "numora")
        super().__init__([program, "serve", "--port", "0", "--token", self.token, *options], stdout=subprocess.PIPE)
        self.port = int(self.process.stdout.readline().split(b":")[2].split(b"/")[0])


class Echo(Server):
    def __init__(self, build, mode, request_bytes, reply_bytes):
        super().__init__([os.path.join(build, "bin", "echo_server"), mode, str(request_bytes), str(reply_bytes)],
                         stdout=subprocess.PIPE)
        self.port = int(self.process.stdout.readline())


class Nats(Server):
    def __init__(self):
        self.folder = tempfile.TemporaryDirectory()
        self.port = free_port()
        settings = os.path.join(self.folder.name, "settings")
        with open(settings, "w", encoding="ascii") as file:
            file.write(f'listen: "127.0.0.1:-1"\nwebsocket {{ listen: "127.0.0.1:{self.port}", no_tls: true }}\n')
        super().__init__([shutil.which("nats-server"), "-c", settings], stderr=subprocess.DEVNULL)
        self.wait_until_listening(self.port)

    def __exit__(self, *details):
        super().__exit__(*details)
        self.folder.cleanup()


class Faye(Server):
    CODE = """const server = require("http").createServer();
              new (require("faye").NodeAdapter)({mount: "/bayeux", timeout: 45}).attach(server);
              server.listen(Number(process.argv[1]), "127.0.0.1");"""

    def __init__(self):
        self.port = free_port()
        super().__init__([shutil.which("node"), "-e", self.CODE, str(self.port)], cwd=CLIENT_PACKAGES)
        self.wait_until_listening(self.port)


class Kernel(Server):
    """ipykernel, with the blocking client of jupyter_client."""

    def __init__(self):
        from jupyter_client import BlockingKernelClient
        from jupyter_client.connect import write_connection_file
        self.folder = tempfile.TemporaryDirectory()
        file, ports = write_connection_file(os.path.join(self.folder.name, "kernel.json"))
        super().__init__([sys.executable, "-m", "ipykernel_launcher", "-f", file], stdout=subprocess.DEVNULL,
                         stderr=subprocess.DEVNULL, env={**os.environ, "IPYTHONDIR": self.folder.name})
        # Its client would try again only now and then.
        self.wait_until_listening(ports["shell_port"])
        self.client = BlockingKernelClient()
        self.client.load_connection_file(file)
        self.client.start_channels(stdin=False, hb=False)

    def execute(self, code):
        identity = self.client.execute(code)
        while True:
            reply = self.client.get_shell_msg(timeout=60)
            if reply["parent_header"].get("msg_id") == identity:
                assert reply["content"]["status"] == "ok", reply["content"]
                return

    def __exit__(self, *details):
        self.client.stop_channels()
        super().__exit__(*details)
        self.folder.cleanup()


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def what_is_missing():
    """A text for each comparison that is not installed, by the name of the class."""
    missing = {}
    if not all(importlib.util.find_spec(name) for name in ("ipykernel", "jupyter_client")):
        missing["Kernel"] = "ipykernel: not compared, python3-ipykernel or python3-jupyter-client is not installed"
    if not shutil.which("nats-server"):
        missing["Nats"] = "nats-server: not compared, it is not installed"
    if not shutil.which("node") or not glob.glob(os.path.join(CLIENT_PACKAGES, "node_modules", "faye")):
        missing["Faye"] = "faye: not compared, it takes node, and `npm ci` in tests/clients"
    return missing
