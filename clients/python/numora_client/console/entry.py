"""The program: reads its arguments, then lines until there are no more."""

from __future__ import annotations

import argparse
import asyncio
import os
import signal
import sys
from typing import Any, NoReturn, Optional

from ..errors import CallError, NumoraError
from . import words
from .colours import Colours, are_wanted
from .commands import Command, command_from, first_of
from .completion import InterpreterCompleter
from .display import Display
from .editor import Discarded, Editor
from .history import BlockHistory, default_file
from .inspection import description, table
from .link import Link
from .own_server import OwnServer
from .runner import Runner
from .window import Keyboard, Window, columns

_BANNER_TIME = 0.15  # seconds that the banner waits for the server, and the interpreter to tell its version
_CLOSING_TIME = 1.0  # seconds for telling the server
_FAILURE = 1
_ENDED = 128 + signal.SIGTERM


def main(arguments: Optional[list[str]] = None) -> NoReturn:
    """Ends the process with the exit status."""
    parser = argparse.ArgumentParser(prog="numora console", description="A console for the interpreter of a server.")
    parser.add_argument("url", nargs="?", default=os.environ.get("NUMORA_URL", ""),
                        help="the address that the server has printed (default: NUMORA_URL)")
    parser.add_argument("--no-color", action="store_true", help="no colours; NO_COLOR in the environment says the same")
    parser.add_argument("--program", default="", help=argparse.SUPPRESS)  # its name and version
    parser.add_argument("--own-server", type=int, nargs=2, metavar=("PID", "DESCRIPTOR"), help=argparse.SUPPRESS)
    parser.add_argument("--show-log", action="store_true", help=argparse.SUPPRESS)  # of that server
    options = parser.parse_args(arguments)
    if not options.url and not options.own_server:
        parser.error("the address of a server is required: URL or NUMORA_URL")
    if not (sys.stdin.isatty() and sys.stdout.isatty()):
        parser.error("standard input and output must be a terminal")
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # until it has a meaning
    with Keyboard() as keyboard:
        try:
            status = asyncio.new_event_loop().run_until_complete(_run(options, keyboard))
        except asyncio.CancelledError:
            status = _ENDED
    sys.stdout.flush()
    os._exit(status)  # whatever is still under way, as attempts to connect, has nothing to lose


async def _run(options: argparse.Namespace, keyboard: Keyboard) -> int:
    for number in (signal.SIGTERM, signal.SIGHUP):
        asyncio.get_running_loop().add_signal_handler(number, asyncio.current_task().cancel)  # type: ignore[union-attr]
    console = Console(options, keyboard)
    try:
        return await console.run()
    finally:
        await console.end()


