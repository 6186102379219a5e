"""What keys do beside what they do everywhere."""

from __future__ import annotations

import select

from prompt_toolkit.application import get_app
from prompt_toolkit.buffer import Buffer
from prompt_toolkit.filters import Condition, has_completions, has_selection, is_searching
from prompt_toolkit.key_binding import KeyBindings, KeyPressEvent

from .blocks import is_complete, next_indent

_INDENT = "    "


def _line_before() -> str:
    return get_app().current_buffer.document.current_line_before_cursor


@Condition
def _is_in_indent() -> bool:
    return not _line_before().strip()


@Condition
def _can_dedent() -> bool:
    line = _line_before()
    return bool(line) and not line.strip(" ") and len(line) % len(_INDENT) == 0


def _is_recalled(buffer: Buffer) -> bool:
    """Whether it is a block of the history that is edited; the last one in the list is new."""
    return buffer.working_index < len(buffer._working_lines) - 1


def _following(event: KeyPressEvent) -> str:
    """What has come with Enter, as of text that a program sends; it has the blanks that its lines begin with."""
    queue = event.app.key_processor.input_queue
    if queue:
        return queue[0].data
    return "more" if select.select([0], [], [], 0)[0] else ""


def answer_keys() -> KeyBindings:
    """None of our own; the prompt for answers must not take those of blocks."""
    return KeyBindings()


def secret_keys() -> KeyBindings:
    """There is nothing to look for, and what one looks for would be shown."""
    keys = KeyBindings()
    for key in "c-r", "c-s":
        keys.add(key)(lambda event: None)
    return keys


def block_keys() -> KeyBindings:
    keys = KeyBindings()
    plain = ~is_searching & ~has_selection

    @keys.add("enter", filter=plain)
    def _enter(event: KeyPressEvent) -> None:
        buffer = event.current_buffer
        if buffer.complete_state and buffer.complete_state.current_completion:
            buffer.complete_state = None
            return
        document = buffer.document
        follows = _following(event)
        is_at_end = not document.text_after_cursor.partition("\n")[2].strip() and follows not in (" ", "\t")
        if is_at_end and is_complete(document.text, is_closed=_is_recalled(buffer)):
            buffer.text = buffer.text.rstrip()
            buffer.cursor_position = len(buffer.text)
            buffer.validate_and_handle()
        else:
            buffer.insert_text("\n" + ("" if follows else next_indent(document.text_before_cursor)))

    @keys.add("escape", "enter", filter=plain)
    def _new_line(event: KeyPressEvent) -> None:
        event.current_buffer.insert_text("\n" + next_indent(event.current_buffer.document.text_before_cursor))

    @keys.add("tab", filter=plain & _is_in_indent)
    def _indent(event: KeyPressEvent) -> None:
        event.current_buffer.insert_text(_INDENT)

    @keys.add("tab", filter=plain & ~_is_in_indent)
    def _complete(event: KeyPressEvent) -> None:
        if event.current_buffer.complete_state:
            event.current_buffer.complete_next()
        else:
            event.current_buffer.start_completion(insert_common_part=True)

    @keys.add("backspace", filter=plain & _can_dedent)
    def _dedent(event: KeyPressEvent) -> None:
        event.current_buffer.delete_before_cursor(len(_INDENT))

    @keys.add("escape", filter=has_completions, eager=False)
    def _close_menu(event: KeyPressEvent) -> None:
        event.current_buffer.cancel_completion()

    return keys
