"""The Python client against a server, over connections that are cut."""

import asyncio
import os
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "clients", "python"))

import numora_client
from numora_program import LIMIT, TOKEN, CuttingProxy, Server


class ClientTest(unittest.IsolatedAsyncioTestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = cls.enterClassContext(Server("--allow-host", "127.0.0.1"))

    async def asyncSetUp(self):
        self.client = await self.enter(numora_client.Client(self.server.url))

    async def enter(self, manager):
        entered = await manager.__aenter__()
        self.addAsyncCleanup(manager.__aexit__, None, None, None)
        return entered

    async def through_proxy(self):
        proxy = self.enterContext(CuttingProxy(self.server.port))
        return proxy, await self.enter(numora_client.Client(f"http://127.0.0.1:{proxy.port}", TOKEN))

    async def read(self, client, code, each=lambda event: None):
        """The text that code printed in a stream, and the other events but those of prompts."""
        text, others = [], []
        async for event in client.stream(code):
            found = each(event)
            if asyncio.iscoroutine(found):
                await found
            if event.kind == "output":
                text.append(event.value)
            elif event.kind != "prompt":
                others.append((event.kind, event.value))
        return "".join(text), others

    async def test_evaluates_and_calls(self):
        result = await self.client.eval("print('é<'); 6 * 7")
        self.assertEqual((result.text, result.is_error), ("é<\n42\n", False))
        self.assertTrue((await self.client.eval("1/0")).is_error)
        self.assertEqual(await self.client.call("divmod", 7, 2, nargout=2), [3, 1])
        self.assertEqual(await self.client.call("sorted", [3, 1, 2]), [1, 2, 3])
        self.assertIsNone(await self.client.call("print", nargout=0))
        for request, message in {
            self.client.call("nosuch"): "^NameError: there is no function named 'nosuch'$",
            self.client.call("len", 1, nargout="x"): "nargout",
            self.client._call("connector/v1/Nothing", {}): "^/service/connector/v1/Nothing: no such request type$",
        }.items():
            with self.assertRaisesRegex(numora_client.CallError, message):
                await request

    async def test_streams_in_order_and_types_what_is_asked_for(self):
        async def answer(event):
            if (event.kind, event.value) == ("prompt", "INPUT_PROMPT"):
                await self.client.type("Ada\n")

        self.assertEqual(await self.read(self.client, "print('Hi', input('Name? '), input('? '))", answer),
                         ("Name? ? Hi Ada Ada\n", [("completion", True)]))
        text, others = await self.read(self.client, "1/0")
        self.assertEqual([kind for kind, _ in others], ["error", "completion"])

    async def test_calls_inside_code_however_many_wait_for_its_end_and_tells_what_an_interrupt_dropped(self):
        waiting = [asyncio.create_task(self.client.eval("while True: pass")) for _ in range(20)]
        sent = time.time()
        while time.time() < sent + 0.01:  # a later millisecond
            self.assertEqual(await asyncio.wait_for(self.client.call("len", "four", deque_mode="ppe"), LIMIT), 4)
        await self.client.interrupt()
        results = await asyncio.wait_for(asyncio.gather(*waiting, return_exceptions=True), LIMIT)
        dropped = [result for result in results if isinstance(result, numora_client.Dropped)]
        self.assertGreater(len(dropped), 0)
        for result in results:
            self.assertTrue(result in dropped or result.faults or result.is_error, result)

    async def test_wrong_tokens_and_servers_that_are_not_there_are_told(self):
        with self.assertRaisesRegex(numora_client.CallError, "token"):
            await numora_client.Client(f"http://127.0.0.1:{self.server.port}", "wrong").__aenter__()
        with self.assertRaises(OSError):
            await numora_client.Client("http://127.0.0.1:1", TOKEN).__aenter__()

    async def test_loses_and_doubles_nothing_when_the_connection_is_cut(self):
        proxy, client = await self.through_proxy()
        cuts = 0

        def cut_sometimes(event):
            nonlocal cuts
            if event.kind == "output" and cuts < 5:
                cuts += 1
                proxy.cut()

        code = "import time\nfor i in range(10_000):\n    print(i)\n    if i % 1000 == 999: time.sleep(.2)"
        text, others = await asyncio.wait_for(self.read(client, code, cut_sometimes), LIMIT)
        self.assertEqual(text.split(), [str(i) for i in range(10_000)])
        self.assertEqual(others, [("completion", True)])
        self.assertEqual(cuts, 5)

    async def test_goes_on_when_the_session_has_ended(self):
        client = self.client
        has_ended = False

        def end_session(event):
            nonlocal has_ended
            if event.kind != "output" or has_ended:
                return None
            has_ended = True
            return asyncio.to_thread(self.server.request, "/cometd",
                                     [{"channel": "/meta/disconnect", "clientId": client._client_id}])

        code = "import time\nfor i in range(40): print(i, flush=True); time.sleep(.02)"
        text, others = await asyncio.wait_for(self.read(client, code, end_session), LIMIT)
        self.assertEqual(text.split(), [str(i) for i in range(40)])
        self.assertEqual(others, [("completion", True)])
