"""The Python client against a server, over connections that are cut."""

import asyncio
import contextlib
import gc
import os
import pickle
import re
import signal
import subprocess
import sys
import time
import unittest
from unittest import mock

FOLDER = os.path.join(os.path.dirname(__file__), "..", "..", "clients", "python")
sys.path.insert(0, FOLDER)

import numora_client
from numora_client import Completed, ErrorOutput, Gap, Output, Prompt, _inbox, _socket, address
from numora_program import LIMIT, TOKEN, CuttingProxy, Server, Signal


class ClientTestCase(unittest.IsolatedAsyncioTestCase):
    """The event loop is in debug mode; exceptions that nobody retrieves fail the test."""

    @classmethod
    def setUpClass(cls):
        cls.server = cls.enterClassContext(Server("--allow-host", "127.0.0.1"))

    async def asyncSetUp(self):
        problems = []
        loop = asyncio.get_running_loop()
        loop.slow_callback_duration = LIMIT
        loop.set_exception_handler(lambda loop, context: problems.append(context))
        self.addCleanup(lambda: (gc.collect(), self.assertEqual(problems, [])))
        self.client = await self.enter(numora_client.Client(self.server.url))

    async def enter(self, manager):
        entered = await manager.__aenter__()
        self.addAsyncCleanup(manager.__aexit__, None, None, None)
        return entered

    async def read(self, stream, each=lambda event: None):
        """The text that code printed in a stream, and the other events but those of prompts."""
        text, others = [], []
        async for event in stream:
            found = each(event)
            if asyncio.iscoroutine(found):
                await found
            if isinstance(event, Output):
                text.append(event.text)
            elif not isinstance(event, Prompt):
                others.append(event)
        return "".join(text), others


