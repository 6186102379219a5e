"""Where a server is, and what it asks for."""

from __future__ import annotations

import dataclasses
import re
import ssl
import urllib.parse
from typing import Optional

from .errors import AddressError


@dataclasses.dataclass(frozen=True)
class Address:
    """`shown` is what users may see of it: it holds no token."""

    shown: str
    socket_url: str
    token: str
    ssl: Optional[ssl.SSLContext]


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
    return Address(shown, f"{'wss' if is_secure else 'ws'}://{parts.netloc}{path}/cometd", token,
                   context or ssl.create_default_context() if is_secure else None)
