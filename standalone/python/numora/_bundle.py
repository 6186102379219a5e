"""Makes the MIME bundles of values: data and metadata by type."""

import binascii
import sys
from contextlib import nullcontext

import _numora_host as _host

from . import _guest
from ._objects import is_instance, pandas_type

_METHODS = {
    "_repr_html_": "text/html",
    "_repr_markdown_": "text/markdown",
    "_repr_svg_": "image/svg+xml",
    "_repr_png_": "image/png",
    "_repr_jpeg_": "image/jpeg",
    "_repr_latex_": "text/latex",
    "_repr_json_": "application/json",
    "_repr_javascript_": "application/javascript",
    "_repr_pdf_": "application/pdf",
}


def bundle(value):
    """The data of a value by type, and the metadata. Both are empty for one that displays itself, which it has done then."""
    return ({}, {}) if displays_itself(value) else representations(value, complain)


def displays_itself(value):
    """Lets a value display itself that has a way to do so, and returns whether it has. The guest does so by itself."""
    if _guest.of_client():
        return False
    display = _method(value, "_ipython_display_")
    if display is None:
        return False
    try:
        display()
    except Exception as error:
        complain(error)
        return False
    return True


def representations(value, complain):
    """The data of a value by type, always with text/plain, and the metadata. Methods that fail are complained of."""
    with _columns_of(value):
        return _representations(value, complain)


def _columns_of(value):
    """Pandas takes the program for a terminal, and has the width decide how many columns are shown; pages would get all."""
    if not (is_instance(value, pandas_type("DataFrame")) and _host.has_capability("notebook")):
        return nullcontext()
    pandas = sys.modules["pandas"]
    try:
        is_terminal = pandas.get_option("display.max_columns") == 0
        return pandas.option_context("display.max_columns", 20) if is_terminal else nullcontext()
    except Exception:
        return nullcontext()  # it is another module of this name


def _representations(value, complain):
    guest = _guest.of_client()
    is_figure = _is_figure(value)
    if guest and is_figure:
        guest.prepare_figures()
    data, metadata = guest.shell.display_formatter.format(value) if guest else ({}, {})
    if guest and not data:
        return {}, {}  # it has displayed itself
    data = plain(data)

    def collect(name, type_):
        method = _method(value, name)
        if method is None or type_ in data:
            return
        try:
            result = method()
            if result is None:
                return
            found, about = result if isinstance(result, tuple) and len(result) == 2 else (result, {})
            if type_ is None:
                data.update(plain(found))
                metadata.update(about or {})
            else:
                data[type_] = _encoded(found)
                if about:
                    metadata[type_] = about
        except BaseException as error:
            complain(error)

    if not guest:
        collect("_repr_mimebundle_", None)
        for name, type_ in _METHODS.items():
            collect(name, type_)
    if is_figure and not guest and "image/png" not in data:
        _add_figure(value, data, metadata, complain)
    if "text/html" in data:
        _add_table(value, metadata, complain)
    if "text/plain" not in data:
        try:
            data["text/plain"] = repr(value)
        except BaseException as error:
            complain(error)
            data["text/plain"] = object.__repr__(value)
    return data, metadata


def plain(data):
    """Data by type with bytes in base64."""
    if not isinstance(data, dict):
        raise TypeError("data by MIME type must be a dictionary, not %s" % type(data).__name__)
    return {type_: _encoded(value) for type_, value in data.items()}


def ignore(error):
    """Nothing that fails matters, but an interrupt is the code's."""
    if isinstance(error, KeyboardInterrupt):
        raise error


def complain(error):
    """Reports on stderr what is left out, with the part of the call stack that is not this package's."""
    ignore(error)
    import traceback

    trace = error.__traceback__
    while trace is not None and str(trace.tb_frame.f_globals.get("__name__")).startswith("numora."):
        trace = trace.tb_next
    traceback.print_exception(type(error), error, trace)


def _method(value, name):
    """A method that the class of a value has: what classes themselves have is for their instances, and an object that
    makes up its attributes has none."""
    try:
        has_none = is_instance(value, type) or not hasattr(type(value), name)
        method = None if has_none else getattr(value, name, None)
    except Exception:
        return None
    return method if callable(method) else None


def _encoded(value):
    if isinstance(value, (bytes, bytearray, memoryview)):
        return binascii.b2a_base64(value, newline=False).decode()
    return value


def _add_table(value, metadata, complain):
    try:
        from ._tables import keep

        table = keep(value)
        if table:
            metadata["numora"] = table
    except BaseException as error:
        complain(error)


def _is_figure(value):
    kind = getattr(sys.modules.get("matplotlib.figure"), "Figure", None)
    return is_instance(kind, type) and is_instance(value, kind)


def _add_figure(value, data, metadata, complain):
    try:
        from ._figures import png

        data["image/png"] = _encoded(png(value))
        if _host.has_capability("notebook"):
            return  # it has other edges
        width, height = value.canvas.get_width_height()
        metadata["image/png"] = {"width": width, "height": height}
    except BaseException as error:
        complain(error)
