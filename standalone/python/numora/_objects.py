"""Looks at objects without running their code.

Clients ask for completion and the like while other code runs, between two bytecodes of it: that code may hold a lock or
be halfway through a change. So nothing here calls Python code of the objects it looks at (properties, __repr__, __len__,
__getattr__): attributes are looked up in the dictionaries of objects and classes, and methods are called through the
built-in types that define them. Types are compared by identity, because a metaclass may define == and hash().
"""

import sys
import types
from itertools import islice

NOTHING = object()
HEAP_TYPE = 1 << 9  # flag of classes that Python code may have made

mro = type.__dict__["__mro__"].__get__
class_vars = type.__dict__["__dict__"].__get__
class_name = type.__dict__["__name__"].__get__
class_module = type.__dict__["__module__"].__get__
class_flags = type.__dict__["__flags__"].__get__

_SLOTS = {id(types.GetSetDescriptorType), id(types.MemberDescriptorType)}
# Descriptors that give their value without running Python code.
_NATIVE = _SLOTS | {
    id(types.FunctionType),
    id(types.MethodDescriptorType),
    id(types.WrapperDescriptorType),
    id(types.ClassMethodDescriptorType),
    id(staticmethod),
}


class Instance:
    """Stands for an instance of a class, of which nothing else is known."""

    __slots__ = ("kind",)

    def __init__(self, kind):
        self.kind = kind


def class_of(value):
    return value.kind if type(value) is Instance else type(value)


def is_instance(value, kinds):
    """isinstance() without a look at __class__, which may be a property."""
    return issubclass(type(value), kinds)


def copy(iterate, limit=None):
    """The first items of what other threads may be changing."""
    for _ in range(10):
        try:
            return list(islice(iterate(), limit))
        except RuntimeError:  # changed size meanwhile
            pass
    return []


def find(levels, name):
    return next((level[name] for level in levels if name in level), NOTHING)


def class_levels(kind):
    return [class_vars(base) for base in mro(kind)]


def own_vars(value):
    """The dictionary of an instance; an empty one where there is none, or only through Python code."""
    slot = find(class_levels(type(value)), "__dict__")
    try:
        own = slot.__get__(value) if id(type(slot)) in _SLOTS else {}
    except Exception:
        own = {}
    return own if type(own) is dict else {}


def _levels(value):
    """The dictionaries that hold the attributes of `value` itself, and those of its type."""
    own = class_levels(value) if is_instance(value, type) else [own_vars(value)]
    return own, class_levels(class_of(value))


def attribute(value, name):
    """`value.name` and True; or, where only Python code could tell the value, its descriptor and False."""
    own, inherited = _levels(value)
    instance, kind = value, class_of(value)
    found = find(inherited, name)
    if found is NOTHING or find(class_levels(type(found)), "__set__") is NOTHING:
        nearer = find(own, name)
        if nearer is not NOTHING:
            if not is_instance(value, type):
                return nearer, True
            found, instance, kind = nearer, None, value
    if found is NOTHING:
        return NOTHING, False
    if id(type(found)) in _NATIVE or type(found) is classmethod and type(found.__func__) is types.FunctionType:
        try:
            return found.__get__(instance, kind), True
        except Exception:  # an empty slot
            return NOTHING, False
    return found, find(class_levels(type(found)), "__get__") is NOTHING


def resolve(names, scopes):
    """What a dotted name stands for, as attribute() tells it."""
    value, is_value = find(scopes, names[0]), True
    for name in names[1:]:
        if value is NOTHING or not is_value:
            return NOTHING, False
        value, is_value = attribute(value, name)
    return value, is_value


def attribute_names(value):
    """The names that dir() gives, as far as they can be known."""
    own, inherited = _levels(value)
    levels = own if is_instance(value, (type, types.ModuleType)) else own + inherited
    return {name for level in levels for name in copy(level.__iter__) if type(name) is str and name.isidentifier()}


def numpy_type(name):
    """A type of NumPy's own, or no types where NumPy is not loaded."""
    numpy = sys.modules.get("numpy")
    found = vars(numpy).get(name) if type(numpy) is types.ModuleType else None
    return found if type(found) is type and not class_flags(found) & HEAP_TYPE else ()


def pandas_type(name):
    """A class of pandas, or no classes where pandas is not loaded."""
    pandas = sys.modules.get("pandas")
    found = vars(pandas).get(name) if type(pandas) is types.ModuleType else None
    return found if type(found) is type else ()


def array_attribute(value, name):
    """An attribute of a NumPy array, whatever its class makes of that name."""
    return class_vars(numpy_type("ndarray"))[name].__get__(value)
