#!/usr/bin/env python3
"""What a server stands: clients that pause or stay away while code prints, many idle connections, and bad peers.

    bench/endurance.py build/release/bin/numora

Each scenario has a server of its own, and prints one line. The exit status is 1 when one of them failed.
"""

import asyncio
import contextlib
import json
import os
import resource
import signal
import socket
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "clients", "python"))

import numora_client

TOKEN = "0123456789abcdef"


class Server:
    def __init__(self, program, *arguments, port=0):
        self._command = [program, "serve", "--port", str(port), "--token", TOKEN, *arguments]

    async def __aenter__(self):
        self._process = await asyncio.create_subprocess_exec(*self._command, stdout=asyncio.subprocess.PIPE)
        line = (await self._process.stdout.readline()).decode()
        self.url = f"{line.split()[-1]}?token={TOKEN}"
        self.port = int(self.url.split(":")[2].split("/")[0])
        return self

    async def __aexit__(self, *_):
        begin = time.monotonic()
        self._process.send_signal(signal.SIGTERM)
        status = await self._process.wait()
        if status != 0 or time.monotonic() - begin > 3:
            raise AssertionError(f"the server ended with status {status} after {time.monotonic() - begin:.1f} s")

    def memory(self, what="VmHWM"):
        """In MiB: the largest resident size so far, or VmRSS, the present one."""
        with open(f"/proc/{self._process.pid}/status", encoding="ascii") as status:
            return next(int(line.split()[1]) for line in status if line.startswith(what + ":")) / 1024

    def client(self):
        return numora_client.Client(self.url)


class RawSubscriber:
    """A WebSocket that reads nothing until it is told to; without acknowledgements, so that everything is pushed."""

    async def open(self, url, **ext):
        import websockets
        self._socket = await websockets.connect(url.split("?")[0].replace("http", "ws") + "cometd", max_size=None,
                                                max_queue=1, read_limit=4096)
        reply = await self._ask({"channel": "/meta/handshake", "version": "1.0", "ext": {"connector": {"token": TOKEN}},
                                 "supportedConnectionTypes": ["websocket"]})
        self._client_id = reply["clientId"]
        await self._ask({"channel": "/meta/subscribe", "subscription": "/eval/response/**", "ext": {"connector": ext}})
        await self._socket.send(json.dumps([{"channel": "/meta/connect", "clientId": self._client_id,
                                             "connectionType": "websocket", "id": "c"}]))
        self._socket.transport.pause_reading()
        return self

    async def _ask(self, message):
        if hasattr(self, "_client_id"):
            message["clientId"] = self._client_id
        await self._socket.send(json.dumps([message]))
        return json.loads(await self._socket.recv())[0]

    async def read(self):
        """The messages up to a completion."""
        self._socket.transport.resume_reading()
        while True:
            for message in json.loads(await asyncio.wait_for(self._socket.recv(), 30)):
                if "data" in message:
                    yield message
                    if message["channel"].endswith("/completion"):
                        await self._socket.close()
                        return


async def drain(client, code):
    async for _ in client.stream(code):
        pass


async def paused_client(program):
    """A client that does not read for ten seconds gets each of 2,000 pieces that were flushed."""
    async with Server(program) as server, server.client() as other:
        subscriber = await RawSubscriber().open(server.url)
        await drain(other, "import time\nfor i in range(2000):\n    print(i, flush=True)\n    time.sleep(.005)")
        text = "".join([m["data"] async for m in subscriber.read() if m["channel"].endswith("/output")])
        assert text.split() == [str(i) for i in range(2000)], text[:200]
        return f"2000 of 2000 pieces, server {server.memory():.0f} MiB at most"


async def absent_client(program):
    """A client that does not read at all while 1 GB is printed gets a tail, one notice of the gap and the completion."""
    async with Server(program) as server:
        subscriber = await RawSubscriber().open(server.url)
        async with server.client() as other:
            begin = time.monotonic()
            started = "line = 'x' * 1023\nfor i in range(1_000_000): print(line)"
            await other.eval("pass")
            async with other.stream(started, lossy=True):
                await other.eval("pass")  # its turn comes after the printing
            seconds = time.monotonic() - begin
        text, notices, completions = 0, [], 0
        async for message in subscriber.read():
            if message["channel"].endswith("/output"):
                text += len(message["data"])
            elif message["channel"] == "/connector/dropped":
                notices.append(message["data"])
            elif message["channel"].endswith("/completion"):
                completions += 1
        assert completions == 1 and len(notices) == 1, (completions, notices)
        assert text + notices[0]["bytes"] >= 1_024_000_000, (text, notices)
        assert text < 64 << 20, text
        memory = server.memory()
        assert memory < 300, f"{memory:.0f} MiB"
        return (f"1 GB in {seconds:.1f} s; {text >> 20} MiB kept, one notice of {notices[0]['bytes'] >> 20} MiB, "
                f"server {memory:.0f} MiB at most")


async def returning_client(program):
    """A client that was away with no session while 1 GB was printed gets what is kept, one gap and the completion."""
    async with Server(program) as server:
        async with server.client() as first:
            await drain(first, "line = 'x' * 1023\nfor i in range(1_000_000): print(line)")
        later = await RawSubscriber().open(server.url, after=0)
        got = [message async for message in later.read()]
        gaps = [m["data"] for m in got if m["channel"] == "/connector/gap"]
        text = sum(len(m["data"]) for m in got if m["channel"].endswith("/output"))
        assert len(gaps) == 1 and got[0]["channel"] == "/connector/gap", gaps
        assert text + gaps[0]["bytes"] >= 1_024_000_000, (text, gaps)
        memory = server.memory()
        assert memory < 300, f"{memory:.0f} MiB"
        return f"{text >> 20} MiB kept, one gap of {gaps[0]['bytes'] >> 20} MiB, server {memory:.0f} MiB at most"


