"""The guest of notebooks: a shell of IPython on the workspace, for its magics, its formatters and what libraries ask it.
Cells run without it.
"""

shell = None  # before IPython is there, while which clients may ask

import atexit
import builtins
import os
import sys

import _numora_host as _host

sys.modules.setdefault("jedi", None)  # half of what IPython loads, for a completer that nobody asks
try:
    import IPython
finally:
    if sys.modules["jedi"] is None:
        del sys.modules["jedi"]

from IPython.core import getipython, page
from IPython.core.displayhook import DisplayHook
from IPython.core.displaypub import DisplayPublisher
from IPython.core.interactiveshell import ExecutionInfo, ExecutionResult, InteractiveShell
from traitlets import Type
from traitlets.config import Config

from . import _cells, _comm, _display, _errors, _user
from ._shell_commands import get_output, replace_scripts, run
from ._rich import display


_BACKEND = "module://numora._figures"


class Publisher(DisplayPublisher):
    def publish(self, data, metadata=None, source=None, *, transient=None, update=False, **_):
        _display.publish("update" if update else "display", data, metadata, (transient or {}).get("display_id"))

    def clear_output(self, wait=False):
        _display.clear_output(wait)


class Hook(DisplayHook):
    def __call__(self, result=None):
        if result is not None:
            _host.show_result(result)


class ZMQInteractiveShell(InteractiveShell):  # by this name libraries know notebooks
    display_pub_class = Type(Publisher)
    displayhook_class = Type(Hook)
    get_ipython = staticmethod(getipython.get_ipython)

    def init_user_ns(self):
        """Adds its names to those of the user, which stay. `exit` and `quit` are the program's: all clients use them."""
        kept = dict(self.user_ns)
        super().init_user_ns()
        for name in {"exit", "quit"} - kept.keys():
            del self.user_ns[name]
        self.user_ns.update(kept)

    def init_virtualenv(self):
        pass  # the program has done that

    def init_prompts(self):
        pass

    def init_hooks(self):
        super().init_hooks()
        self.set_hook("show_in_pager", page.as_hook(self._page), 0)

    def init_magics(self):
        super().init_magics()
        replace_scripts(self)

    def enable_gui(self, gui=None):
        if gui not in (None, "inline"):
            print("The loop of %s is not available: figures are shown in the notebook." % gui, file=sys.stderr)

    def enable_matplotlib(self, gui=None):
        """Keeps the program's own backend: the process has one, for all clients, and a change of it closes their figures."""
        if gui not in (None, "auto", "inline"):
            print("%%matplotlib %s is not available: figures are shown as images." % gui, file=sys.stderr)
        _cells.show_figures_inline()
        prepare_figures()
        return "inline", _BACKEND

    def run_line_magic(self, magic_name, line, _stack_depth=1):
        if magic_name == "config" and line.startswith("InlineBackend"):
            prepare_figures()
        return super().run_line_magic(magic_name, line, _stack_depth + 1)

    def debugger(self, force=False):
        self.InteractiveTB.tb = getattr(sys, "last_traceback", None)  # else that of the first time
        super().debugger(force)

    def _page(self, data, start=0, screen_lines=0, pager_cmd=None):
        data = data if isinstance(data, dict) else {"text/plain": data}
        self.payload_manager.write_payload({"source": "page", "data": data, "start": start})

    def set_next_input(self, text, replace=False):
        self.payload_manager.write_payload({"source": "set_next_input", "text": text, "replace": replace})

    def ask_exit(self):
        _cells.ask_exit()

    def showtraceback(self, exc_tuple=None, *_, **__):
        error = exc_tuple[1] if exc_tuple else sys.exc_info()[1] or getattr(sys, "last_value", None)
        if error is not None:
            _cells.show_caught(error)

    def system(self, cmd):
        self.user_ns["_exit_code"] = run(self.var_expand(cmd, depth=1))

    system_piped = system_raw = system

    def getoutput(self, cmd, split=True, depth=0):
        return get_output(self.var_expand(cmd, depth=depth + 1), split)

    def run_cell(self, raw_cell, store_history=False, silent=False, shell_futures=True, cell_id=None):
        """For magics that run code."""
        result = ExecutionResult(ExecutionInfo(raw_cell, store_history, silent, shell_futures, cell_id))
        try:
            _cells.run(self.transform_cell(raw_cell))
        except KeyboardInterrupt:
            raise
        except BaseException as error:
            result.error_in_exec = error
            self.showtraceback()
        _cells.show_figures()  # to a magic that captures them
        return result


