"""The package `numora` without the program: what clients ask for while other code runs."""

import _thread
import ast
import collections
import datetime
import functools
import graphlib
import json
import os
import pathlib
import queue
import sys
import tempfile
import tracemalloc
import types
import typing
import unittest
import warnings

import numpy
import pandas

SOURCES = pathlib.Path(__file__).resolve().parents[2] / "standalone" / "python"
sys.path.insert(0, str(SOURCES))
sys.modules["_numora_host"] = types.ModuleType("_numora_host")

import numora
from numora import _completion, _history, _tables, _user


def units(text):
    return len(text.encode("utf-16-le", "surrogatepass")) // 2


class Ran(BaseException):
    """Code of an object has run: nothing catches this by accident."""


def trap(*_, **__):
    raise Ran


class TrapMeta(type):
    __eq__ = __hash__ = __getattribute__ = __dir__ = __instancecheck__ = __subclasscheck__ = __repr__ = trap


class Trap(dict, metaclass=TrapMeta):
    __repr__ = __str__ = __len__ = __iter__ = __getattribute__ = __getattr__ = __dir__ = __sizeof__ = trap
    __eq__ = __hash__ = __bool__ = __getitem__ = __contains__ = keys = items = __format__ = __reduce_ex__ = trap
    __class__ = __dict__ = __signature__ = __wrapped__ = __name__ = value = property(trap)


class Grid(numpy.ndarray):
    shape = nbytes = dtype = property(trap)


class Mute:
    __repr__ = __str__ = __format__ = trap


class Offer:
    __dir__ = _ipython_key_completions_ = lambda _: ["offered", 5]

    def __iter__(self):
        trap()


class Point:
    """A point.

        Indented.
    """

    def __init__(self, x=1, *, label: str = "p"):
        self.x, self._hidden = x, 2

    norm = property(trap, doc="Its norm.")

    def move(self, by: typing.Optional[int], *rest, far=Ellipsis, **options) -> "Point": ...


@functools.wraps(Point.move)
def wrapper(*args):
    trap()