async def idle_connections(program, count=10_000):
    """Connections that are opened, held and dropped, while requests go on."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(hard, 2 * count), hard))
    with tempfile.NamedTemporaryFile("w", suffix=".toml") as settings:
        settings.write(f"connections = {count + 100}\n")
        settings.flush()
        return await hold_connections(Server(program, "--config", settings.name), count)


async def hold_connections(server, count):
    async with server, server.client() as client:
        before = server.memory("VmRSS")
        held, refused = [], 0
        for _ in range(count):
            peer = socket.socket()
            peer.setblocking(False)
            await asyncio.wait_for(asyncio.get_running_loop().sock_connect(peer, ("127.0.0.1", server.port)), 30)
            held.append(peer)
        assert (await client.eval("6 * 7")).text == "42\n"
        await asyncio.sleep(5)
        for peer in held:
            try:
                refused += peer.recv(1) == b""
            except BlockingIOError:
                pass
        during = server.memory("VmRSS")
        for peer in held:
            peer.close()
        assert (await client.eval("6 * 7")).text == "42\n"
        return f"{count} opened, {refused} closed by the server at once, {before:.0f} -> {during:.0f} MiB"


async def seconds_until_closed(port, first, then=b"", pause=1.0):
    reader, writer = await asyncio.open_connection("127.0.0.1", port)
    begin = time.monotonic()
    writer.write(first)
    closed = asyncio.create_task(reader.read())
    try:
        while not closed.done() and time.monotonic() - begin < 90:
            await asyncio.wait({closed}, timeout=pause)
            if then and not closed.done():
                writer.write(then)
        assert closed.done(), "not closed in 90 s"
    finally:
        writer.close()
    return time.monotonic() - begin


async def slow_peers(program):
    """Peers that send their head or body byte by byte, or nothing, are closed; others are served meanwhile."""
    head = (b"POST /connector/v1/Eval HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " + TOKEN.encode() +
            b"\r\nContent-Type: application/json\r\nContent-Length: 1000000\r\n")
    async with Server(program, "--allow-host", "127.0.0.1") as server, server.client() as client:
        tasks = [seconds_until_closed(server.port, head, b"X"), seconds_until_closed(server.port, head + b"\r\n"),
                 seconds_until_closed(server.port, b"")]
        together = asyncio.gather(*tasks)
        assert (await client.eval("6 * 7")).text == "42\n"
        slow_head, slow_body, silent = await together
        return f"head closed after {slow_head:.0f} s, stalled body {slow_body:.0f} s, silence {silent:.0f} s"


async def garbage(program):
    """Bytes that are no HTTP, by many peers at a time."""
    async with Server(program) as server, server.client() as client:
        async def one(seed):
            try:
                await seconds_until_closed(server.port, os.urandom(100 + seed) + b"\r\n\r\n", pause=15)
            except ConnectionError:
                pass
        await asyncio.gather(*(one(seed) for seed in range(500)))
        assert (await client.eval("6 * 7")).text == "42\n"
        return f"500 peers with random bytes, server {server.memory():.0f} MiB at most"


async def restarted_server(program, rounds=20):
    """The client is there again within 1.5 s of the server, and no exception is lost."""
    lost, seconds, port = [], [], 0
    asyncio.get_running_loop().set_exception_handler(lambda loop, context: lost.append(context))
    async with contextlib.AsyncExitStack() as client_stack:
        for number in range(rounds + 1):
            async with Server(program, port=port) as server:
                begin = time.monotonic()
                if number == 0:
                    client, port = await client_stack.enter_async_context(server.client()), server.port
                assert (await client.eval("6 * 7")).text == "42\n"
                seconds.append(time.monotonic() - begin)
        assert max(seconds) < 1.5 and not lost, (seconds, lost)
    return f"{rounds} restarts, back after {max(seconds):.2f} s at most"


async def slow_reader(program):
    """A client that reads 1 GB at 50 MB/s gets all of it, and the code waits."""
    async with Server(program) as server, server.client() as client:
        begin, size = time.monotonic(), 0
        async for event in client.stream("line = 'x' * 1023\nfor i in range(1_000_000): print(line)"):
            assert isinstance(event, (numora_client.Output, numora_client.Prompt, numora_client.Completed)), event
            size += len(getattr(event, "text", ""))
            await asyncio.sleep(max(0, begin + size / 50e6 - time.monotonic()))
        assert size == 1_024_000_000, size
        own = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024
        assert server.memory() < 150, server.memory()
        return f"1 GB in {time.monotonic() - begin:.0f} s, server {server.memory():.0f} MiB, client {own:.0f} MiB at most"


SCENARIOS = [paused_client, absent_client, returning_client, slow_reader, restarted_server, idle_connections, slow_peers,
             garbage]


async def main(program, names):
    failed = False
    for scenario in SCENARIOS:
        if names and scenario.__name__ not in names:
            continue
        try:
            print(f"{scenario.__name__:18} {await asyncio.wait_for(scenario(program), 180)}", flush=True)
        except Exception as error:  # the next scenario is shown all the same
            failed = True
            print(f"{scenario.__name__:18} FAILED: {type(error).__name__} {error}", flush=True)
    return failed


if __name__ == "__main__":
    sys.exit(asyncio.run(main(sys.argv[1], sys.argv[2:])))
