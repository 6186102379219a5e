"""Has cells of notebooks make tasks of asyncio before they await any: the loop does not run yet, and not between cells."""

import functools
import sys
import threading

import _numora_host as _host


def lend_loop():
    """Is called when asyncio has been imported."""
    asyncio = sys.modules["asyncio"]
    create = asyncio.create_task

    @functools.wraps(create)
    def create_task(coro, **options):
        is_main = asyncio._get_running_loop() is None and threading.current_thread() is threading.main_thread()
        if not (is_main and _host.has_capability("notebook")):
            return create(coro, **options)
        from ._loop import usable_loop

        return usable_loop().create_task(coro, **options)

    asyncio.create_task = asyncio.tasks.create_task = create_task
    is_main = threading.current_thread() is threading.main_thread()
    if is_main and _host.has_capability("notebook") and "numora._loop" not in sys.modules:  # which may be importing it
        from ._loop import usable_loop

        usable_loop()