class Tools(unittest.TestCase):
    def setUp(self):
        cyclic = [1]
        cyclic.append(cyclic)
        self.variables = {
            "point": Point(), "Point": Point, "wrapper": wrapper, "trap": Trap(a=1), "TrapType": Trap, "np": numpy,
            "array": numpy.zeros((3, 4)), "grid": numpy.zeros((1, 1)).view(Grid), "scalar": numpy.float32(1.5),
            "keys": {"k'ey": 1, "two words": 2, 3: 4, "π": 5}, "text": "ab" * 100, "_private": 1,
            "frame": pandas.DataFrame({"k'ey": [1], "kind": "a"}), "rows": [{"in": ("a", {"deep": 1})}], "offer": Offer(),
            "default": collections.defaultdict(trap), "wide_frame": pandas.DataFrame([range(99)], columns=["%02d" % n for n in range(99)]),
            "cyclic": cyclic, "huge": 10**100_000, "wide": range(10**30),
        }  # fmt: skip
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)
        os.mkdir("my dir")
        for name in ("my 'file", "my dir/.hidden", "my dir/shown"):
            pathlib.Path(name).touch()
        self.addCleanup(setattr, _user, "variables", _user.variables)
        _user.variables = self.variables

    def complete(self, marked):
        """Completes at the "|"; returns the text that would be replaced and the matches."""
        before, _, after = marked.partition("|")
        found = numora.complete(before + after, units(before))
        code = before.encode("utf-16-le")
        self.assertEqual(found["end"], units(before), marked)
        return code[2 * found["start"] : 2 * found["end"]].decode("utf-16-le"), found["matches"]

    def test_completes(self):
        for marked, replaced, matches in [
            ("p|", "p", ["point", "pass", "pow", "print", "property"]),
            ("'😀'; x = (_p|", "_p", ["_private"]),
            ("point.|", "", ["move", "norm", "x", "_hidden"]),
            ("return  np . linalg.de|", "de", ["det"]),
            ("array.T.sha|", "sha", ["shape"]),
            ("point.move().|", "", ["move", "norm"]),  # as its annotation says
            ("point.norm.|", "", []),
            ("default['k'].|", "", []),
            ("x = rows[-1]['in'][1]['de|", "de", ["deep"]),
            ("(rows\n [0] .cle|", "cle", ["clear"]),
            ("frame.ki|", "ki", ["kind"]),
            ('frame[["kind", "k|"]]', "k", ["k'ey", "kind"]),
            ("frame.loc[:, 'k|", "k", ["k\\'ey", "kind"]),
            ("frame.kind.value_|", "value_", ["value_counts"]),
            ("frame.head()[frame['kind'] == 'a'].groupb|", "groupb", ["groupby"]),
            ("frame['kind'].str.upp|", "upp", ["upper"]),
            ("wide_frame['9|", "9", ["9%d" % n for n in range(9)]),
            ("Point(1, label='p').no|", "no", ["norm"]),
            ("point.move(\n  1, fa|", "fa", ["far="]),
            ("wrapper(far=1, fa|", "fa", []),
            ("def wrapper(fa|", "fa", []),
            ("sorted([], key=len, re|", "re", ["reverse=", "repr", "return", "reversed"]),
            ("f'{{a}} {rows} {point.mo|", "mo", ["move"]),
            ("f'{{po|", "", []),
            ("f'{point!r:po|", "", []),
            ("'😀'; open('my \\'f|", "my \\'f", ["my \\'file"]),
            ("pandas.read_csv(r'./my d|')", "my d", ["my dir/"]),
            ("!cat 2>my\\ dir/.|", ".", [".hidden"]),
            ("x = 1\n%cd my |", "my ", ["my dir/"]),
            ("f([1, (2)].app|", "app", ["append"]),
            ("keys['k|", "k", ["k\\'ey"]),
            ('f(keys[ "two w|"])', "two w", ["two words"]),
            ("'''doc' ''' ; pri|", "pri", ["print"]),
            ("import os, json.dec|", "dec", ["decoder"]),
            ("x = 1; from os.path import (join,\n  exi|", "exi", ["exists"]),
            ("from . import |", "", []),
        ]:
            found, names = self.complete(marked)
            public = [name for name in names if not name.startswith("__")]
            self.assertEqual((found, public), (replaced, matches), marked)
            self.assertEqual(names, public + sorted(set(names) - set(public), key=str.casefold))

    def test_completes_at_any_position_of_any_code(self):
        pieces = ["'''", '"', "\\", "(", "]", "{", "keys[", "point.", "import ", "from x ", "#", "\n", "😀", "\ud800"]
        for code in [a + b + c for a in pieces for b in pieces for c in pieces]:
            for end in range(len(code) + 1):
                start, _ = _completion.matches_at_end(code[:end])  # without the net below it
                self.assertTrue(0 <= start <= end)
        for code, cursor in [(None, 1), ("pri", None), ("pri", -5), ("pri", float("nan")), ("x", 1e300), ("a😀", 2)]:
            found = numora.complete(code, cursor)
            self.assertTrue(0 <= found["start"] <= found["end"] <= units(code or ""), (code, cursor))
        self.variables.update(("n%d" % i, i) for i in range(10_000))
        self.assertEqual(len(numora.complete("n", 1)["matches"]), 500)
        at_length = ["f'{" + ":" * 60_000 + ")", " " * 60_000 + "?", "!" + "a" * 60_000 + ";b", "f(" + "x" * 60_000 + ","]
        for long in [*at_length, "x" * 10**6, "(" * 10**6, "import " + "a." * 10**6, "'''" + "\\'" * 10**6]:
            self.assertEqual(numora.complete(long, len(long))["end"], len(long))

    def test_runs_no_code_of_objects(self):
        for name in ["trap", "trap.value", "trap.keys", "trap.__class__", "TrapType", "TrapType.value", "point.norm"]:
            self.assertTrue(numora.inspect(name)["found"], name)
        for code in ["trap.", "trap.value.", "TrapType.", "tra", "trap['a'].", "keys[trap].", "TrapType().value.", "trap(1, ", "TrapType("]:
            numora.complete(code, len(code))
        numora.workspace()
        self.assertEqual(self.complete('trap["|')[1], ["a"])

    def test_asks_objects_what_they_offer_while_nothing_else_runs(self):
        codes, found = ["offer.o", "offer['o"], queue.SimpleQueue()
        self.assertEqual([numora.complete(code, len(code))["matches"] for code in codes], [[], []])
        answers = map(found.put, map(numora.complete, codes, map(len, codes)))
        _thread.start_new_thread(collections.deque(maxlen=0).extend, (answers,))  # with no code of Python's around it
        self.assertEqual([found.get(timeout=60)["matches"] for _ in codes], [["offered"]] * 2)

    def test_lists_the_workspace_without_copies_of_large_values(self):
        rows = {row.pop("name"): row for row in json.loads(json.dumps(numora.workspace()))}
        self.assertEqual(set(rows), set(self.variables) - {"np", "_private"})
        for name, kind, shape, text in [
            ("grid", "Grid", [1, 1], "1x1 float64"),
            ("keys", "dict", [4], "{\"k'ey\": 1, 'two words': 2, 3: 4, 'π': 5}"),
            ("text", "str", [200], "'" + "ab" * 48 + "..."),
            ("cyclic", "list", [2], "[1, [1, [1, [...]]]]"),
            ("huge", "int", [], "<int of 332193 bits>"),
            ("wide", "range", [], "<range>"),
            ("point", "Point", [], "<Point x=1>"),
        ]:
            row = rows[name]
            self.assertEqual((row["class"], row["shape"], row["text"]), (kind, shape, text))
        self.assertEqual((rows["array"]["bytes"], rows["text"]["bytes"]), (96, sys.getsizeof(self.variables["text"])))
        self.variables.update(large=[[0] * 10**6] * 10**6, keyed=dict.fromkeys(range(10**6)), long="x" * 10**7)
        numora.workspace()
        tracemalloc.start()
        self.addCleanup(tracemalloc.stop)
        self.assertLessEqual(max(len(row["text"]) for row in numora.workspace()), 100)
        self.assertLess(tracemalloc.get_traced_memory()[1], 200_000)

    def test_reads_rows_of_tables(self):
        frame = pandas.DataFrame({"n": range(3), "x": [0.1, float("nan"), 1e300], "o": [Mute(), None, b"b"], "s": ["a", "b" * 300, "c"]})
        frame["d"] = pandas.to_datetime(["2024-01-01", None, "2024-01-03"]).tz_localize("Europe/Berlin")
        frame.columns = ["n", "x", "o", "s", "n"]  # one name twice
        labelled = frame.iloc[:, :1].set_index(pandas.MultiIndex.from_tuples([("a", 1), ("a", 1), (None, 2)], names=["k", None]))
        record = numpy.array([(1, "x", Mute())], dtype=[("a", "i4"), ("b", "U3"), ("c", "O")])
        long = "b" * 197 + "..."
        for value, begin, end, names, numeric, index, cells in [
            (frame, 1, 99, ["n", "x", "o", "s", "n"], [True, True, False, False, False], [["1"], ["2"]],
             [["1", "NaN", "None", long, "NaT"], ["2", "1e+300", "b'b'", "c", "2024-01-03 00:00:00+01:00"]]),
            (frame, 0, 1, ["n", "x", "o", "s", "n"], [True, True, False, False, False], [["0"]],
             [["0", "0.1", "<Mute>", "a", "2024-01-01 00:00:00+01:00"]]),
            (labelled, 1, 3, ["n"], [True], [["a", "1"], ["NaN", "2"]], [["1"], ["2"]]),
            (frame.iloc[:0, 1:2], 0, 5, ["x"], [True], [], []),
            (frame[[]], 2, 5, [], [], [["2"]], [[]]),
            (pandas.DataFrame([[1]], columns=pandas.MultiIndex.from_tuples([("a", 2)])), 0, 1, ["a / 2"], [True], [["0"]], [["1"]]),
            (pandas.Series([1, None], dtype="Int64", name="v"), 0, 2, ["v"], [True], [["0"], ["1"]], [["1"], ["<NA>"]]),
            (numpy.float32([[0.1, 2]]).view(Grid), 0, 1, ["0", "1"], [True, True], [["0"]], [["0.1", "2.0"]]),
            (numpy.array(["2024", "NaT"], "M8[s]"), 0, 2, [""], [False], [["0"], ["1"]], [["2024-01-01T00:00:00"], ["NaT"]]),
            (record, 0, 1, ["a", "b", "c"], [True, False, False], [["0"]], [["1", "x", "<Mute>"]]),
            (record.reshape(1, 1), 0, 1, ["0"], [False], [["0"]], [["(1, 'x', <Mute>)"]]),
            (numpy.ma.array([1, 2], mask=[0, 1]), 0, 2, [""], [True], [["0"], ["1"]], [["1"], ["--"]]),
            ([[1, 2], (3,)], 0, 2, ["0", "1"], [True, False], [["0"], ["1"]], [["1", "2"], ["3", ""]]),
            ([{"a": 1}, {"b": Mute()}], 0, 2, ["a", "b"], [False, False], [["0"], ["1"]], [["1", ""], ["", "<Mute>"]]),
            ([10**5000, datetime.date(2024, 1, 2)], 0, 2, [""], [False], [["0"], ["1"]], [["<int of 16610 bits>"], ["2024-01-02"]]),
        ]:
            self.variables["table"] = value
            found = json.loads(json.dumps(numora.rows("table", begin, end)))
            self.assertEqual([found[key] for key in ("names", "numeric", "index", "cells")], [names, numeric, index, cells])
        self.variables["table"] = pandas.DataFrame(numpy.full((600, 300), "x" * 300, object))
        self.assertIn(([600, 300], 600 * 300 * 8), [(row["shape"], row["bytes"]) for row in numora.workspace()])
        found = numora.rows("table", -5, 10**9)
        self.assertEqual((len(found["cells"]), len(found["names"]), len(found["cells"][0][0])), (500, 200, found["longest"]))
        self.assertLess(found["longest"], 50)

    def test_keeps_the_tables_that_were_shown_last(self):
        frames = [pandas.DataFrame({"a": range(at)}) for at in range(25)]
        kept = [_tables.keep(frame)["table"] for frame in frames]
        self.assertEqual([numora.rows(kept[at], 0, 1)["rows"] for at in (5, 24)], [5, 24])
        del frames[5:]
        self.variables["number"] = 5
        for name, error, text in [
            (kept[4], LookupError, "not kept"), (kept[24], LookupError, "not kept"), ("nope", LookupError, "no variable"),
            ("number", TypeError, "'number' is no table but an object of type int"), (None, TypeError, "string"),
        ]:  # fmt: skip
            self.assertRaisesRegex(error, text, numora.rows, name, 0, 1)

    def test_inspects(self):
        move = "(self, by: Union[int, None], *rest, far=<ellipsis>, **options) -> Point"
        begin, here = Point.move.__code__.co_firstlineno, __file__
        for name, kind, signature, doc, place in [
            ("Point", "type", "(x=1, *, label: str = 'p')", "A point.\n\nIndented.", (here, None)),
            ("point.move", "method", move.replace("self, ", ""), None, (here, begin)),
            ("wrapper", "function", move, None, (here, begin)),
            ("point.norm", "property", None, "Its norm.", (trap.__code__.co_filename, trap.__code__.co_firstlineno)),
            ("text.upper", "builtin_function_or_method", "()", str.upper.__doc__, (None, None)),
        ]:
            found = numora.inspect(name)
            self.assertEqual((found["type"], found["signature"], found["doc"]), (kind, signature, doc), name)
            self.assertEqual((found["source_file"], found["line"]), place, name)
        for name in ["", "x y", "point.", ".x", "for", "point.norm.x", "huge.nope", "a" * 10**6, None, 5]:
            self.assertEqual(numora.inspect(name), {"found": False})

    def test_tells_whether_code_is_complete(self):
        warnings.simplefilter("error")
        self.addCleanup(warnings.resetwarnings)
        filters = list(warnings.filters)
        for code, status, indent in [
            ("'\\d' is 1", "complete", ""),  # two warnings
            ("for x in y:\r\n  z", "incomplete", "  "),
            ("def f():  # why:", "incomplete", "    "),
            ("if x:\n\tif y:\n", "incomplete", "\t\t"),
            ("match x:\n  case 1:\n    pass", "incomplete", "  "),
            ("x = {", "incomplete", "    "),
            ("if x:\n  y = '''a:", "incomplete", ""),
            ("x = 'a", "invalid", ""),
            ("x\0'\ud800'", "invalid", ""),
            ("(" * 100_000, "invalid", ""),
        ]:
            self.assertEqual(numora.is_complete(code), {"status": status, "indent": indent}, code[:100])
        self.assertEqual(warnings.filters, filters)

    def test_keeps_a_bounded_history(self):
        for number in range(1200):
            _history.remember(number, "code")
        self.assertEqual(numora.history(2), [{"number": 1198, "code": "code"}, {"number": 1199, "code": "code"}])
        self.assertEqual([len(numora.history(n)) for n in (None, 5000, 0, -1)], [1000, 1000, 0, 0])
        _history.remember(1200, "x" * (1 << 21))  # more than all may have
        _history.remember(1201, "x" * ((1 << 20) - 12))
        self.assertEqual([entry["number"] for entry in numora.history()], [1197, 1198, 1199, 1201])

    def test_stays_out_of_the_debugger_and_off_the_recursion_limit(self):
        seen, before = set(), sys.getrecursionlimit()

        def trace(frame, event, _):
            seen.add(os.path.basename(frame.f_code.co_filename))
            return trace

        self.addCleanup(sys.setrecursionlimit, before)
        self.addCleanup(sys.settrace, None)
        limit = 1
        while True:
            try:
                sys.setrecursionlimit(limit)
                break
            except RecursionError:
                limit += 1
        sys.setrecursionlimit(limit + 4)
        sys.settrace(trace)
        answers = numora.workspace(), numora.inspect("point.move"), numora.complete("point.", 6)["matches"]
        kept = sys.gettrace(), sys.getrecursionlimit()
        sys.settrace(None)
        sys.setrecursionlimit(before)
        self.assertTrue(all(answers))
        self.assertEqual((kept, seen), ((trace, limit + 4), {"_clients.py"}))

    def test_modules_use_each_other_in_one_direction(self):
        trees = {path.stem: ast.walk(ast.parse(path.read_text())) for path in (SOURCES / "numora").glob("*.py")}
        uses = {name: {node.module or node.names[0].name for node in nodes if isinstance(node, ast.ImportFrom) and node.level}
                for name, nodes in trees.items()}
        self.assertGreater(len(list(graphlib.TopologicalSorter(uses).static_order())), 20)  # raises CycleError