class Kernel:
    """What libraries ask of a kernel."""

    comm_manager = _comm.manager

    def __init__(self, shell):
        self.shell = shell

    @property
    def _parent_header(self):
        return {"header": {"msg_id": _host.request_name()}}

    def get_parent(self, channel=None):
        return self._parent_header


def load():
    """Makes the guest, once."""
    global shell
    config = Config()
    config.HistoryManager.enabled = False  # and no thread for it
    config.HistoryManager.hist_file = ":memory:"
    config.InteractiveShell.colors = "NoColor"
    config.IPKernelApp.parent_appname = "numora"  # it is looked for
    names = {"_", "__", "___"} - _user.variables.keys()  # ours are better: other clients use them, too
    hidden = {"In", "Out", "get_ipython"} - _user.variables.keys()
    made = ZMQInteractiveShell.instance(config=config, user_module=_user.module)
    for name in names:
        _user.variables.pop(name, None)
    builtins.display = display
    atexit.unregister(made.atexit_operations)  # it would take the variables from what else is called then
    made.extension_manager.load_extension("storemagic")
    made.kernel = Kernel(made)
    _comm.stand_in()
    _user.hidden.update((name, made.user_ns[name]) for name in hidden)
    _errors.hidden.append(os.path.dirname(IPython.__file__) + os.sep)
    getipython.get_ipython.__code__ = _get_ipython.__code__  # libraries may have the function already
    shell = made
    if "numora._figures" in sys.modules:
        prepare_figures()


def _get_ipython():
    from numora import _guest

    return _guest.shell_of_client()


def prepare_figures():
    """Has figures shown in the formats that `%config InlineBackend` chooses, by whatever backend."""
    try:
        from matplotlib_inline.backend_inline import configure_inline_support
    except ImportError:
        return
    formatters = shell.display_formatter.formatters.values()
    kind = sys.modules["matplotlib.figure"].Figure
    chosen = [(one, one.type_printers[kind]) for one in formatters if kind in one.type_printers]
    configure_inline_support(shell, _BACKEND)
    for formatter, function in chosen:  # which it has replaced if it is the first time
        formatter.for_type(kind, function)


_running = None  # the cell that runs


def begin():
    """Before any code of a notebook, also of a handler of its messages."""
    global _running
    _running = None
    builtins.get_ipython = shell.get_ipython  # some libraries look for it there
    shell.events.trigger("pre_execute")


def before(number, code):
    """Before a cell."""
    global _running
    shell.execution_count = number
    history = shell.history_manager
    for inputs in (history.input_hist_parsed, history.input_hist_raw):
        inputs[number:] = [""] * (number - len(inputs))  # a cell that uses no number up has that of the next one
    history.store_inputs(number, code)
    begin()
    _running = ExecutionInfo(code, True, False, True, None)
    shell.events.trigger("pre_run_cell", _running)


def after(error):
    """After either."""
    try:
        shell.events.trigger("post_execute")
        if _running:
            result = ExecutionResult(_running)
            result.execution_count, result.error_in_exec = shell.execution_count, error
            shell.events.trigger("post_run_cell", result)
    finally:
        payloads = shell.payload_manager.read_payload()
        shell.payload_manager.clear_payload()
        vars(builtins).pop("get_ipython", None)
    for payload in payloads:
        try:
            _host.raise_event("payload", {"payload": payload})
        except Exception as problem:  # it has no JSON form, or is too large
            _cells.complain(problem)
    if error is not None and shell.call_pdb and not isinstance(error, SystemExit):
        shell.debugger()


def keep_result(value):
    hook = shell.displayhook
    hook.update_user_ns(value)
    builtins.__, builtins.___ = hook.__, hook.___  # which it leaves alone, since `_` is there
