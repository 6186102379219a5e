"""Runs the coroutines of code that awaits outside of functions, in one loop that lives on from evaluation to evaluation."""

import asyncio
import atexit

_loop = None
_task = None  # the one that an interrupt of the loop's own code cancels


def run(coroutine):
    """Runs a coroutine to its end. An interrupt cancels it, unless that has hit its own code."""
    global _task
    outer, task = _task, None
    try:
        loop = usable_loop()
        _task = task = loop.create_task(coroutine)
        task.add_done_callback(lambda _: loop.stop())
        _finish(task, loop)
        if task.cancelled() and _task is None:
            raise KeyboardInterrupt
    except BaseException as interrupt:
        if task is None:
            coroutine.close()
            raise
        if not task.done():
            _cancel(task, loop)  # an interrupt of that leaves it to the loop
        if task.cancelled():
            raise interrupt.with_traceback(_place_of(task)) from None
    finally:
        _task = outer
    return task.result()


async def run_in_turn(codes, workspace):
    """Runs compiled code, within the loop."""
    for code in codes:
        value = eval(code, workspace)
        if code.co_flags & 0x80:  # a coroutine
            await value


def take_interrupt(frame):
    """Has an interrupt of the loop's own code cancel the task. Raised there, it could lose the next step of any task."""
    global _task
    while frame is not None and _belongs_to_loop(frame.f_globals.get("__name__")):
        frame = frame.f_back
    if frame is None or frame.f_code is not _finish.__code__ or _task is None or _task.done():
        return False
    # Where the loop is, a callback may be added as by another thread, and wakes it.
    _loop.call_soon_threadsafe(_task.cancel)
    _task = None  # the next interrupt is raised wherever it comes
    return True


def _belongs_to_loop(module):
    return isinstance(module, str) and (module.startswith("asyncio.") or module in ("selectors", "_weakrefset"))


def usable_loop():
    """The loop, which is that of the main thread then unless code has set another."""
    global _loop
    if _loop is None or _loop.is_closed():
        _loop = asyncio.new_event_loop()
        atexit.register(_close, _loop)
    if not _has_loop(asyncio.get_event_loop_policy()):
        asyncio.set_event_loop(_loop)
    return _loop


def _has_loop(policy):
    """Whether the main thread has a loop. To ask for it would make one where none has been set yet."""
    found = getattr(getattr(policy, "_local", None), "_loop", None)
    return found is not None and not found.is_closed()


def _finish(task, loop):
    while not task.done():
        loop.run_forever()


def _cancel(task, loop):
    global _task
    _task = None
    task.cancel()
    loop.call_soon(loop.stop)
    loop.run_forever()
    if not task.done() and getattr(task, "_must_cancel", False):
        task._log_destroy_pending = False
        raise KeyboardInterrupt  # its next step has been lost all the same, and never comes
    _finish(task, loop)


def _place_of(task):
    """Where a task was when it was cancelled."""
    try:
        task.result()
    except asyncio.CancelledError as error:
        return error.__traceback__


def _close(loop):
    if loop.is_closed():
        return
    tasks = asyncio.all_tasks(loop)
    for task in tasks:
        task.cancel()
    if tasks:
        loop.run_until_complete(asyncio.wait(tasks, timeout=0.5))
    loop.close()
