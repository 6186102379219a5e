"""Kernels as front ends start them, from a kernelspec in a folder of the tests: nothing of the user's is read or written.
With KERNEL=python3 in the environment the tests run with ipykernel; some hold for ours alone."""

import atexit
import os
import signal
import subprocess
import tempfile
import time

import zmq
from jupyter_client.connect import write_connection_file
from jupyter_client.kernelspec import get_kernel_spec
from jupyter_client.session import Session

from numora_program import LIMIT, NUMORA

_folder = tempfile.TemporaryDirectory()
atexit.register(_folder.cleanup)
FOLDER = _folder.name
NAME = os.environ.get("KERNEL", "numora")
os.environ.update(JUPYTER_PATH=f"{FOLDER}/share/jupyter", JUPYTER_DATA_DIR=f"{FOLDER}/data",
                  JUPYTER_RUNTIME_DIR=f"{FOLDER}/runtime", JUPYTER_CONFIG_DIR=f"{FOLDER}/config",
                  IPYTHONDIR=f"{FOLDER}/ipython", XDG_STATE_HOME=f"{FOLDER}/state")
if NAME == "numora":
    subprocess.run([NUMORA, "kernel", "install", "--prefix", FOLDER], check=True, timeout=LIMIT, stdout=subprocess.DEVNULL)


class Client:
    """The sockets of a front end."""

    def __init__(self, connection, key=None):
        self.session = Session(key=key or connection["key"].encode())
        self.sockets = {}
        for name, kind in ("shell", zmq.DEALER), ("control", zmq.DEALER), ("stdin", zmq.DEALER), ("iopub", zmq.SUB):
            socket = self.sockets[name] = zmq.Context.instance().socket(kind)
            socket.linger, socket.rcvhwm = 0, 0
            if kind == zmq.SUB:
                socket.subscribe(b"")
            else:  # that of stdin finds the client by the identity of its request
                socket.identity = self.session.bsession
            if name == "stdin":
                socket.immediate = True  # it can be written to once it is connected
            socket.connect(f"tcp://127.0.0.1:{connection[name + '_port']}")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for socket in self.sockets.values():
            socket.close()

    def send(self, channel, kind, content, parent=None):
        """The name of the message."""
        return self.session.send(self.sockets[channel], kind, content, parent)["header"]["msg_id"]

    def execute(self, code, **content):
        return self.send("shell", "execute_request",
                         {"code": code, "silent": False, "store_history": True, "user_expressions": {},
                          "allow_stdin": False, "stop_on_error": True, **content})

    def receive(self, channel, seconds=LIMIT):
        if not self.sockets[channel].poll(seconds * 1000):
            raise TimeoutError(f"nothing comes on {channel}")
        return self.session.recv(self.sockets[channel])[1]

    def reply(self, request, channel="shell"):
        """The next message there, which must be the reply to `request`."""
        message = self.receive(channel)
        if message["parent_header"].get("msg_id") != request:
            raise AssertionError(message)
        return message["content"]

    def outputs(self, request, seconds=LIMIT):
        """What comes on iopub with this parent, up to its idle."""
        came = []
        while not came or came[-1]["content"].get("execution_state") != "idle":
            message = self.receive("iopub", seconds)
            if message["parent_header"].get("msg_id") == request:
                came.append(message)
        return came

    def run(self, code, **content):
        """The content of its reply, and its text."""
        request = self.execute(code, **content)
        reply = self.reply(request)
        return reply, "".join(came["content"]["text"] for came in self.outputs(request) if came["msg_type"] == "stream")

    def until_input_executes(self, request):
        while (came := self.receive("iopub"))["msg_type"] != "execute_input" or came["parent_header"]["msg_id"] != request:
            pass

    def all_of(self, requests, channel="shell"):
        """When all of them are idle: what has come on the channel and on iopub since the last time, by pairs of parent and
        message. What comes too much was sent before the answer to a request after them."""
        replies, published = [], []

        def read_until(where, came, is_last):
            while True:
                message = self.receive(where)
                came.append((message["parent_header"].get("msg_id"), message))
                if is_last(*came[-1]):
                    return

        waited = set(requests)
        while waited:
            read_until("iopub", published, lambda _, message: message["content"].get("execution_state") == "idle")
            waited.discard(published[-1][0])
        fence = self.send(channel, "kernel_info_request", {})
        read_until(channel, replies, lambda parent, _: parent == fence)
        read_until("iopub", published, lambda parent, message: parent == fence and
                   message["content"].get("execution_state") == "idle")
        return replies[:-1], published


class Kernel:
    """A process with a connection file of its own."""

    def __init__(self, command=lambda arguments: arguments, **options):
        file, self.connection = write_connection_file(os.path.join(tempfile.mkdtemp(dir=FOLDER), "kernel.json"),
                                                      key=os.urandom(16).hex().encode())
        arguments = [part.replace("{connection_file}", file) for part in get_kernel_spec(NAME).argv]
        options = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, **options}
        self.process = subprocess.Popen(command(arguments), **options)

    def connect(self):
        """A client that misses nothing of what comes on iopub from now on."""
        client, end = Client(self.connection), time.monotonic() + LIMIT
        if not client.sockets["stdin"].poll(LIMIT * 1000, zmq.POLLOUT):  # what asks before that is lost
            raise TimeoutError("stdin is not connected")
        while True:
            request = client.send("shell", "kernel_info_request", {})
            client.reply(request)
            try:
                client.outputs(request, .2)
                return client
            except TimeoutError:
                if time.monotonic() > end:
                    raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()

