"""Events of the interpreter, from a client."""

import asyncio
import base64
import io
import os
import tempfile

from numora_program import LIMIT, Server
from test_python_client import ClientTestCase, numora_client


class EventsTest(ClientTestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = Server()

    @classmethod
    def tearDownClass(cls):
        status, _, log, _ = cls.server.stop()
        if status or log:
            raise AssertionError(f"{status}: {log}")

    async def asyncSetUp(self):
        await super().asyncSetUp()
        await self.run_code("import numora")

    async def run_code(self, code):
        result = await self.client.eval(code)
        self.assertFalse(result.is_error, result.text)
        return result.text

    async def during(self, tag, code, is_last):
        """The events with a tag while code runs, up to the last one."""
        async with self.client.messages("/eventmgr/0/" + tag) as messages:
            text = await self.run_code(code)
            events = []

            async def collect():
                while not events or not is_last(events[-1]):
                    events.append((await messages.__anext__()).data)

            await asyncio.wait_for(collect(), LIMIT)
            return events, text

    async def test_user_events_arrive_in_order(self):
        events, _ = await self.during("mine", "for i in range(100_000): numora.post_event('mine', i)",
                                      lambda event: event["payload"] == 99_999)
        self.assertEqual([event["payload"] for event in events], list(range(100_000)))
        payload = {"a": [1.5, None, "é<"], "n": {"": True}}
        events, _ = await self.during("odd-_!~()$@1", f"numora.post_event('odd-_!~()$@1', {payload!r})", bool)
        self.assertEqual(events, [{"payload": payload}])

    async def test_what_cannot_be_posted_is_refused(self):
        async with self.client.messages("/eventmgr/0/mine"):
            for call, error in {"'a.b'": "ValueError", "''": "ValueError", "7": "TypeError", "'status'": "ValueError",
                                "'mine', object()": "TypeError", "'mine', 'x' * 5_000_000": "ValueError"}.items():
                with self.subTest(call):
                    self.assertIn(error, (await self.client.eval(f"numora.post_event({call})")).text)

    async def test_workspace_names_what_has_changed(self):
        async def changes(code):
            return (await self.during("workspace", code, bool))[0][0]

        await changes("first = 1")
        array = {"name": "x", "class": "ndarray", "shape": [2, 3]}
        text = {"name": "s", "class": "str", "shape": [3]}
        self.assertEqual(await changes("import numpy as np\nx = np.zeros((2, 3)); s = 'abc'"),
                         {"added": [array, text], "changed": [], "removed": []})
        for code in ("x = x + 1; x = x + 1", "del x; x = np.zeros((2, 3))"):  # where the old one was in memory
            self.assertEqual(await changes(code), {"added": [], "changed": [array], "removed": []}, code)
        row = {"name": "odd", "class": "Odd", "shape": []}
        code = ("class Meta(type):\n    def __eq__(self, other): 1 / 0\n    __hash__ = type.__hash__\n"
                "class Odd(metaclass=Meta): __slots__ = ()\nodd = Odd()")
        self.assertIn(row, (await changes(code))["added"])
        self.assertEqual((await changes("odd = Odd()"))["changed"], [row])
        array["shape"] = [3, 2]
        self.assertEqual(await changes("first = 1; _hidden = 2; x = x.T; del s"),
                         {"added": [], "changed": [array], "removed": ["s"]})

    async def test_progress_has_a_beginning_and_an_end(self):
        events, text = await self.during("progress", "print(sum(numora.progress(range(1000), 'sum')))",
                                         lambda event: event["ended"])
        self.assertEqual(text, "499500\n")
        self.assertEqual([events[0]["done"], events[-1]["done"]], [0, 1000])
        self.assertEqual({(e["label"], e["total"], e["id"]) for e in events}, {("sum", 1000, events[0]["id"])})
        events, _ = await self.during("progress", "for i in numora.progress(iter([1, 2, 3])):\n    if i == 2: break",
                                      lambda event: event["ended"])
        self.assertEqual((events[-1]["done"], events[-1]["total"]), (1, 3))

    async def test_a_shown_figure_arrives_as_a_picture(self):
        import matplotlib.image

        await self.run_code("import matplotlib.pyplot as plt")  # may say that it prepares itself, at its first use
        self.assertIn("No client shows figures", await self.run_code("plt.plot([1, 2]); plt.show()"))
        code = "import matplotlib.pyplot as plt\nplt.plot([1, 2])\nplt.title('Ä')\nplt.show()\nprint(plt.get_fignums())"
        (figure,), text = await self.during("figure", code, bool)
        self.assertEqual((text, figure["title"]), ("[]\n", "Ä"))
        picture = matplotlib.image.imread(io.BytesIO(base64.b64decode(figure["png"])), "png")
        self.assertEqual(picture.shape[:2], (figure["height"], figure["width"]))
        self.assertLess(picture[:, :, :3].min(), 0.5)  # something is drawn
        self.assertIn(b"</svg>", base64.b64decode(figure["svg"]))
        code = "import numpy as np\nf = plt.figure(figsize=(11, 11))\nplt.imshow(np.random.rand(1100, 1100, 3))\nplt.show()"
        (figure,), _ = await self.during("figure", code, bool)
        self.assertEqual((figure["title"], figure["svg"]), ("Figure 1", None))

    async def test_without_its_converters_everything_else_runs(self):
        with tempfile.TemporaryDirectory() as folder:
            open(os.path.join(folder, "libjson_event_converter.so"), "w").close()  # no library
            server = Server(environment={"NUMORA_BUNDLES": folder})
            async with numora_client.Client(server.url) as client:
                async with client.messages("/eventmgr/0/mine"):
                    result = await client.eval("import numora; numora.post_event('mine', 1); 6 * 7")
            self.assertEqual(result.text, "42\n")
            self.assertIn("Bundle json_event_converter is not available: ", server.stop()[2])

