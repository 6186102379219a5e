"""Runs the coroutines of code that awaits outside of functions, in one loop that lives on from evaluation to evaluation."""

import asyncio
import atexit

_loop = None


def run(coroutine):
    """Runs a coroutine to its end. An interrupt cancels it, unless that has hit its own code."""
    task = None
    try:
        loop = _usable_loop()
        task = loop.create_task(coroutine)
        task.add_done_callback(lambda _: loop.stop())
        _finish(task, loop)
    except BaseException as interrupt:
        if task is None:
            coroutine.close()
            raise
        if not task.done():
            task.cancel()
            _finish(task, loop)  # an interrupt of that leaves it to the loop
            if task.cancelled():
                raise interrupt.with_traceback(_place_of(task)) from None
    return task.result()


def _usable_loop():
    global _loop
    if _loop is None or _loop.is_closed():
        _loop = asyncio.new_event_loop()
        atexit.register(_close, _loop)
    asyncio.set_event_loop(_loop)
    return _loop


def _finish(task, loop):
    while not task.done():
        loop.run_forever()


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