class ClientTest(ClientTestCase):
    async def test_evaluates_and_calls(self):
        result = await self.client.eval("print('é<'); 6 * 7")
        self.assertEqual((result.text, result.is_error), ("é<\n42\n", False))
        self.assertTrue((await self.client.eval("1/0")).is_error)
        self.assertEqual((await self.client.eval("while True: pass", timeout=.1)).faults[0][0], "Request.Timeout")
        self.assertEqual(await self.client.call("divmod", 7, 2, nargout=2), [3, 1])
        self.assertIsNone(await self.client.call("print", nargout=0))
        self.assertEqual(await self.client.call("len", "\ud83d\ude00"), 1)
        for request, error, message in [
            (self.client.call("nosuch"), "CallError", "^NameError: there is no function named 'nosuch'$"),
            (self.client._call("a/b", {}), "CallError", "^There is no such message type[.]$"),
            (self.client.call("len", float("nan")), "ValueError", "^Out of range float"),
            (self.client.call("len", "\ud800"), "ValueError", "^text must not hold surrogates without"),
            (self.client.call("len", "x" * (17 << 20)), "Disconnected", "^a request must have at most 16 MiB$"),
        ]:
            with self.assertRaisesRegex(getattr(numora_client, error, ValueError), message):
                await request

    async def test_each_stream_gets_its_own_text_and_status(self):
        other = await self.enter(numora_client.Client(self.server.url))

        async def one(client, number):
            code = f"for i in range(500): print({number}, i)\n" + ("1 / 0" if number % 2 else "")
            text, others = await self.read(client.stream(code))
            self.assertEqual(text, "".join(f"{number} {i}\n" for i in range(500)))
            self.assertEqual([type(event) for event in others], [ErrorOutput, Completed] if number % 2 else [Completed])
            self.assertEqual(others[-1].success, number % 2 == 0)

        await asyncio.wait_for(asyncio.gather(*(one((self.client, other)[i % 3 > 0], i) for i in range(24))), LIMIT)

    async def test_what_is_left_ends_and_brings_nothing_to_the_next(self):
        async with self.client.stream("for i in range(50_000): print('x' * 50)") as stream:
            while not isinstance(await stream.__anext__(), Output): pass
        messages = await self.client.messages("/eventmgr/0/mine").__aenter__()
        await self.client.eval("import numora; numora.post_event('mine', 1)")
        self.assertEqual((await asyncio.wait_for(messages.__anext__(), LIMIT)).data, {"payload": 1})
        reading = asyncio.create_task(self.read(messages))
        await asyncio.sleep(0)
        await messages.aclose()
        self.assertEqual(await asyncio.wait_for(reading, LIMIT), ("", []))

    async def test_a_refusal_ends_a_stream_that_nobody_waited_for(self):
        stream = self.client.stream("1", capabilities=[5])
        beginning = asyncio.create_task(stream.__anext__())
        while stream._session is None: await asyncio.sleep(0)
        beginning.cancel()
        with self.assertRaisesRegex(numora_client.CallError, "capabilities"):
            await asyncio.wait_for(stream.__anext__(), LIMIT)

    async def test_types_at_the_prompt_that_is_named_and_code_is_never_typed(self):
        prompts, waiting = [], []

        async def answer(event):
            if isinstance(event, Prompt) and event.number:
                waiting.append(await self.client.stream(f"print({len(waiting)})").__aenter__())
                prompts.append(event)
                await self.client.type(event, f"Ada{len(prompts)}")

        stream = self.client.stream("import getpass\nprint('Hi', input('Name? '), getpass.getpass('? '))")
        self.assertEqual(await self.read(stream, answer), ("Name? ? Hi Ada1 Ada2\n", [Completed(True)]))
        self.assertEqual([prompt.echo for prompt in prompts], [True, False])
        for number, stream in enumerate(waiting):
            self.assertEqual(await self.read(stream), (f"{number}\n", [Completed(True)]))
        with self.assertRaisesRegex(numora_client.PromptGone, "^the prompt is gone, and nothing was typed$"):
            await self.client.type(prompts[0], "print(1)")

    async def test_calls_inside_code_however_many_wait_for_its_end_and_tells_what_an_interrupt_dropped(self):
        waiting = [asyncio.create_task(self.client.eval("while True: pass")) for _ in range(20)]
        sent = time.time()
        while time.time() < sent + 0.01:  # a later millisecond
            self.assertEqual(await asyncio.wait_for(self.client.call("len", "four", deque_mode="ppe"), LIMIT), 4)
        await self.client.interrupt()
        results = await asyncio.wait_for(asyncio.gather(*waiting, return_exceptions=True), LIMIT)
        dropped = [result for result in results if isinstance(result, numora_client.NotRun)]
        self.assertGreater(len(dropped), 0)
        for result in results:
            self.assertTrue(result in dropped or result.faults or result.is_error, result)

    async def test_wrong_addresses_are_told(self):
        server = f"http://127.0.0.1:{self.server.port}"
        for url, error, message in [
            ("ftp://host/", "AddressError", '^the address must begin with http:// or https://, and is "ftp://host/"$'),
            ("http://host:99999/?token=t", "AddressError",
             '^the address must name a host, and a port between 1 and 65535 if any, and is "http://host:99999/"$'),
            ("http://x..y/", "AddressError", "^the address must name a host"),
            ("http://host/?token=%0A", "AddressError", "^the token must be of letters, digits and -._~$"),
            (server + "/?token=wrong", "CallError", "^the token is missing or wrong$"),
            (server + "/numora/?token=" + TOKEN, "Disconnected", "must be the address of a .* the HTTP status 404$"),
            ("http://127.0.0.1:1/?token=t", "Disconnected", "^the server at http://127.0.0.1:1/ cannot be reached: "),
        ]:
            with self.subTest(url), self.assertRaisesRegex(getattr(numora_client, error), message):
                await numora_client.Client(url).__aenter__()
        self.assertEqual(address.parse("https://lab/a b/?token=t", None, None).socket_url, "wss://lab/a%20b/cometd")

    def test_headers_and_statuses_of_the_library_from_version_14_on(self):
        def connect(uri, *, additional_headers=None, **options): pass
        class Refused(Exception): response = mock.Mock(status_code=404)
        self.assertEqual(_socket.connect_options(connect, {"A": "b"}), {"additional_headers": {"A": "b"}})
        self.assertEqual(_socket.status_of(Refused()), 404)

    async def test_loses_and_doubles_nothing_when_connections_are_cut_and_a_session_ends(self):
        proxy = self.enterContext(CuttingProxy(self.server.port))
        client = await self.enter(numora_client.Client(f"http://127.0.0.1:{proxy.port}", TOKEN))
        cuts = 0

        def cut_sometimes(event):
            nonlocal cuts
            if not isinstance(event, Output) or cuts == 5: return None
            cuts += 1
            if cuts != 3: return proxy.cut()
            disconnect = {"channel": "/meta/disconnect", "clientId": stream._session._client_id}
            return asyncio.to_thread(self.server.request, "/cometd", [disconnect])

        code = "import time\nfor i in range(10_000):\n    print(i)\n    if i % 1000 == 999: time.sleep(.2)"
        stream = client.stream(code)
        text, others = await asyncio.wait_for(self.read(stream, cut_sometimes), LIMIT)
        self.assertEqual(text.split(), [str(i) for i in range(10_000)])
        self.assertEqual((others, cuts), ([Completed(True)], 5))

    async def test_a_slow_reader_gets_all_and_holds_up_nothing_else(self):
        most = 0

        async def read_slowly(event):
            nonlocal most
            most = max(most, stream._inbox._size)
            await asyncio.sleep(.001)

        with mock.patch.object(_inbox, "_ROOM", 1 << 20):
            async with self.client.stream("for i in range(60_000): print('x' * 1023)") as stream:
                reading = asyncio.create_task(self.read(stream, read_slowly))
                self.assertEqual(await self.client.call("len", "four", deque_mode="ppe"), 4)
                text, others = await asyncio.wait_for(reading, LIMIT)
        self.assertEqual((len(text), others), (60_000 * 1024, [Completed(True)]))
        self.assertLess(most, 4 << 20)


