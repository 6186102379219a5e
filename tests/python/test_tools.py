"""What numora.complete, inspect, workspace, is_complete and history answer."""

import collections
import functools
import json
import os
import sys
import tracemalloc
import types
import typing
import unittest
import warnings

import numpy

SOURCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "standalone", "python")
sys.path.insert(0, SOURCES)
sys.modules["_numora_host"] = types.ModuleType("_numora_host")

import _numora_runtime as runtime
import numora

with open(os.path.join(SOURCES, "_numora_tools.py"), encoding="utf-8") as source:
    runtime.tools_source = source.read()


def units(text):
    return len(text.encode("utf-16-le", "surrogatepass")) // 2


def trap(*_, **__):
    raise SystemExit("code of the object ran")  # which nothing catches by accident


class TrapMeta(type):
    __eq__ = __hash__ = __getattribute__ = __dir__ = __instancecheck__ = __subclasscheck__ = __repr__ = trap


class Trap(dict, metaclass=TrapMeta):
    """Runs into the trap whatever is asked of it."""

    __repr__ = __str__ = __len__ = __iter__ = __getattribute__ = __getattr__ = __dir__ = __sizeof__ = trap
    __eq__ = __hash__ = __bool__ = __getitem__ = __contains__ = keys = items = __format__ = __reduce_ex__ = trap
    __class__ = __dict__ = __signature__ = __wrapped__ = __name__ = value = property(trap)


class Grid(numpy.ndarray):
    shape = nbytes = dtype = property(trap)


class Point:
    """A point.

        Indented.
    """

    def __init__(self, x=1, *, label: str = "p"):
        self.x, self._hidden = x, 2

    @property
    def norm(self):
        """Its norm."""
        return trap()

    @classmethod
    def origin(cls, scale): ...

    @staticmethod
    def plain(a, /, b): ...

    def move(self, by: typing.Optional[int], *rest, far=Ellipsis, **options) -> "Point": ...


@functools.wraps(Point.move)
def wrapper(*args):
    trap()


