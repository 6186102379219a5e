"""Where a server is, and what it asks for."""

from __future__ import annotations

import dataclasses
import re
import ssl
import urllib.parse
from typing import Optional

from .errors import AddressError

_ID = "[a-z][a-z0-9-]{0,62}"


@dataclasses.dataclass(frozen=True)
class Address:
    """`server` is without the path of the interpreter, which is None where the address names none: the default one.

    `shown` is what users may see of it: it holds no token.
    """

    shown: str
    server: str
    interpreter: Optional[str]
    token: str
    ssl: Optional[ssl.SSLContext]

    @property
    def socket_url(self) -> str:
        return "ws" + self.server[len("http"):] + (path_of(self.interpreter) if self.interpreter else "") + "/cometd"

    def with_interpreter(self, interpreter: str) -> Address:
        """Throws: AddressError."""
        path = path_of(interpreter)
        return dataclasses.replace(self, shown=self.server + path + "/", interpreter=interpreter)


def path_of(interpreter: str) -> str:
    """Where the server has what is of an interpreter.  Throws: AddressError."""
    if not re.fullmatch(_ID, interpreter):
        raise AddressError("the id of an interpreter must be of 1 to 63 letters a to z, digits and -, and begin with a "
                           f'letter, and is "{interpreter}"')
    return "/interpreters/" + interpreter


def parse(url: str, token: Optional[str], context: Optional[ssl.SSLContext]) -> Address:
    """Reads an address as the server prints it, `http://host:port/path/?token=...`.  Throws: AddressError."""
    shown = url.strip().partition("?")[0]
    try:
        parts = urllib.parse.urlsplit(url.strip())
        host, port = parts.hostname, parts.port
        (host or "").encode("idna")  # no label is empty or too long
    except ValueError:
        host, port = None, None
    else:
        if parts.scheme not in ("http", "https", "ws", "wss"):
            raise AddressError(f'the address must begin with http:// or https://, and is "{shown}"')
    if not host or port == 0 or re.search(r"\s", parts.netloc):
        raise AddressError(f'the address must name a host, and a port between 1 and 65535 if any, and is "{shown}"')
    if parts.username is not None:
        raise AddressError("the address must not hold a user name: the server asks for a token alone")
    token = token or urllib.parse.parse_qs(parts.query).get("token", [""])[0]
    if not re.fullmatch(r"[!-~]*", token):
        raise AddressError("the token must be of letters, digits and -._~")
    is_secure = parts.scheme in ("https", "wss")
    if context is not None and not is_secure:
        raise AddressError(f'the address must begin with https:// for an SSL context, and is "{shown}"')
    path = urllib.parse.quote(parts.path.rstrip("/"), safe="/%:@!$&'()*+,;=~")
    of_interpreter = re.search(f"/interpreters/({_ID})$", path)
    folder = path[:of_interpreter.start()] if of_interpreter else path
    return Address(shown, f"{'https' if is_secure else 'http'}://{parts.netloc}{folder}",
                   of_interpreter[1] if of_interpreter else None, token,
                   context or ssl.create_default_context() if is_secure else None)
