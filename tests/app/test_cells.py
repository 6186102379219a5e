"""Cells of notebooks: what code does whose client has the capability "notebook"."""

import json
import unittest

from numora_program import Server, Session, Signal

TAGS = ("clear", "comm", "display", "figure", "input", "payload")
PLOT = "import matplotlib.pyplot as plt\nplt.plot([1, 2]); "

# Code, and what comes of it: channels with patterns of their JSON. What a cell leaves is there for those below it.
PLAIN = [
    ("for i in x:", ("error", r"<cell 1>.*SyntaxError: incomplete input")),
    ("raise SystemExit", ("error", "^.SystemExit")),
    ("input('Name? ')", ("error", "StdinNotImplementedError")),
    ("import getpass; getpass.getpass()", ("error", "StdinNotImplementedError")),
    ("import numora; numora.pause()", ("error", "StdinNotImplementedError")),
    ("import matplotlib; matplotlib.use('agg')",),
    ("%matplotlib inline\n" + PLOT + "1", ("display", '"1"'), ("figure", "Figure size 640x480 with 1 Axes")),
    (PLOT + "1 / 0", ("error", "ZeroDivisionError"), ("figure", '"svg": null')),
    ("plt.get_fignums()", ("display", r"\[\]")),
    ("%config Completer.use_jedi = False\n%cd '/usr'", ("output", "^\"/usr")),
    ("import sys; 'IPython' in sys.modules", ("display", "False")),
    ("import asyncio; asyncio.run(asyncio.sleep(0))",),
    ("task = asyncio.create_task(asyncio.sleep(0, 5)); asyncio.get_event_loop() is task.get_loop()", ("display", "True")),
    ("await task", ("display", '"5"')),
    ("import threading; go = threading.Event(); t = threading.Thread(target=lambda: (go.wait(), display(7))); t.start()",),
    ("go.set(); t.join()", ("display", '"7"')),
    ("display({'image/png': bytes(5_000_000)}, raw=True)", ("display", '"data": {"image/png": "AAA')),
    ("display(display_id='later');", ("display", '"data": {}.*"later"')),
    ("from unittest.mock import MagicMock; sys.modules['pandas'] = MagicMock(); 1", ("display", '"1"')),
    ("del sys.modules['pandas']; sys.modules['numora._loop'] = None",),
    ("2; del sys.modules['numora._loop']; 2", ("error", "_loop halted"), ("display", '"2"')),
    ("loop = asyncio.new_event_loop(); asyncio.set_event_loop(loop)",),
    ("asyncio.get_event_loop() is loop, asyncio.set_event_loop(None)", ("display", "True")),
    ("class Big(matplotlib.figure.Figure):\n def savefig(self, file, **_): file.write(bytes(3_000_000))\nplt.figure(FigureClass=Big);",
     ("error", "the picture of a figure must have at most")),
    ("exit", ("payload", '{"source": "ask_exit", "keepkernel": false}')),
    ("quit()", ("payload", "ask_exit")),
    ("sys.modules['IPython'] = None",),
    ("%time 1", ("error", "install python3-ipython")),
    ("del sys.modules['IPython']",),
]
GUEST = [
    ("get_ipython().__class__.__name__", ("display", "ZMQInteractiveShell")),
    ("%time 6 * 7", ("output", "Wall time"), ("display", '"42"')),
    ("x = 5\n%timeit -n 1 -r 1 x", ("output", "per loop")),
    ("%%time\ny = x\ny + 1", ("output", "Wall time"), ("display", '"6"')),
    ("Out, _", ("display", "42.*6.*, 6")),
    ("!echo out; echo err >&2", ("output", r"^.out\\n.$"), ("error", r"^.err\\n.$")),
    ("lines = !echo a; echo b\nlines", ("display", r"\['a', 'b'\]")),
    ("%%bash --out text\necho from bash", ),
    ("text", ("display", "from bash")),
    ("%%bash\nexit 3", ("error", "CalledProcessError.*status 3")),
    ("%nothing", ("error", "UsageError")),
    ("%%capture c\nprint(1); display(2); 3",),
    ("c.stdout, len(c.outputs)", ("display", r"1\\\\n', 2\)")),
    ("len?", ("payload", '"source": "page".*Docstring: Return the number')),
    (f"%recall {len(PLAIN) + 1}", ("payload", '"set_next_input", "text": "get_ipython')),
    ("from IPython.display import HTML, clear_output, display\nh = display(HTML('<b>'), display_id='k')\n"
     "clear_output(wait=True); h.update(HTML('<i>'))",
     ("display", '"text/html": "<b>".*"display", .*"k"'), ("clear", "true"), ("display", '<i>.*"update".*"k"')),
    ("get_ipython().display_formatter.formatters['text/html'].for_type(complex, lambda z: '<z>')\n1j",
     ("display", '"text/html": "<z>"')),
    ("events = get_ipython().events\nevents.register('post_run_cell', lambda r: print('ended', r.error_in_exec))",
     ("output", "ended None")),
    ("1 / 0", ("error", "ZeroDivisionError"), ("output", "ended division by zero")),
    ("%debug", ("output", "1 1 / 0"), ("error", "StdinNotImplementedError"), ("output", "ended")),
    ("raise SystemExit", ("error", "SystemExit"), ("output", r"ended \\n")),
    ("events.callbacks['post_run_cell'].clear(); await __import__('asyncio').sleep(0, 7)", ("display", '"7"')),
    ("get_ipython().set_next_input(object())", ("error", "cannot be written as JSON")),
    ("%matplotlib inline\nplt.plot([1, 2]);", ("display", '"image/png"')),
    ("%config InlineBackend.figure_format = 'svg'\nplt.plot([1, 2]);", ("display", r'"data": {"image/svg\+xml"')),
    ("%matplotlib widget\nplt.get_backend()", ("error", "widget is not available"), ("display", "numora._figures")),
    ("%%capture c\nplt.plot([1, 2])",),
    ("len(c.outputs)", ("display", '"2"')),
    ("cd /usr", ("output", '^"/usr')),
    ("pwd", ("display", "'/usr'")),
    ("pwd = 1",),
    ("pwd", ("display", '"1"')),
    ("class Bad:\n def _ipython_display_(self): 1 / 0\nBad()", ("error", "^((?!ZeroDiv).)*ZeroDiv((?!ZeroDiv).)*$"), ("display", "Bad")),
    ("import builtins; builtins.get_ipython().kernel.shell is get_ipython()", ("display", "True")),
    ("{row['name'] for row in numora.workspace()} & {'In', 'Out', 'get_ipython', 'exit'}", ("display", r"set\(\)")),
]  # fmt: skip
COMMS = """
from ipykernel.comm import Comm
def opened(comm, message):
    print('opened', message['content']['data'], bytes(message['buffers'][0]))
    comm.on_msg(lambda m: comm.send({'got': m['content']['data']}, buffers=[b'\\0\\xff']))
    comm.on_close(lambda m: input())
get_ipython().kernel.comm_manager.register_target('mine', opened)
"""
STOPPED = """
import sys, matplotlib.lines, matplotlib.pyplot as plt
class Line(matplotlib.lines.Line2D):
    def draw(self, renderer): raise KeyboardInterrupt
plt.figure().add_artist(Line([0, 1], [0, 1])); plt.figure(); del sys.modules['numora._figures']
"""


