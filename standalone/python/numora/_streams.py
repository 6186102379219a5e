"""The standard streams of Python code."""

import codecs
import io
import sys

import _numora_host as _host

from ._prompts import read_line


class Output(io.TextIOBase):
    """Text stream into the command window. `write` is the native function itself, so print() runs no Python frame.

    Nor does `fileno`: input() drops whatever is raised in it, an interrupt too.
    """

    encoding = "utf-8"
    errors = "replace"
    newlines = None
    line_buffering = True
    mode = "w"

    def __init__(self, name, descriptor, write):
        self.name = name
        self.write = write
        self.flush = _host.flush
        self.fileno = descriptor.__index__  # captured too, so a child process may write there
        self.buffer = OutputBytes(self)

    def writable(self):
        return True

    def reconfigure(self, **_):
        pass

    def close(self):
        pass


class OutputBytes(io.RawIOBase):
    """The bytes side of an Output, for code that writes UTF-8 itself."""

    def __init__(self, text):
        self.name = text.name
        self._text = text
        self._decoder = codecs.getincrementaldecoder("utf-8")("replace")

    def write(self, data):
        data = bytes(data)
        self._text.write(self._decoder.decode(data))
        return len(data)

    def fileno(self):
        return self._text.fileno()

    def writable(self):
        return True

    def close(self):
        pass


class Input(io.TextIOBase):
    """Text stream of what is typed at prompts, line by line."""

    encoding = "utf-8"
    errors = "strict"
    mode = "r"
    name = "<stdin>"

    def __init__(self):
        self._rest = ""
        self.fileno = (0).__index__  # which is empty, for child processes; no Python frame, as in Output
        self.buffer = InputBytes(self)

    def readable(self):
        return True

    def next_line(self, frame):
        return read_line(frame)

    def readline(self, size=-1):
        line = self._rest or self.next_line(sys._getframe(1))
        if size is None or size < 0:
            size = len(line)
        self._rest = line[size:]
        return line[:size]

    def read(self, size=-1):
        limit = sys.maxsize if size is None or size < 0 else size
        text = ""
        while len(text) < limit:
            # The frame that asks is this one's caller, as far as the prompt is concerned.
            line = self._rest or self.next_line(sys._getframe(1))
            if not line:
                break
            take = limit - len(text)
            text, self._rest = text + line[:take], line[take:]
        return text

    def close(self):
        pass


class InputBytes(io.RawIOBase):
    """The bytes side of an Input, in UTF-8."""

    def __init__(self, text):
        self._text = text

    def readable(self):
        return True

    def readline(self, size=-1):
        return self._text.readline().encode("utf-8", "surrogatepass")

    def read(self, size=-1):
        return self._text.read(size).encode("utf-8", "surrogatepass")

    def close(self):
        pass