class Console:
    def __init__(self, options: argparse.Namespace, keyboard: Keyboard) -> None:
        self._options = options
        self._colours = Colours(are_wanted(not options.no_color))
        self._window = Window()
        self._editor = Editor(InterpreterCompleter(self._call), BlockHistory(default_file()), self._colours.wanted)
        self._display = Display(self._window, self._editor, self._colours)
        self._runner = Runner(self._editor, self._display, keyboard)
        self._link = self._runner.link = Link(self._runner.take, self._runner.lose)
        # The program runs the console with the Python that it embeds.
        self._python = "%d.%d.%d" % sys.version_info[:3] if options.own_server else ""
        self._reading: Optional[asyncio.Task[int]] = None
        self._server = OwnServer(options.own_server[0], options.own_server[1],
                                 self._say if options.show_log else None) if options.own_server else None

    async def run(self) -> int:
        opening = asyncio.create_task(self._open())
        if not self._server:
            await asyncio.wait([opening], timeout=_BANNER_TIME)
            if opening.done() and opening.result():
                return opening.result()
        self._window.write(words.banner(self._options.program, self._python, self._link.place))
        reading = self._reading = asyncio.create_task(self._read_blocks())
        asyncio.get_running_loop().call_later(0.05, lambda: asyncio.ensure_future(self._editor.load_lexer()))
        lost = asyncio.create_task(self._until_lost(opening))
        try:
            await asyncio.wait([reading, lost], return_when=asyncio.FIRST_COMPLETED)
            if reading.done():
                return reading.result()
            await self._stop_reading()
            if text := lost.result():
                await self._display.problem(text)
            return opening.result() or _FAILURE
        finally:
            lost.cancel()

    async def end(self) -> None:
        """Leaves the terminal as it was, and ends a server of its own."""
        await self._stop_reading()
        await asyncio.wait([asyncio.create_task(self._link.close())], timeout=_CLOSING_TIME)
        if self._server:
            await self._server.end()

    async def _stop_reading(self) -> None:
        if self._reading:
            self._reading.cancel()
            await asyncio.wait([self._reading], timeout=_CLOSING_TIME)  # the terminal may take nothing

    # --- the server --------------------------------------------------------------------------------------------------

    async def _open(self) -> int:
        """The exit status with which the console ends at once; 0 when it goes on."""
        url, token = self._options.url, os.environ.get("NUMORA_TOKEN")
        if self._server:
            url, token = await self._server.address(), None
            if not url:
                status = await self._server.ended()
                await self._display.plain("\n".join(self._server.last_lines))
                return abs(status) or _FAILURE
        try:
            await self._link.open(url, token)
        except NumoraError as error:
            await self._display.problem(str(error))
            return _FAILURE
        try:
            self._python = await self._call("numora._commands.about")  # which also starts one that has not been used
        except NumoraError as error:
            if not isinstance(error, CallError) or error.code:  # an older server has no such function
                await self._display.problem(str(error))
        return 0

    async def _until_lost(self, opening: asyncio.Task[int]) -> str:
        """Waits for the end of the server, as far as the console cannot go on without it; what is to be said of it."""
        if await opening:
            return ""
        if not self._server:
            return str(await self._link.failed)
        await self._server.ended()
        return "\n".join([words.OWN_SERVER_ENDED, *self._server.last_lines])

    def _say(self, line: str) -> None:
        asyncio.ensure_future(self._display.plain(line))

    async def _call(self, function: str, *arguments: object) -> Any:
        return await self._link.call(function, *arguments)

    # --- what is typed -----------------------------------------------------------------------------------------------

    async def _read_blocks(self) -> int:
        while True:
            try:
                text = await self._editor.block(self._display.settle)
            except Discarded:
                continue
            except EOFError:
                return 0
            while text.strip():
                first, text = first_of(text)
                try:
                    command = command_from(first)
                except ValueError as error:
                    await self._display.problem(str(error))
                    break
                if command.action == "exit":
                    return int(command.name) & 0xFF
                if not await self._do(command):
                    break

    async def _do(self, command: Command) -> bool:
        """Whether it was done, so that what follows it may be."""
        if command.code:
            return await self._runner.run(command.code)
        if command.action == "unknown":
            await self._display.problem(words.unknown_command(command.name))
            return False
        if command.action == "help":
            await self._display.plain(words.HELP)
            return True
        return await self._runner.wait_for(self._ask(command))

    async def _ask(self, command: Command) -> bool:
        """What the interpreter is asked without running code of it; whether that worked."""
        try:
            if command.action == "restart":
                interpreter = await self._runner.restart()
                await self._display.note(words.restarted(interpreter.id, interpreter.life))
            elif command.action == "who":
                await self._display.plain(table(await self._link.call("numora.workspace"), columns()))
            else:
                await self._inspect(command)
        except NumoraError as error:
            await self._display.problem(str(error))
            return False
        return True

    async def _inspect(self, command: Command) -> None:
        found = await self._link.call("numora.inspect", command.name)
        if not found["found"]:
            return await self._display.problem(words.not_found(command.name))
        source = ""
        if command.action == "source":
            source = await self._link.call("numora._commands.source", command.name)
        await self._display.plain(description(found, source))
