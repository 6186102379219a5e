"""What is behind numora.complete, inspect, workspace, is_complete and history.

Clients call these while other code runs, between two bytecodes of it: that code may hold a lock or be half-way through
a change. So nothing here calls Python code of the objects it looks at (properties, __repr__, __len__, __getattr__):
attributes are looked up in the dictionaries of objects and classes, and methods are called through the built-in types
that define them. Types are compared by identity, because a metaclass may define == and hash().
"""

import _imp
import builtins
import collections
import keyword
import os
import re
import sys
import types
import warnings
from itertools import islice

import _numora_runtime as _runtime

_NOTHING = object()
_MATCH_LIMIT = 500
_CODE_LIMIT = 65_536  # characters before the cursor that are looked at
_KEY_LIMIT = 100_000  # keys of a dictionary that are looked at

# --- objects, without running their code -----------------------------------------------------------------------------

_mro = type.__dict__["__mro__"].__get__
_class_vars = type.__dict__["__dict__"].__get__
_class_name = type.__dict__["__name__"].__get__
_class_module = type.__dict__["__module__"].__get__
_class_flags = type.__dict__["__flags__"].__get__

_SLOTS = {id(types.GetSetDescriptorType), id(types.MemberDescriptorType)}
# Descriptors that give their value without running Python code.
_NATIVE = _SLOTS | {
    id(types.FunctionType),
    id(types.MethodDescriptorType),
    id(types.WrapperDescriptorType),
    id(types.ClassMethodDescriptorType),
    id(staticmethod),
}


def _is(value, kinds):
    """isinstance() without a look at __class__, which may be a property."""
    return issubclass(type(value), kinds)


def _copy(iterate, limit=None):
    """The first items of what other threads may be changing."""
    for _ in range(10):
        try:
            return list(islice(iterate(), limit))
        except RuntimeError:  # changed size meanwhile
            pass
    return []


def _find(levels, name):
    return next((level[name] for level in levels if name in level), _NOTHING)


def _class_levels(kind):
    return [_class_vars(base) for base in _mro(kind)]


def _own_vars(value):
    """The dictionary of an instance; an empty one where there is none, or only through Python code."""
    slot = _find(_class_levels(type(value)), "__dict__")
    try:
        own = slot.__get__(value) if id(type(slot)) in _SLOTS else {}
    except Exception:
        own = {}
    return own if type(own) is dict else {}


def _levels(value):
    """The dictionaries that hold the attributes of `value` itself, and those of its type."""
    own = _class_levels(value) if _is(value, type) else [_own_vars(value)]
    return own, _class_levels(type(value))


def _attribute(value, name):
    """`value.name` and True; or, where only Python code could tell the value, its descriptor and False."""
    own, inherited = _levels(value)
    instance, kind = value, type(value)
    found = _find(inherited, name)
    if found is _NOTHING or _find(_class_levels(type(found)), "__set__") is _NOTHING:
        nearer = _find(own, name)
        if nearer is not _NOTHING:
            if not _is(value, type):
                return nearer, True
            found, instance, kind = nearer, None, value
    if found is _NOTHING:
        return _NOTHING, False
    if id(type(found)) in _NATIVE or type(found) is classmethod and type(found.__func__) is types.FunctionType:
        try:
            return found.__get__(instance, kind), True
        except Exception:  # an empty slot
            return _NOTHING, False
    return found, _find(_class_levels(type(found)), "__get__") is _NOTHING


def _resolve(names, scopes):
    """What a dotted name stands for, as _attribute() tells it."""
    value, is_value = _find(scopes, names[0]), True
    for name in names[1:]:
        if value is _NOTHING or not is_value:
            return _NOTHING, False
        value, is_value = _attribute(value, name)
    return value, is_value


def _attributes(value):
    """The names that dir() gives, as far as they can be known."""
    own, inherited = _levels(value)
    levels = own if _is(value, (type, types.ModuleType)) else own + inherited
    return {name for level in levels for name in _copy(level.__iter__) if type(name) is str and name.isidentifier()}


