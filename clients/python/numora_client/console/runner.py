"""Runs code: shows what it prints, asks what it asks, and interrupts it."""

from __future__ import annotations

import asyncio
import contextlib
import os
import signal
from typing import Any, Coroutine, Optional, TypeVar, Union

from ..errors import Disconnected, InterpreterDied, NumoraError, PromptGone
from ..events import COMPLETION, RESPONSES, Completed, Message, event_from
from ..interpreters import Interpreter
from . import words
from .conversation import INTERPRETER, Conversation
from .display import Display
from .editor import Discarded, Editor
from .link import Link
from .window import Keyboard

_PATIENCE = 1.0  # seconds until it is told why code does not begin, or that there is no connection
_PAUSE = 0.05  # seconds between looks whether what is to be interrupted has begun
_BACKLOG = 1 << 16  # characters that wait for the terminal at Ctrl-C, from which on they are skipped
_SKIPPING = 1.0  # seconds for which the server may go on sending what was printed before
_GRACE = 2.0  # seconds after Ctrl-C until it is told what helps against code that goes on
_END_OF_INPUT = "\x04"
_CODE_PROMPTS = ("DEBUG_PROMPT", "KEYBOARD_PROMPT")
_OPEN_BLOCK = "INCOMPLETE_BLOCK_PROMPT"

T = TypeVar("T")
Step = Union[Message, NumoraError, Discarded]