class Notebook:
    """A session that runs cells, and calls functions as a kernel does."""

    def __init__(self, server):
        self.server, self.count = server, 0
        self.session = Session(server, "/eval/response/**", *("/eventmgr/0/" + tag for tag in TAGS))

    def start(self, code, *capabilities):
        self.count += 1
        self.session.stream(code, f"r{self.count}", capabilities=["display", "notebook", *capabilities])

    def end(self):
        """What has come of a cell: channels and JSON."""
        came = self.session.until(lambda message: message["channel"].endswith("completion"))
        found = [(message["channel"].split("/")[-1], message.get("data")) for message in came if "data" in message]
        return [(channel, json.dumps(data)) for channel, data in found if channel not in ("completion", "iqminput")]

    def run(self, code):
        self.start(code)
        return self.end()

    def call(self, function, *arguments, **more):
        message = {"function": "numora._notebook." + function, "arguments": arguments, "nargout": 1, **more}
        context = {"numoraCapabilities": ["display", "notebook"]}
        _, body = self.server.request("/messages", {"type": "connector/v1/FEval", "message": message, "context": context})
        return json.loads(json.loads(body)["message"]["results"])[0]


class CellsTest(unittest.TestCase):
    def setUp(self):
        self.server = self.enterContext(Server())
        self.notebook = Notebook(self.server)
        self.enterContext(self.notebook.session)

    def check(self, came, *expected):
        self.assertEqual([channel for channel, _ in came], [channel for channel, _ in expected], came)
        for (_, data), (_, pattern) in zip(came, expected):
            self.assertRegex(data, pattern)

    def test_cells(self):
        for code, *expected in PLAIN + GUEST:
            with self.subTest(code):
                self.check(self.notebook.run(code), *expected)

    def test_other_clients_see_nothing_of_it(self):
        self.notebook.run("from matplotlib_inline.backend_inline import set_matplotlib_formats as choose; choose('png', 'svg')")
        for code, text in [("%time 1", "SyntaxError: invalid syntax"), ("{1: 'x' * 50, 2: 'y' * 50}", "^{1: 'x+', 2: 'y+'}\n$"),
                           ("exit", "^Use exit"), (PLOT + "3", "^3\n$"), ("display(1j)", r"^1j\n$"),
                           ("import builtins, IPython\nIPython.get_ipython(), get_ipython(), hasattr(builtins, 'get_ipython')",
                            r"^\(None, None, False\)\n$")]:
            self.assertRegex(self.server.eval(code), text)
        self.notebook.run(STOPPED)
        came = self.notebook.run("%matplotlib inline\nplt.plot([1])\nplt.get_fignums()")
        self.check(came[-2:], ("display", r"\[1\]"), ("display", r"image/png.*image/svg\+xml|svg\+xml.*image/png"))
        self.assertEqual(self.server.eval("len(plt.gcf().axes[0].lines), plt.get_fignums()"), "(1, [1])\n")

    def test_interrupts(self):
        self.notebook.run("import os, subprocess, sys\nclass Finder:\n def find_spec(name, *_):\n"
                          "  if name == 'traitlets': subprocess.run(['kill', '-INT', str(os.getpid())])\nsys.meta_path.insert(0, Finder)")
        self.check(self.notebook.run("%time 1"), ("error", "KeyboardInterrupt"))
        self.check(self.notebook.run("%time 1"), ("output", "Wall time"), ("display", '"1"'))
        with Signal() as signal_:
            begin = "import sys; signalled = " + repr(signal_.code) + "\n"
            for code in ("!{sys.executable} -c \"$signalled; import time; time.sleep(600)\"", "input()",
                         "%%script {sys.executable}\n" + signal_.code + "; import time; time.sleep(600)"):
                with self.subTest(code):
                    self.notebook.run(begin)
                    self.notebook.start(code if "input" not in code else signal_.code + "\ninput()", "stdin")
                    signal_.wait()
                    self.server.request("/messages", {"type": "connector/v1/Interrupt", "message": {}})
                    self.assertIn("KeyboardInterrupt", self.notebook.end()[-1][1])

    def test_a_flush_has_text_go_out_at_once(self):
        with Signal() as signal_:
            self.notebook.start(f"import sys; print('first'); sys.stdout.flush()\n{signal_.code}\ninput()", "stdin")
            came = self.notebook.session.until(lambda message: message["channel"].endswith("output"))
            self.assertEqual(came[-1]["data"], "first\n")
            self.server.request("/messages", {"type": "connector/v1/Interrupt", "message": {}})

    def test_comms(self):
        def handled(*arguments, **more):
            self.notebook.count += 1
            name = f"c{self.notebook.count}"
            self.notebook.call("comm", *arguments, dequeMode="default", uuid=name, **more)
            return self.notebook.run("pass")

        made = self.notebook.run(COMMS + "c = Comm('mine', data={'a': [1]}, buffers=[b'ab']); c.send({}, buffers=[bytes(5_000_000)]); c.close()")
        self.check(made, ("comm", '"open".*"mine"|"mine".*"open"'), ("comm", '"msg"'), ("comm", '"close"'))
        self.assertEqual((json.loads(made[0][1])["buffers"], json.loads(made[0][1])["data"]), (["YWI="], {"a": [1]}))
        self.check(handled("open", "m", "mine", {"x": 1}, {}, ["AAE="]), ("comm", r"opened {'x': 1} b'\\\\x00\\\\x01'"))
        self.assertEqual(self.notebook.call("comm_info", "mine"), {"comms": {"m": {"target_name": "mine"}}})
        self.check(handled("msg", "m", "", {"y": 2}), ("comm", r'"AP8=".*{"got": {"y": 2}}'))
        self.check(handled("close", "m"), ("comm", '"stderr".*StdinNotImplementedError'))
        self.check(handled("open", "n", "nobody"), ("comm", '"kind": "close"'))
        self.assertEqual(self.notebook.call("comm_info", None), {"comms": {}})
        self.notebook.run("import threading; go = threading.Event(); t = threading.Thread(target=lambda: (go.wait(), print('aside'))); t.start()\n"
                          "manager = get_ipython().kernel.comm_manager\n"
                          "manager.register_target('two', lambda comm, message: (go.set(), t.join(), print('handled', end=''), display(8)))")
        came = handled("open", "t", "two")
        self.check([one for one in came if one[0] != "output"], ("comm", "handled"), ("display", '"8"'))
        self.assertIn(("output", '"aside\\n"'), came)
        self.notebook.run("manager.register_target('three', lambda comm, message: __import__('os').system('echo native'))")
        self.notebook.call("comm", "open", "three", "three")
        self.notebook.session.until(lambda message: message.get("data") == "native\n")
        self.notebook.call("comm", "close", "three")
        self.notebook.call("comm", "close", "t")
        self.notebook.run("manager.register_target('four', lambda comm, message: print('x' * 17_000_000))")
        self.assertEqual(sum(len(json.loads(data)["text"]) for _, data in handled("open", "f", "four")), 17_000_001)
        self.notebook.call("comm", "close", "f")
        came = self.notebook.run("import ipywidgets\nslider = ipywidgets.IntSlider(value=3)\n"
                                 "slider.observe(lambda change: display(change['new']), 'value')")
        model = next(json.loads(data) for _, data in came if "IntSliderModel" in data)
        self.assertEqual((model["kind"], model["target_name"], model["data"]["value"]), ("open", "jupyter.widget", 3))
        state = {"method": "backbone", "sync_data": {"value": 5}}
        self.check(handled("msg", model["comm_id"], "", state), ("display", '"5"'))

    def test_questions_of_kernels(self):
        self.notebook.run("def f(a, b=1):\n    'Doc.'\n\n'😀'; text = 'x'")
        found = self.notebook.call("complete", "'😀'; text.endsw", 15)
        kinds = [{"start": 10, "end": 15, "text": "endswith", "type": "function"}]
        self.assertEqual(found, {"matches": ["endswith"], "cursor_start": 10, "cursor_end": 15,
                                 "metadata": {"_jupyter_types_experimental": kinds}})
        for code, cursor, detail, text in [("f(len(1), ", 10, 0, r"Signature: f\(a, b=1\)(.|\n)*Docstring:\nDoc."), ("f", 1, 1, "Source:\ndef f"),
                                           ("text.join(1)", 2, 0, "Type: str"), ("zip", 3, 0, "Docstring")]:
            self.assertRegex(self.notebook.call("inspect", code, cursor, detail)["data"]["text/plain"], text)
        self.assertEqual(self.notebook.call("inspect", "none", 2)["found"], False)
        self.notebook.call("reset", 0)
        for _ in range(2):  # without and with the guest
            for code, status in [("x = 1", "complete"), ("%time x", "complete"), ("x?", "complete"), ("for i in x:\n    !ls", "incomplete"),
                                 ("%%bash\nls", "incomplete"), ("%%bash\nls\n\n", "complete"), ("x = = 1", "invalid")]:
                self.assertEqual(self.notebook.call("is_complete", code)["status"], status, code)
            self.notebook.run("x = 1\n%time 1")
        self.assertEqual(self.notebook.call("complete", "x\n%%timei", 9)["matches"], ["%%timeit"])
        self.assertEqual(self.notebook.call("expressions", {"a": "x + 1", "b": "nope"})["a"]["data"], {"text/plain": "2"})
        self.assertEqual(self.notebook.call("expressions", {"b": "nope"})["b"]["ename"], "NameError")