class RestartTest(ClientTestCase):
    async def test_comes_back_and_tells_which_code_has_gone(self):
        server = self.enterContext(Server())
        client = await self.enter(numora_client.Client(server.url))
        async with client.messages("/eventmgr/0/status") as messages:
            for number in (signal.SIGTERM, signal.SIGKILL, signal.SIGTERM):
                stream = await client.stream("print(1, flush=True)\nwhile True: pass").__aenter__()
                while await stream.__anext__() != Output("1\n"): pass
                await asyncio.to_thread(server.stop, number)
                server = self.enterContext(await asyncio.to_thread(Server, port=server.port))
                self.assertEqual((await client.eval("6 * 7")).text, "42\n")
                try:  # a server that ends in good order may still interrupt the code and say so
                    _, others = await asyncio.wait_for(self.read(stream), LIMIT)
                    self.assertEqual((number, others[-1]), (signal.SIGTERM, Completed(False)))
                except numora_client.Disconnected:
                    pass
            got = [await asyncio.wait_for(messages.__anext__(), LIMIT) for _ in range(7)]
        self.assertIn("/connector/gap", [message.channel for message in got])


class InterpretersTest(ClientTestCase):
    @contextlib.asynccontextmanager
    async def assertDies(self, *, life, detail):
        with self.assertRaises(numora_client.InterpreterDied) as died:
            yield
        error = pickle.loads(pickle.dumps(died.exception))
        self.assertEqual((error.life, error.detail, error.code), (life, detail, 502))
        self.assertIn(" has died: ", str(error))

    async def test_what_was_under_way_fails_after_all_that_it_printed_and_the_next_call_works(self):
        states = await self.enter(self.client.messages("/connector/interpreter"))
        stream = await self.enter(self.client.stream("for i in range(1000): print(i)\ninput()\nimport os; os.abort()"))
        events, waiting = [], []

        async def type_when_asked(event):
            events.append(event)
            if isinstance(event, Prompt) and event.number:
                waiting.append(asyncio.create_task(self.client.call("print", nargout=0)))
                await asyncio.sleep(0)  # it is sent before what is typed
                await self.client.type(event, "")

        async with self.assertDies(life=1, detail="SIGABRT"):
            await asyncio.wait_for(self.read(stream, type_when_asked), LIMIT)
        text = "".join(event.text for event in events if not isinstance(event, Prompt))
        self.assertEqual(text.split(), [str(i) for i in range(1000)])
        async with self.assertDies(life=1, detail="SIGABRT"):
            await asyncio.wait_for(waiting[0], LIMIT)
        self.assertEqual((await self.client.eval("6 * 7")).text, "42\n")
        [record] = await self.client.deaths()
        self.assertEqual((record.life, record.request.type), (1, "/eval/request"))
        self.assertIn("os.abort()", record.request.code)
        self.assertEqual((await self.client.restart(life=2)).life, 3)
        with self.assertRaisesRegex(numora_client.CallError, "life") as refused:
            await self.client.restart(life=2)
        self.assertEqual(refused.exception.code, 409)
        while (message := await asyncio.wait_for(states.__anext__(), LIMIT)).data["life"] < 3: pass

    async def test_interpreters_have_variables_of_their_own_and_one_dies_alone(self):
        created = await self.client.create_interpreter("lab1", env={"LAB": "one"})
        self.assertEqual((created.id, created.state), ("lab1", "absent"))
        lab = await self.enter(self.client.interpreter("lab1"))
        await self.client.eval("x = 6")
        self.assertEqual((await lab.eval("import os; 'x' in globals(), os.environ['LAB']")).text, "(False, 'one')\n")
        async with self.assertDies(life=1, detail="status 3"):
            await lab.eval("os._exit(3)")
        self.assertEqual((await self.client.eval("x * 7")).text, "42\n")
        deaths = {each.id: each.last_death and each.last_death.detail for each in await self.client.interpreters()}
        self.assertEqual(deaths["lab1"], "status 3")
        await self.client.delete_interpreter("lab1")
        with self.assertRaisesRegex(numora_client.CallError, '^There is no interpreter "lab1"[.]$'):
            await lab.deaths()
        with self.assertRaises(numora_client.NumoraError):  # it may not know yet that the connection is lost
            await asyncio.wait_for(lab.eval("1"), LIMIT)
        with self.assertRaisesRegex(numora_client.CallError, '^There is no interpreter "lab1"[.]$'):
            await asyncio.wait_for(lab.eval("1"), LIMIT)


class ScriptTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = cls.enterClassContext(Server())

    def start(self, code):
        code = code.replace("http://127.0.0.1:8350/?token=...", self.server.url)
        return subprocess.Popen([sys.executable, "-W", "default", "-c", code], text=True, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, env={**os.environ, "PYTHONPATH": FOLDER})

    def test_the_examples_of_the_readme_print_what_it_says(self):
        with open(os.path.join(FOLDER, "README.md"), encoding="utf-8") as readme:
            examples = re.findall(r"```python\n(.*?)```\n\n```text\n(.*?)```", readme.read(), re.DOTALL)
        self.assertEqual(len(examples), 5)
        for code, output in examples:
            self.assertEqual(self.start(code).communicate(timeout=LIMIT), (output, ""), code)

    def test_ctrl_c_interrupts_the_code(self):
        for wait in ("for event in client.stream(code): pass", "client.eval(code)",
                     "with client.stream(code): time.sleep(1000)"):
            with self.subTest(wait), Signal() as begun, Server() as server:
                script = self.start(f"import numora_client, time\ncode = {begun.code + chr(10)!r} + 'while True: pass'\n"
                                    f"with numora_client.connect('{server.url}') as client:\n    {wait}")
                begun.wait()
                script.send_signal(signal.SIGINT)
                self.assertRegex(script.communicate(timeout=LIMIT)[1], r"\nKeyboardInterrupt\n$")
                self.assertEqual(server.eval("6 * 7"), "42\n")