class Runner:
    """One code at a time. Keys that send signals act on it while it runs and nobody types."""

    def __init__(self, editor: Editor, display: Display, keyboard: Keyboard) -> None:
        self._editor, self._display, self._keyboard = editor, display, keyboard
        self.link: Optional[Link] = None
        self._steps: asyncio.Queue[Step] = asyncio.Queue()
        self._is_running = self._has_begun = False
        self._told_size: Optional[os.terminal_size] = None
        self._is_restarting = False
        self._is_waiting = False  # for the answer to something that is no code of the console's
        self._is_pressed = False  # Ctrl-C, since the code was entered
        self._told_life = 0  # of which it was told how it has ended, or of what follows
        self._tasks: set[asyncio.Task[None]] = set()
        loop = asyncio.get_running_loop()
        loop.add_signal_handler(signal.SIGINT, self._press)
        loop.add_signal_handler(signal.SIGQUIT, self._press_hard)
        loop.add_signal_handler(signal.SIGCONT, self._go_on)

    # --- what comes --------------------------------------------------------------------------------------------------

    async def take(self, message: Message) -> None:
        if message.channel == INTERPRETER:
            return await self._take_state(message.data)
        if message.request is not None and self._is_running:
            self._has_begun = self._has_begun or message.channel != COMPLETION  # which also comes of code taken back
            if message.channel in (COMPLETION, RESPONSES + "iqminput"):
                return self._steps.put_nowait(message)
        await self._display.message(message)

    def lose(self, error: NumoraError) -> None:
        if self._is_running:
            self._steps.put_nowait(error)

    async def _take_state(self, data: dict[str, object]) -> None:
        """Tells how lives end, once."""
        death, life = data.get("death"), data.get("life")
        if not isinstance(life, int) or self._is_restarting:
            return
        if life < self._told_life:  # of a server that was started again
            self._told_life = 0
        if isinstance(death, dict) and death.get("life") == life and not self._is_running:
            await self._tell_end(life, str(death.get("sentence", "")))
        elif data.get("state") == "ready":
            if self._told_life and life > self._told_life + 1:
                await self._display.note(words.ANEW)
            self._told_life = max(self._told_life, life - 1)

    async def _tell_end(self, life: int, sentence: str) -> None:
        if life > self._told_life:
            self._told_life, self._told_size = life, None
            await self._display.problem(words.death(sentence))

    # --- running -----------------------------------------------------------------------------------------------------

    async def run(self, code: str) -> bool:
        """Whether it was run without an error."""
        assert self.link
        self._steps, self._has_begun, self._is_pressed = asyncio.Queue(), False, False
        self._is_running = True
        watching = asyncio.create_task(self._watch())
        if self._editor.is_pressed:
            self._press()
        conversation: Optional[Conversation] = None
        try:
            conversation = await self._either(self._conversation())
            if conversation:
                await self._fit_window()
                await conversation.start(code)
                return await self._follow(conversation)
        except InterpreterDied as error:
            await self._tell_end(error.life, error.sentence)
        except NumoraError as error:
            await self._display.problem(str(error))
        except Discarded:
            pass
        finally:
            self._is_running = False
            watching.cancel()
            if conversation:
                conversation.finish()
            await self._display.end_line()
        return False

    async def _conversation(self) -> Conversation:
        assert self.link
        conversation = await self.link.conversation()
        await conversation.until_online()
        return conversation

    async def _fit_window(self) -> None:
        """Tells the interpreter how large the window of its next code is. Of several consoles the last one tells."""
        size = os.get_terminal_size(1)
        if self.link and size != self._told_size:
            with contextlib.suppress(NumoraError, asyncio.TimeoutError):
                telling = self.link.call("numora._libraries.set_window", size.columns, size.lines)
                await asyncio.wait_for(telling, _PATIENCE)
                self._told_size = size

    async def wait_for(self, work: Coroutine[Any, Any, bool]) -> bool:
        """Does something that a key can end; whether it worked."""
        self._steps, self._has_begun = asyncio.Queue(), False
        self._is_running = self._is_waiting = True
        try:
            return bool(await self._either(work))
        finally:
            self._is_running = self._is_waiting = False

    async def restart(self, force: bool = False) -> Interpreter:
        """Throws: NumoraError."""
        assert self.link
        self._is_restarting = True
        try:
            restarted = await self.link.restart(force)
            self._told_size = None
            self._told_life = max(self._told_life, restarted.life - 1)
            return restarted
        finally:
            self._is_restarting = False

    async def _either(self, waiting: Coroutine[Any, Any, T]) -> Optional[T]:
        """What it waits for; None after a key.  Throws: NumoraError, as when that has come meanwhile."""
        task = asyncio.create_task(waiting)
        step = asyncio.create_task(self._steps.get())
        await asyncio.wait([task, step], return_when=asyncio.FIRST_COMPLETED)
        if task.done():
            step.cancel()
            return task.result()
        task.cancel()
        if isinstance(error := step.result(), NumoraError):
            raise error
        return None

    async def _follow(self, conversation: Conversation) -> bool:
        is_open_block = False
        step: Optional[Step] = None
        while True:
            step = step or await self._steps.get()
            if isinstance(step, Exception):
                raise step
            if step.channel == COMPLETION:
                break
            is_open_block = step.data == _OPEN_BLOCK
            step = await self._answer(conversation, step) if step.prompt else None
        if is_open_block:
            await self._display.problem(words.OPEN_BLOCK)
        event = event_from(step)
        return isinstance(event, Completed) and event.success and not is_open_block

    async def _answer(self, conversation: Conversation, asked: Message) -> Optional[Step]:
        """Asks the user what the code asks; gives what came instead of an answer."""
        typing = asyncio.create_task(self._editor.answer(
            self._display.question, asked.echo, asked.data in _CODE_PROMPTS))
        step = asyncio.create_task(self._steps.get())
        await asyncio.wait([typing, step], return_when=asyncio.FIRST_COMPLETED)
        if not typing.done():
            typing.cancel()
            await asyncio.wait([typing])
        elif not step.done():
            step.cancel()
        text: Optional[str] = None
        if not typing.cancelled():
            error = typing.exception()
            if isinstance(error, Discarded):
                self._press()
            elif isinstance(error, EOFError):
                text = _END_OF_INPUT
            elif error:
                raise error
            else:
                text = typing.result() + "\n"
                if self._editor.is_pressed:
                    self._press()
        if text is not None and asked.prompt:
            with contextlib.suppress(PromptGone):
                await conversation.type(asked.prompt, text)
        return step.result() if step.done() and not step.cancelled() else None

    # --- keys --------------------------------------------------------------------------------------------------------

    def _press(self) -> None:
        """Ctrl-C, as often as one likes."""
        if not self._is_running:
            self._editor.is_pressed = True
            return
        if self.link and self.link.is_online and not self._is_waiting:
            self._spawn(self._interrupt())
            if not self._is_pressed:
                self._is_pressed = True
                self._spawn(self._tell_deaf(self._steps))
        else:
            self._steps.put_nowait(Disconnected(words.GIVEN_UP) if self._has_begun else Discarded())

    def _go_on(self) -> None:
        """After a time in the background; an editor sets the terminal itself."""
        if not self._editor.is_active:
            self._keyboard.set()

    def _press_hard(self) -> None:
        """Ctrl-\\: begins anew, whatever runs."""
        if self._is_running and self.link:
            self._spawn(self._restart())

    async def _interrupt(self) -> None:
        assert self.link
        steps = self._steps
        with contextlib.suppress(NumoraError):
            conversation = await self.link.conversation()
            if conversation.backlog > _BACKLOG:
                self._spawn(self._skip_output())
            while self._is_running and steps is self._steps:  # until it has begun, or will not
                # Code that prints nothing does not show that it has begun.
                interpreter = Interpreter() if self._has_begun else await self.link.interpreter()
                request = interpreter.request
                if self._has_begun or request and request.uuid == conversation.request:
                    return await conversation.interrupt()
                await conversation.take_back()
                if not interpreter.life:  # one in the server's process, where that stops what runs, too
                    return
                await asyncio.sleep(_PAUSE)

    async def _skip_output(self) -> None:
        """A slow terminal would go on for long."""
        self._display.skip_output()
        await asyncio.sleep(_SKIPPING)
        await self._display.show_all()

    async def _tell_deaf(self, steps: asyncio.Queue[Step]) -> None:
        await asyncio.sleep(_GRACE)
        if self._is_running and self._has_begun and steps is self._steps and not self._editor.is_active:
            await self._display.note(words.DEAF)

    async def _restart(self) -> None:
        assert self.link
        try:
            await self.restart(force=True)
        except NumoraError as error:
            await self._display.problem(str(error))

    def _spawn(self, work: Coroutine[Any, Any, None]) -> None:
        task = asyncio.create_task(work)
        self._tasks.add(task)
        task.add_done_callback(self._tasks.discard)

    # --- patience ----------------------------------------------------------------------------------------------------

    async def _watch(self) -> None:
        """Tells what the code waits for, and that the connection is lost, once each."""
        assert self.link
        has_told_wait = has_told_loss = False
        while True:
            await asyncio.sleep(_PATIENCE)
            if not self.link.is_online:
                if not has_told_loss:
                    has_told_loss = True
                    await self._display.note(words.OFFLINE if self._has_begun else words.UNREACHABLE)
            elif not self._has_begun and not has_told_wait:
                with contextlib.suppress(NumoraError):
                    text = words.ALREADY_WAITS.get((await self.link.interpreter()).activity)
                    if text and not self._has_begun:
                        has_told_wait = True
                        await self._display.note(text + words.TAKE_BACK)