class Tools(unittest.TestCase):
    def setUp(self):
        Pair = collections.namedtuple("Pair", "a b")
        cyclic = [1]
        cyclic.append(cyclic)
        self.variables = {
            "point": Point(), "Point": Point, "wrapper": wrapper, "trap": Trap(a=1), "TrapType": Trap, "np": numpy,
            "array": numpy.zeros((3, 4)), "grid": numpy.zeros((1, 1)).view(Grid), "scalar": numpy.float32(1.5),
            "keys": {"k'ey": 1, "two words": 2, 3: 4, "π": 5}, "text": "ab" * 100, "number": 3, "_private": 1,
            "pair": Pair(1, "x"), "cyclic": cyclic, "huge": 10**100_000, "wide": range(10**30), "nothing": set(),
        }  # fmt: skip
        self.addCleanup(setattr, runtime, "variables", runtime.variables)
        runtime.variables = self.variables

    def complete(self, marked):
        """Completes at the "|"; returns the text that would be replaced and the matches."""
        before, _, after = marked.partition("|")
        found = numora.complete(before + after, units(before))
        code = before.encode("utf-16-le")
        self.assertEqual(found["end"], units(before), marked)
        return code[2 * found["start"] : 2 * found["end"]].decode("utf-16-le"), found["matches"]

    def test_completes(self):
        for marked, replaced, matches in [
            ("pri|", "pri", ["print"]),
            ("p|", "p", ["pair", "point", "pass", "pow", "print", "property"]),
            ("x = (_p|", "_p", ["_private"]),
            ("'😀'; numb|er", "numb", ["number"]),
            ("point.|", "", ["move", "norm", "origin", "plain", "x", "_hidden"]),
            ("return  point . no|", "no", ["norm"]),
            ("np.linalg.de|", "de", ["det"]),
            ("array.T.sha|", "sha", ["shape"]),
            ("point.norm.|", "", []),
            ("point.move().|", "", []),
            ("keys['a'].|", "", []),
            ("'a'.upp|", "upp", ["upper"]),
            ("f([1, (2)].app|", "app", ["append"]),
            ("{1: 2}.ke|", "ke", ["keys"]),
            ("f'{x}'.upp|", "upp", ["upper"]),
            ("1.|", "", []),
            ('keys["|', "", ["k'ey", "two words", "π"]),
            ("keys['k|", "k", ["k\\'ey"]),
            ('f(keys[ "two w|"])', "two w", ["two words"]),
            ('text["|', "", []),
            ("'pri|", "", []),
            ('"""doc""" # pri|', "", []),
            ('"""doc\\""" \' pri|', "", []),
            ("'''doc' ''' ; pri|", "pri", ["print"]),
            ("x = 'broken\npri|", "pri", ["print"]),
            ("import json.dec|", "dec", ["decoder"]),
            ("import os, collec|", "collec", ["collections"]),
            ("from nump|", "nump", ["numpy"]),
            ("x = 1; from os.path import (join,\n  exi|", "exi", ["exists"]),
            ("from os im|", "im", ["import"]),
            ("import json as js|", "js", []),
            ("from . import |", "", []),
        ]:
            with self.subTest(marked):
                found, names = self.complete(marked)
                public = [name for name in names if not name.startswith("__")]
                self.assertEqual((found, public), (replaced, matches))
                self.assertEqual(names, public + sorted(set(names) - set(public), key=str.casefold))

    def test_completes_at_any_position_of_any_code(self):
        complete = runtime.tools()._complete  # without the net below it
        pieces = ["'''", '"', "\\", "(", "]", "{", "keys[", "point.", "import ", "from x ", "#", "\n", "😀", "\ud800"]
        for code in [a + b + c for a in pieces for b in pieces for c in pieces]:
            for end in range(len(code) + 1):
                start, matches = complete(code[:end])
                self.assertTrue(0 <= start <= end)
        for code, cursor in [(None, 1), ("pri", None), ("pri", -5), ("pri", float("nan")), ("x", 1e300), ("a😀", 2)]:
            found = numora.complete(code, cursor)
            self.assertTrue(0 <= found["start"] <= found["end"] <= units(code or ""), (code, cursor))
        self.variables.update(("n%d" % i, i) for i in range(10_000))
        for long in ["x" * 10**6, "(" * 10**6, "import " + "a." * 10**6, "'''" + "\\'" * 10**6]:
            self.assertEqual(numora.complete(long, len(long))["end"], len(long))
        self.assertEqual(len(numora.complete("n", 1)["matches"]), 500)

    def test_runs_no_code_of_objects(self):
        self.assertEqual([row["name"] for row in numora.workspace() if row["class"] == "Trap"], ["trap"])
        for name in ["trap", "trap.value", "trap.keys", "trap.__class__", "TrapType", "TrapType.value", "point.norm"]:
            self.assertTrue(numora.inspect(name)["found"], name)
        for code in ["trap.", "trap.value.", "TrapType.", 'trap["', "tra"]:
            numora.complete(code, len(code))
        self.assertEqual(self.complete('trap["|')[1], ["a"])

    def test_lists_the_workspace(self):
        rows = {row.pop("name"): row for row in json.loads(json.dumps(numora.workspace()))}
        self.assertEqual(set(rows), set(self.variables) - {"np", "_private"})
        for name, kind, shape, text in [
            ("array", "ndarray", [3, 4], "3x4 float64"),
            ("grid", "Grid", [1, 1], "1x1 float64"),
            ("scalar", "float32", [], "1.5"),
            ("number", "int", [], "3"),
            ("keys", "dict", [4], "{\"k'ey\": 1, 'two words': 2, 3: 4, 'π': 5}"),
            ("text", "str", [200], "'" + "ab" * 48 + "..."),
            ("pair", "Pair", [2], "Pair((1, 'x'))"),
            ("cyclic", "list", [2], "[1, [1, [1, [...]]]]"),
            ("huge", "int", [], "<int of 332193 bits>"),
            ("wide", "range", [], "<range>"),
            ("nothing", "set", [0], "set()"),
            ("point", "Point", [], "<Point x=1>"),
            ("Point", "type", [], "<class Point>"),
        ]:
            row = rows[name]
            self.assertEqual((row["class"], row["shape"], row["text"]), (kind, shape, text))
        self.assertEqual(rows["array"]["bytes"], 96)
        self.assertEqual(rows["text"]["bytes"], sys.getsizeof(self.variables["text"]))

    def test_describes_large_values_without_a_copy(self):
        self.variables.update(large=[[0] * 10**6] * 10**6, keyed=dict.fromkeys(range(10**6)), long="x" * 10**7)
        numora.workspace()
        tracemalloc.start()
        self.addCleanup(tracemalloc.stop)
        for text in [row["text"] for row in numora.workspace()] + [numora.inspect("large.copy")["text"]]:
            self.assertLessEqual(len(text), 100)
        self.assertLessEqual(len(numora.inspect("large")["text"]), 2000)
        self.assertLess(tracemalloc.get_traced_memory()[1], 200_000)

    def test_inspects(self):
        move = "(self, by: Union[int, None], *rest, far=<ellipsis>, **options) -> Point"
        for name, kind, signature, doc in [
            ("point", "Point", None, "A point.\n\nIndented."),
            ("Point", "type", "(x=1, *, label: str = 'p')", "A point.\n\nIndented."),
            ("Point.move", "function", move, None),
            ("point.move", "method", move.replace("self, ", ""), None),
            ("wrapper", "function", move, None),
            ("point.origin", "method", "(scale)", None),
            ("point.plain", "function", "(a, /, b)", None),
            ("point.norm", "property", None, "Its norm."),
            ("len", "builtin_function_or_method", "(obj, /)", len.__doc__),
            ("text.upper", "builtin_function_or_method", "()", str.upper.__doc__),
            ("list.append", "method_descriptor", "(self, object, /)", list.append.__doc__),
        ]:
            found = numora.inspect(name)
            self.assertEqual((found["type"], found["signature"], found["doc"]), (kind, signature, doc), name)
        for name, file, line in [
            ("point.move", __file__, Point.move.__code__.co_firstlineno),
            ("Point", __file__, None),
            ("np", numpy.__file__, None),
            ("number", None, None),
        ]:
            found = numora.inspect(name)
            self.assertEqual((found["source_file"], found["line"]), (file, line), name)
        for name in ["", "x y", "point.", ".x", "for", "point.norm.x", "number.nope", "a" * 10**6, None, 5]:
            self.assertEqual(numora.inspect(name), {"found": False})
        Point.plain.__doc__ = "x" * 10**6
        self.assertEqual(len(numora.inspect("Point.plain")["doc"]), 20_000)

    def test_tells_whether_code_is_complete(self):
        warnings.simplefilter("error")
        self.addCleanup(warnings.resetwarnings)
        filters = list(warnings.filters)
        for code, status, indent in [
            ("", "complete", ""),
            ("x = 1", "complete", ""),
            ("'\\d' is 1", "complete", ""),  # two warnings
            ("for x in y: z", "complete", ""),
            ("for x in y:\n  z\n", "complete", ""),
            ("for x in y:\n  z\n  ", "complete", ""),
            ("if x:\n  y\nelse: z", "complete", ""),
            ("for x in y:\r\n  z", "incomplete", "  "),
            ("def f():  # why:", "incomplete", "    "),
            ("if x:\n\tif y:\n", "incomplete", "\t\t"),
            ("class A:\n    def f(self):\n        return 1", "incomplete", "    "),
            ("match x:\n  case 1:\n    pass", "incomplete", "  "),
            ("try:\n    x\nexcept E:\n    raise", "incomplete", ""),
            ("def f(a,\n      b):", "incomplete", "    "),
            ("x = [1,\n     2,", "incomplete", "     "),
            ("x = {", "incomplete", "    "),
            ("  x = '''a:", "invalid", ""),
            ("if x:\n  y = '''a:", "incomplete", ""),
            ("@cached", "incomplete", ""),
            ("x = 1 + \\", "incomplete", ""),
            ("x = 'a", "invalid", ""),
            ("a b", "invalid", ""),
            ("x\0", "invalid", ""),
            ("'\ud800'", "invalid", ""),
            ("(" * 100_000, "invalid", ""),
        ]:
            self.assertEqual(numora.is_complete(code), {"status": status, "indent": indent}, code[:100])
        self.assertEqual(warnings.filters, filters)

    def test_keeps_a_bounded_history(self):
        runtime.evaluated.clear()
        runtime._text_size = 0
        for number in range(1200):
            runtime.remember(number, "code")
        self.assertEqual(numora.history(2), [{"number": 1198, "code": "code"}, {"number": 1199, "code": "code"}])
        self.assertEqual([len(numora.history(n)) for n in (None, 5000, 0, -1)], [1000, 1000, 0, 0])
        runtime.remember(1200, "x" * (1 << 21))  # more than all may have
        runtime.remember(1201, "x" * ((1 << 20) - 12))
        self.assertEqual([entry["number"] for entry in numora.history()], [1197, 1198, 1199, 1201])
        for number in range(2):
            runtime.remember(number, "x" * (1 << 19))
        self.assertEqual([entry["number"] for entry in numora.history()], [0, 1])

    def test_stays_out_of_the_debugger(self):
        seen = set()

        def trace(frame, event, _):
            seen.add(os.path.basename(frame.f_code.co_filename))
            return trace

        sys.settrace(trace)
        try:
            numora.complete("point.", 6)
            numora.inspect("point")
            kept = sys.gettrace()
        finally:
            sys.settrace(None)
        self.assertIs(kept, trace)
        self.assertEqual(seen, {"numora.py"})

    def test_works_close_to_the_recursion_limit(self):
        before = sys.getrecursionlimit()
        self.addCleanup(sys.setrecursionlimit, before)
        limit = 1
        while True:
            try:
                sys.setrecursionlimit(limit)
                break
            except RecursionError:
                limit += 1
        sys.setrecursionlimit(limit + 4)
        try:
            answers = numora.workspace(), numora.inspect("point.move"), numora.complete("point.", 6)["matches"]
            kept = sys.getrecursionlimit()
        finally:
            sys.setrecursionlimit(before)
        self.assertTrue(all(answers))
        self.assertEqual(kept, limit + 4)


if __name__ == "__main__":
    unittest.main()
