"""Prepares libraries for the command window when they are first imported."""

import os
import sys

from ._threads import attribute_submitted

_columns = 80


def set_window(columns, rows):
    """Makes shutil.get_terminal_size() and NumPy's line width follow the command window."""
    global _columns
    _columns = columns
    os.environ["COLUMNS"] = str(columns)
    os.environ["LINES"] = str(rows)
    _apply_width_to_numpy()


def _apply_width_to_numpy():
    numpy = sys.modules.get("numpy")
    if hasattr(numpy, "set_printoptions"):
        numpy.set_printoptions(linewidth=_columns)


def _show_figures_to_clients():
    if "MPLBACKEND" not in os.environ:
        sys.modules["matplotlib"].rcParams["backend"] = "module://numora._figures"


def _expect_guest():
    from ._cells import guest_is_imported

    guest_is_imported()


def _prepare_figures():
    from ._guest import made

    if made():
        made().prepare_figures()  # before code chooses other formats


def _make_comms():
    from ._comm import prepare_package

    prepare_package()


def _lend_loop():
    from ._tasks import lend_loop

    lend_loop()


_PREPARATIONS = {
    "IPython": _expect_guest,
    "asyncio": _lend_loop,
    "comm": _make_comms,
    "numpy": _apply_width_to_numpy,
    "matplotlib": _show_figures_to_clients,
    "matplotlib_inline.backend_inline": _prepare_figures,
    "concurrent.futures.thread": attribute_submitted,
}


class Preparer:
    """A finder of modules that leaves finding to Python, and prepares what was loaded."""

    @staticmethod
    def find_spec(name, path=None, target=None):
        prepare = _PREPARATIONS.get(name)
        if prepare is None:
            return None
        from importlib.machinery import PathFinder

        spec = PathFinder.find_spec(name, path)
        if spec is not None and spec.loader is not None:
            execute = spec.loader.exec_module

            def exec_module(module):
                execute(module)
                prepare()

            spec.loader.exec_module = exec_module
        return spec