# --- short texts -----------------------------------------------------------------------------------------------------

_SHOWN_AS = (
    (list, "[", "]"),
    (tuple, "(", ")"),
    (dict, "{", "}"),
    (set, "{", "}"),
    (frozenset, "{", "}"),
    (collections.deque, "[", "]"),
)
_DEPTH = 3  # of containers in containers
_PLAIN = {id(list): "[]", id(tuple): "()", id(dict): "{}"}
_NATIVE_REPR = {"datetime.date", "datetime.datetime", "datetime.timedelta", "decimal.Decimal"}
_HEAP_TYPE = 1 << 9


def _cut(text, limit):
    return text if len(text) <= limit else text[: max(0, limit - 3)] + "..."


def _numpy_type(name):
    numpy = sys.modules.get("numpy")
    found = vars(numpy).get(name) if type(numpy) is types.ModuleType else None
    return found if type(found) is type and not _class_flags(found) & _HEAP_TYPE else ()


def _of_array(array, name):
    """An attribute of a NumPy array, whatever its class makes of that name."""
    return _class_vars(_numpy_type("ndarray"))[name].__get__(array)


def _text(value, limit, depth=_DEPTH):
    """A text for `value` that takes time in proportion to `limit`, whatever the size of `value`."""
    kind = type(value)
    if kind is float or kind is int and -1 << 62 < value < 1 << 62 or kind is str and len(value) <= limit:
        return _cut(repr(value), limit)
    if id(kind) in _PLAIN:
        opening, closing = _PLAIN[id(kind)]
        return _cut(opening + _items_text(value, kind, limit - 2, depth) + closing, limit)
    for base in (str, bytes, bytearray):
        if issubclass(kind, base):
            return _cut(base.__repr__(base.__getitem__(value, slice(limit))), limit)
    if value is None or kind is bool:
        return str(value)
    for base in (float, complex):
        if issubclass(kind, base):
            return base.__repr__(value)
    if issubclass(kind, int):
        bits = int.bit_length(value)
        return _cut(int.__repr__(value), limit) if bits <= 2000 else "<int of %d bits>" % bits
    for base, opening, closing in _SHOWN_AS:
        if issubclass(kind, base):
            items = _items_text(value, base, limit - 2, depth)
            return _cut("%s(%s)" % (_class_name(kind), opening + items + closing if items else ""), limit)
    return _cut(_object_text(value, kind, limit, depth), limit)


