"""Comms: messages between objects of code and of notebooks, such as widgets."""

import base64
import sys
import types
import uuid
from collections import deque
from contextlib import suppress

import _numora_host as _host

from . import _cells, _guest

_LONGEST_HELD, _LONGEST_SENT = 65_536, 1_000_000  # characters of text


class Comm:
    """One end of a comm. The other is opened with it, unless it is the one that has opened this one."""

    def __init__(self, target_name="", data=None, metadata=None, buffers=None, comm_id=None, primary=True,
                 target_module=None, **_):  # fmt: skip
        self.comm_id = comm_id or uuid.uuid4().hex
        self.target_name, self.primary, self.target_module = target_name, primary, target_module
        self._on_msg = self._on_close = None
        self._is_closed = True
        if primary:
            self.open(data, metadata, buffers)
        else:
            self._is_closed = False

    @property
    def kernel(self):
        guest = _guest.made()
        return guest.shell.kernel if guest else manager

    def open(self, data=None, metadata=None, buffers=None):
        manager.register_comm(self)
        try:
            self._publish("open", data, metadata, buffers)
            self._is_closed = False
        except BaseException:
            manager.unregister_comm(self)
            raise

    def send(self, data=None, metadata=None, buffers=None):
        self._publish("msg", data, metadata, buffers)

    def close(self, data=None, metadata=None, buffers=None, deleting=False):
        if self._is_closed:
            return
        self._is_closed = True
        self._publish("close", data, metadata, buffers)
        if not deleting:
            manager.unregister_comm(self)

    def on_msg(self, callback):
        """Has a function called with each message; None for none."""
        self._on_msg = callback

    def on_close(self, callback):
        self._on_close = callback

    def handle_msg(self, msg):
        if self._on_msg:
            self._on_msg(msg)

    def handle_close(self, msg):
        self._is_closed = True
        if self._on_close:
            self._on_close(msg)

    def _publish(self, kind, data, metadata, buffers):
        members = {"comm_id": self.comm_id, "target_name": self.target_name, "data": data or {},
                   "metadata": metadata or {}, "buffers": [_text_of(buffer) for buffer in buffers or ()]}  # fmt: skip
        _host.raise_event("comm", {"kind": kind, **members})


def _text_of(buffer):
    return base64.b64encode(memoryview(buffer).cast("B")).decode()


class Manager:
    """The open comms, and who is asked for the targets that notebooks open."""

    def __init__(self, **_):
        self.comms, self.targets = {}, {}

    def register_target(self, target_name, f):
        """`f(comm, msg)`, or its name in a module, is called when a notebook opens a comm."""
        if isinstance(f, str):
            from importlib import import_module

            module, _, name = f.rpartition(".")
            f = getattr(import_module(module), name)
        self.targets[target_name] = f

    def unregister_target(self, target_name, f=None):
        return self.targets.pop(target_name)

    def register_comm(self, comm):
        self.comms[comm.comm_id] = comm
        return comm.comm_id

    def unregister_comm(self, comm):
        self.comms.pop(comm.comm_id, None)

    def get_comm(self, comm_id):
        return self.comms.get(comm_id)

    def comm_open(self, stream, ident, msg):
        content = msg["content"]
        comm = Comm(content["target_name"], comm_id=content["comm_id"], primary=False)
        self.register_comm(comm)
        try:
            opened = self.targets.get(comm.target_name)
            if opened is None:
                comm.close()
            else:
                opened(comm, msg)
        except BaseException:
            comm.close()
            raise

    def comm_msg(self, stream, ident, msg):
        comm = self.get_comm(msg["content"]["comm_id"])
        if comm is not None:
            comm.handle_msg(msg)

    def comm_close(self, stream, ident, msg):
        comm = self.comms.pop(msg["content"]["comm_id"], None)
        if comm is not None:
            comm.handle_close(msg)


manager = Manager()


def info(target_name):
    chosen = [comm for comm in list(manager.comms.values()) if target_name in (None, comm.target_name)]
    return {comm.comm_id: {"target_name": comm.target_name} for comm in chosen}


def handle(kind, comm_id, target_name, data, metadata, buffers):
    """Passes on a message of a notebook. What handlers print and show is the message's, errors on stderr."""
    content = {"comm_id": comm_id, "target_name": target_name, "data": data}
    message = {"header": {"msg_id": _host.request_name(), "msg_type": "comm_" + kind}, "content": content,
               "metadata": metadata or {}, "buffers": [memoryview(base64.b64decode(text)) for text in buffers or ()]}  # fmt: skip
    receive = {"open": manager.comm_open, "msg": manager.comm_msg, "close": manager.comm_close}[kind]
    printed = _Printed(comm_id)
    _host.take_printed(printed)  # it would go nowhere: no evaluation runs
    try:
        _cells.set_figures_aside()
        guest = _guest.made()
        if guest:
            guest.begin()
        receive(None, None, message)
    except BaseException as error:
        _cells.complain(error)
    _cells.end()
    printed("stdout", "")


class _Printed:
    """Has the notebook get what handlers print, line by line."""

    def __init__(self, comm_id):
        self._comm_id, self._held, self._size = comm_id, deque(), 0  # of several threads

    def __call__(self, name, text):
        self._held.append((name, text))
        self._size += len(text)
        if text and not text.endswith("\n") and self._size < _LONGEST_HELD:
            return
        self._size, texts = 0, {}
        with suppress(IndexError):
            while True:
                name, text = self._held.popleft()
                texts.setdefault(name, []).append(text)
        for name, parts in texts.items():
            text = "".join(parts)
            for begin in range(0, len(text), _LONGEST_SENT):
                event = {"kind": "stream", "comm_id": self._comm_id, "name": name, "text": text[begin : begin + _LONGEST_SENT]}
                _host.raise_event("comm", event)


def stand_in():
    """Takes the place of the kernel that libraries import a comm of."""
    module = types.ModuleType("ipykernel.comm")
    module.Comm, module.CommManager = Comm, Manager
    sys.modules["ipykernel.comm"] = module


def prepare_package():
    """Has the package `comm` make comms of these."""
    package = sys.modules["comm"]
    if hasattr(package, "create_comm") and hasattr(package, "get_comm_manager"):  # it is not another of this name
        package.create_comm, package.get_comm_manager = Comm, lambda: manager
