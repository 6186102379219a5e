"""Commands of the shell and scripts, for the guest's magics: without threads, and so that an interrupt ends them."""

import subprocess

from IPython.core.magics.script import ScriptMagics
from IPython.utils.process import arg_split
from IPython.utils.text import LSString, SList

from ._processes import run_in_group


def run(command):
    """The exit status of a command of the shell, which reads nothing; what it prints is shown as it comes."""
    return run_in_group(command)[0]


def get_output(command, split):
    _, printed, _ = run_in_group(command, out=subprocess.PIPE, err=subprocess.STDOUT)
    text = printed.decode(errors="replace")
    return SList(text.splitlines()) if split else LSString(text)


def replace_scripts(shell):
    """Has %%script, and %%bash and the like, run their programs here."""
    magics = shell.magics_manager.registry["ScriptMagics"]
    own, options = magics.shebang, ScriptMagics.shebang.parser

    def shebang(line, cell):
        chosen, command = options.parse_known_args(arg_split(line))
        if chosen.bg:
            return own(line, cell)
        pipes = {"out": chosen.out and subprocess.PIPE, "err": chosen.err and subprocess.PIPE}
        text = (cell if cell.endswith("\n") else cell + "\n").encode("utf-8", "replace")
        try:
            status, *printed = run_in_group(command, is_shell=False, text=text, **pipes)
        except FileNotFoundError:
            return print("There is no program %s." % command[0])
        for name, data in zip((chosen.out, chosen.err), printed):
            if name:
                shell.user_ns[name] = data.decode(errors="replace")
        if status and chosen.raise_error:
            raise subprocess.CalledProcessError(status, command)

    shebang.parser, shebang.__doc__ = options, own.__doc__
    magics.shebang = shell.magics_manager.magics["cell"]["script"] = shebang