def _items_text(value, base, limit, depth):
    if depth == 0:
        return "..."
    iterate = base.items if base is dict else base.__iter__
    items = _copy(lambda: iterate(value), max(3, limit // 10) if depth == _DEPTH else 3)
    parts = []
    for item in items:
        if limit <= 0:
            break
        if base is dict:
            parts.append("%s: %s" % (_text(item[0], limit, depth - 1), _text(item[1], limit, depth - 1)))
        else:
            parts.append(_text(item, limit, depth - 1))
        limit -= len(parts[-1]) + 2
    if len(parts) < base.__len__(value):
        parts.append("...")
    return ", ".join(parts) + ("," if base is tuple and len(parts) == 1 else "")


def _object_text(value, kind, limit, depth):
    name = _class_name(kind)
    if issubclass(kind, _numpy_type("ndarray")):
        shape = "x".join(map(str, _of_array(value, "shape"))) or "scalar"
        return "%s %s" % (shape, _class_name(_of_array(value, "dtype").type).rstrip("_"))
    if not _class_flags(kind) & _HEAP_TYPE and _has_native_repr(value, kind):
        return repr(value)
    if kind is types.FunctionType:
        return value.__name__ + _parameters(value, 0)
    if issubclass(kind, type):
        return "<class %s>" % _class_name(value)
    own = _copy(_own_vars(value).items, 10) if depth > 0 and kind is not types.ModuleType else []
    fields = ["%s=%s" % (k, _text(v, limit // 3, depth - 1)) for k, v in own if type(k) is str and k[:1] != "_"]
    label = ", ".join(fields) or _attribute(value, "__name__")[0]
    return "<%s %s>" % (name, label) if type(label) is str else "<%s>" % name


def _has_native_repr(value, kind):
    if any(issubclass(kind, _numpy_type(name)) for name in ("number", "bool_", "datetime64")):
        return True
    if kind is range:
        return all(abs(n) < 1 << 64 for n in (value.start, value.stop, value.step))
    # A time zone's __repr__ may be anything.
    name = "%s.%s" % (_class_module(kind), _class_name(kind))
    return name in _NATIVE_REPR and (name != "datetime.datetime" or value.tzinfo is None)


# --- workspace -------------------------------------------------------------------------------------------------------

_SIZED = (str, bytes, bytearray, list, tuple, dict, set, frozenset, collections.deque, range)


def workspace():
    rows = []
    for name, value, class_name, shape in variables():
        is_array = _is(value, _numpy_type("ndarray"))
        rows.append(
            {
                "name": name,
                "class": class_name,
                "shape": shape,
                "bytes": int(_of_array(value, "nbytes")) if is_array else _size(value),
                "text": _text(value, 100),
            }
        )
    rows.sort(key=lambda row: (row["name"].casefold(), row["name"]))
    return rows


def variables():
    """The variables of the user, each as its name, its value, the name of its class and its shape."""
    for name, value in _copy(_runtime.variables.items):
        if type(name) is str and name[:1] != "_" and name.isidentifier() and not _is(value, types.ModuleType):
            is_array = _is(value, _numpy_type("ndarray"))
            shape = list(_of_array(value, "shape")) if is_array else _shape(value)
            yield name, value, _class_name(type(value)), shape


def _shape(value):
    for base in _SIZED if _is(value, _SIZED) else ():
        if _is(value, base):
            try:
                return [base.__len__(value)]
            except OverflowError:  # a range
                return []
    return []


def _size(value):
    measure = _find(_class_levels(type(value)), "__sizeof__")
    return sys.getsizeof(value) if type(measure) is types.MethodDescriptorType else object.__sizeof__(value)


# --- inspect ---------------------------------------------------------------------------------------------------------


def inspect(name):
    names = name.split(".") if _is(name, str) and len(name) <= 1000 else [""]
    loaded = {key: module for key, module in _copy(sys.modules.items) if module is not None}
    value, _ = _resolve(names, (_runtime.variables, loaded, vars(builtins)))
    if value is _NOTHING:
        return {"found": False}
    file, line = _source(value)
    return {
        "found": True,
        "name": name,
        "type": _class_name(type(value)),
        "signature": _signature(value),
        "doc": _doc(value),
        "source_file": file,
        "line": line,
        "text": _text(value, 2000),
    }


def _doc(value):
    doc = _class_vars(value).get("__doc__") if _is(value, type) else _attribute(value, "__doc__")[0]
    if type(doc) is not str:
        return None
    first, *rest = doc[:100_000].strip().expandtabs().split("\n")
    margin = min((len(line) - len(line.lstrip()) for line in rest if line.strip()), default=0)
    return _cut("\n".join([first, *(line[margin:].rstrip() for line in rest)]), 20_000)


_TAKES_ARGS, _TAKES_KEYWORDS = 4, 8  # flags of code objects
_BOUND = {id(types.MethodType), id(classmethod), id(staticmethod)}


def _function_of(value):
    """The function that was written where `value` was bound, wrapped or decorated."""
    for _ in range(10):
        if id(type(value)) in _BOUND:
            value = value.__func__
        elif type(value) is property:
            value = value.fget
        else:
            value = _own_vars(value).get("__wrapped__", value)
    return value


def _signature(value):
    """The parameters in parentheses, or None."""
    if _is(value, type):
        candidates = [(_find(_class_levels(value), name), 1) for name in ("__init__", "__new__")]
    else:
        called = _find(_class_levels(type(value)), "__call__")
        candidates = [(value, type(value) is types.MethodType), (called, 1)]
    for candidate, skipped in candidates:
        function = _function_of(candidate)
        if type(function) is types.FunctionType and type(value) is not property:
            return _cut(_parameters(function, int(skipped)), 2000)
    text, _ = _attribute(value, "__text_signature__")
    if type(text) is not str:
        return None
    if type(value) is types.BuiltinFunctionType:  # its first argument is bound already
        return re.sub(r"^\(\$\w+(, /)?(, )?", "(", text[:2000])
    return text[:2000].replace("$", "", 1)


def _parameters(function, skipped):
    code = function.__code__
    names = code.co_varnames
    count, total = code.co_argcount, code.co_argcount + code.co_kwonlyargcount
    defaults = dict(zip(reversed(names[:count]), reversed(function.__defaults__ or ())))
    defaults.update(function.__kwdefaults__ or {})
    annotations = function.__annotations__

    def described(name, prefix=""):
        text = prefix + name
        if name in annotations:
            text += ": " + _annotation(annotations[name])
        if name in defaults:
            text += (" = " if name in annotations else "=") + _text(defaults[name], 100)
        return text

    parts = [described(name) for name in names[:count]]
    if code.co_posonlyargcount > skipped:
        parts.insert(code.co_posonlyargcount, "/")
    parts = parts[skipped:]
    if code.co_flags & _TAKES_ARGS:
        parts.append(described(names[total], "*"))
    elif code.co_kwonlyargcount:
        parts.append("*")
    parts += [described(name) for name in names[count:total]]
    if code.co_flags & _TAKES_KEYWORDS:
        parts.append(described(names[total + bool(code.co_flags & _TAKES_ARGS)], "**"))
    result = " -> " + _annotation(annotations["return"]) if "return" in annotations else ""
    return "(%s)%s" % (", ".join(parts), result)


def _annotation(value):
    if _is(value, str):
        return str.__str__(value)
    if _is(value, type):
        return "None" if value is types.NoneType else _class_name(value)
    arguments, _ = _attribute(value, "__args__")
    if type(arguments) is not tuple:
        label, _ = _attribute(value, "_name")
        return label if type(label) is str else _text(value, 100)
    origin, _ = _attribute(value, "__origin__")
    if origin is _NOTHING:
        return " | ".join(map(_annotation, arguments))
    return "%s[%s]" % (_annotation(origin), ", ".join(map(_annotation, arguments)))


def _source(value):
    """File and line of a function; file of a class or module."""
    if type(value) is types.ModuleType:
        file = vars(value).get("__file__")
        return (file if type(file) is str else None), None
    function = _function_of(value)
    if type(function) is types.FunctionType:
        return function.__code__.co_filename, function.__code__.co_firstlineno
    if not _is(value, type):
        return None, None
    for method in _copy(_class_vars(value).values):
        if type(method) is types.FunctionType and method.__code__.co_filename != "<string>":  # not made by exec()
            return method.__code__.co_filename, None
    name = _class_vars(value).get("__module__")
    module = sys.modules.get(name) if type(name) is str else None
    return _source(module) if type(module) is types.ModuleType else (None, None)


# --- the code before the cursor --------------------------------------------------------------------------------------

_MARK = re.compile(r"""[\\\n;#()\[\]{}'"]""")
_PREFIX = re.compile(r"(?<!\w)[rRbBuUfF]{1,2}\Z")
_STRING_END = {
    "'": re.compile(r"[^\\'\n]*(?:\\.[^\\'\n]*)*'", re.DOTALL),
    '"': re.compile(r'[^\\"\n]*(?:\\.[^\\"\n]*)*"', re.DOTALL),
    "'''": re.compile(r"[^\\']*(?:(?:\\.|'(?!''))[^\\']*)*'''", re.DOTALL),
    '"""': re.compile(r'[^\\"]*(?:(?:\\.|"(?!""))[^\\"]*)*"""', re.DOTALL),
}


class _Scan:
    """Where in Python code its end stands."""

    def __init__(self, code):
        self.inside = ""  # "#" in a comment; in a string its prefix and quotes
        self.at = 0  # where that begins
        self.brackets = []  # positions of the open ones
        self.statement = 0  # where the last statement begins
        self.begins = {}  # where the string or the brackets begin that end at a position
        position = 0
        while mark := _MARK.search(code, position):
            position = self._pass(code, mark.start(), mark[0])
            if position < 0:
                return

    def _pass(self, code, begin, mark):
        """Goes on to behind what `mark` begins; gives -1 where that is still open at the end."""
        after = begin + 1
        if mark == "#":
            after = code.find("\n", begin)
            if after < 0:
                self.inside, self.at = mark, begin
        elif mark == "\\":
            after += 1
        elif mark in "'\"":
            return self._pass_string(code, begin, mark * 3 if code.startswith(mark * 3, begin) else mark)
        elif mark in "\n;":
            if not self.brackets:
                self.statement = after
        elif mark in "([{":
            self.brackets.append(begin)
        elif self.brackets:
            self.begins[after] = self.brackets.pop()
        return after

    def _pass_string(self, code, begin, quotes):
        prefix = _PREFIX.search(code, max(0, begin - 2), begin)
        prefix = prefix[0] if prefix else ""
        end = _STRING_END[quotes].match(code, begin + len(quotes))
        if end:
            self.begins[end.end()] = begin - len(prefix)
            return end.end()
        line_end = code.find("\n", begin) if len(quotes) == 1 else -1
        if line_end < 0:
            self.inside, self.at = prefix + quotes, begin - len(prefix)
        return line_end


_TREE_ONLY, _ALLOW_INCOMPLETE = 0x400, 0x4000  # flags of compile()


def _parse(code, mode):
    """The syntax tree, with no warning shown or remembered."""
    file = "<numora input>"
    quiet = ("ignore", None, Warning, file, 0)
    filters = warnings.filters
    filters.insert(0, quiet)
    try:
        return compile(code, file, mode, _TREE_ONLY | _ALLOW_INCOMPLETE, dont_inherit=True)
    finally:
        filters.remove(quiet)


# --- complete --------------------------------------------------------------------------------------------------------


def complete(code, cursor):
    code = code if type(code) is str else ""
    end = _index(code, cursor)
    try:
        start, matches = _complete(code[:end])
    except Exception:  # an editor that asks at every key is served better by no match than by an error
        start, matches = end, []
    return {"matches": matches[:_MATCH_LIMIT], "start": _units(code[:start]), "end": _units(code[:end])}


def _units(text):
    """Length in UTF-16 code units."""
    return len(text) if text.isascii() else len(text.encode("utf-16-le", "surrogatepass")) // 2


def _index(code, units):
    """The index of a position in UTF-16 code units; of a pair's first half if it is within the pair."""
    try:
        units = max(0, int(units))
    except (TypeError, ValueError, OverflowError):
        return len(code)
    if code.isascii():
        return min(units, len(code))
    before = code.encode("utf-16-le", "surrogatepass")[: 2 * units].decode("utf-16-le", "surrogatepass")
    return len(before) if code.startswith(before) else len(before) - 1


def _complete(code):
    """Where the word at the end of `code` begins, and what it may become."""
    cut = max(0, len(code) - _CODE_LIMIT)
    cut = max(cut, code.find("\n", cut) + 1) if cut else 0
    text = code[cut:]
    scan = _Scan(text)
    if scan.inside:
        start, names = _keys(text, scan)
    else:
        start = len(text) - len(re.search(r"\w*\Z", text[-500:])[0])
        names = {} if text[start:][:1].isdigit() else _names(text[:start], text[start:], scan)
    typed = text[start:]
    matches = [name for name in names if name.startswith(typed)]
    matches.sort(key=lambda name: (name[:1] == "_", name[:2] == "__", names[name], name.casefold(), name))
    return cut + start, matches


def _names(before, typed, scan):
    """The names that may stand behind `before`, each with its rank."""
    found = _imported_names(before[scan.statement :], typed)
    if found is not None:
        return dict.fromkeys(found, 0)
    stripped = before.rstrip()
    if stripped.endswith("."):
        value = _value_before(stripped[:-1].rstrip(), scan)
        return {} if value is _NOTHING else dict.fromkeys(_attributes(value), 0)
    names = dict.fromkeys([*keyword.kwlist, *keyword.softkwlist, *_copy(vars(builtins).__iter__)], 1)
    variables = _copy(_runtime.variables.__iter__)
    names.update((name, 0) for name in variables if type(name) is str and name.isidentifier())
    return names


_CHAIN = re.compile(r"(?<![\w.])[^\W\d]\w*(?:\s*\.\s*[^\W\d]\w*)*\Z")
_DISPLAYS = {
    "List": list, "ListComp": list, "Dict": dict, "DictComp": dict,
    "Set": set, "SetComp": set, "Tuple": tuple, "JoinedStr": str,
}  # fmt: skip


def _value_before(text, scan):
    """The value of the dotted name or the literal that `text` ends with."""
    chain = _CHAIN.search(text, max(0, len(text) - 1000))
    if chain:
        if text[: chain.start()].rstrip().endswith("."):
            return _NOTHING  # an attribute of a call, of an index, ...
        names = [name.strip() for name in chain[0].split(".")]
        value, is_value = _resolve(names, (_runtime.variables, vars(builtins)))
        return value if is_value else _NOTHING
    begin = scan.begins.get(len(text))
    if begin is None or len(text) - begin > 10_000:
        return _NOTHING
    word = re.search(r"[\w\])}'\"]*\Z", text[max(0, begin - 100) : begin].rstrip())[0]
    if word and not keyword.iskeyword(word):
        return _NOTHING  # a call or an index
    tree = _parse(text[begin:], "eval").body
    if type(tree).__name__ == "Constant":
        return tree.value
    kind = _DISPLAYS.get(type(tree).__name__)
    return kind() if kind else _NOTHING


def _keys(text, scan):
    """In `name["...` where the key begins, and the keys of the dictionary."""
    start = scan.at + len(scan.inside)
    before = text[: scan.at].rstrip()
    if scan.inside not in ("'", '"') or not before.endswith("["):
        return len(text), {}
    value = _value_before(before[:-1].rstrip(), scan)
    if not _is(value, dict):
        return len(text), {}
    keys = [key for key in _copy(lambda: dict.__iter__(value), _KEY_LIMIT) if type(key) is str and key.isprintable()]
    quote = scan.inside
    return start, {key.replace("\\", "\\\\").replace(quote, "\\" + quote): 0 for key in keys}


# --- names of modules ------------------------------------------------------------------------------------------------


_EXTENSIONS = {"py", *(suffix[1:] for suffix in _imp.extension_suffixes())}


def _imported_names(statement, typed):
    """The names that may follow in an import statement, or None outside of one."""
    begin = re.match(r"\s*(from|import)\s+", statement)
    if not begin:
        return None
    package, rest = "", statement[begin.end() :]
    if begin[1] == "from":
        package, space, word = re.match(r"([\w.]*)(\s*)(import\b)?", rest).groups()
        if package.startswith("."):
            return []
        if not space:
            return _modules(package.rstrip("."), typed)
        if not word:
            return ["import"]
        rest = rest.partition("import")[2]
    last = rest.rpartition(",")[2].lstrip(" \t\n\\(")
    if re.fullmatch(r"[\w.]+\s+", last):
        return ["as"]
    if not re.fullmatch(r"(?:\w+\.)*", last):
        return []
    module = sys.modules.get(package) if package else None
    return _modules(package or last.rstrip("."), typed) | (_attributes(module) if module is not None else set())


def _modules(package, typed):
    """The names of the modules in `package`, or of those at the top, that begin with `typed`."""
    if len(package) > 200:
        return set()
    inside = package + "." if package else ""
    known = [*sys.modules, *(() if package else sys.stdlib_module_names)]
    names = {name[len(inside) :].partition(".")[0] for name in known if type(name) is str and name.startswith(inside)}
    for folder in _folders(package):
        try:
            entries = os.listdir(folder or ".")
        except (OSError, ValueError):  # a zip file, or no path at all
            continue
        for entry in entries:
            name, dot, ending = entry.partition(".")
            if not entry.startswith(typed):
                continue
            if ending in _EXTENSIONS if dot else os.path.exists(os.path.join(folder, entry, "__init__.py")):
                names.add(name)
    return {name for name in names if name.isidentifier() and name != "__init__"}


def _folders(package):
    """The folders that hold the modules of `package`; nothing is imported to find them."""
    folders, name = sys.path if type(sys.path) is list else [], ""
    for part in package.split(".") if package else ():
        name += "." + part if name else part
        path = _own_vars(sys.modules.get(name)).get("__path__")
        if type(path) is list:
            folders = path
        else:
            folders = [os.path.join(folder, part) for folder in folders if type(folder) is str]
    return [folder for folder in folders if type(folder) is str]


# --- is_complete -----------------------------------------------------------------------------------------------------


_BLOCKS = ("cases", "body", "handlers", "orelse", "finalbody")
_CHECK_LIMIT = 1_000_000  # characters; nobody types more, and it would stop the running code for long
_LAST_OF_BLOCK = {"Return", "Raise", "Pass", "Break", "Continue"}


def is_complete(code):
    if len(code) > _CHECK_LIMIT:
        return {"status": "complete", "indent": ""}
    code = code.replace("\r\n", "\n").replace("\r", "\n")
    try:
        tree = _parse(code, "exec")
    except (SyntaxError, ValueError, MemoryError, RecursionError) as error:
        if type(error) is SyntaxError and error.msg == "incomplete input":
            return {"status": "incomplete", "indent": _next_indent(code)}
        return {"status": "invalid", "indent": ""}
    lines = code.split("\n")
    indent = _open_indent(tree, lines) if lines[-1].strip() else None
    return {"status": "complete" if indent is None else "incomplete", "indent": indent or ""}


def _indent(line):
    return line[: len(line) - len(line.lstrip(" \t"))]


def _next_indent(code):
    """The indentation of the line that follows code which is not complete."""
    code = code.rstrip()
    scan = _Scan(code)
    if scan.inside.endswith(("'''", '"""')):
        return ""  # it would become part of the string
    text = code[: scan.at].rstrip() if scan.inside == "#" else code
    if scan.brackets or scan.statement >= len(text):
        indent = _indent(text.rpartition("\n")[2])
    else:
        indent = _indent(text[scan.statement :])
    deeper = "\t" if "\t" in indent else "    "
    return indent + (deeper if text.endswith((":", "(", "[", "{")) else "")


def _open_indent(tree, lines):
    """The indentation of the block that the last line is in and the next may be, too; None outside of blocks."""
    node, outer, inner = tree, "", ""
    while parts := [part for field in _BLOCKS for part in getattr(node, field, None) or ()]:
        node = parts[-1]
        placed = node if hasattr(node, "lineno") else node.pattern
        outer, inner = inner, _indent(lines[placed.lineno - 1])
    if not inner:
        return None
    return outer if type(node).__name__ in _LAST_OF_BLOCK else inner


# --- history ---------------------------------------------------------------------------------------------------------


def history(n=None):
    entries = _copy(_runtime.evaluated.__iter__)
    count = len(entries) if n is None else max(0, int(n))
    return [{"number": number, "code": code} for number, code in entries[len(entries) - min(count, len(entries)) :]]
