"""The end of the interpreter."""


def end(seconds):
    """Runs what code registered for the end, and waits for its threads for this many seconds at the most.

    Returns whether all of them have ended.
    """
    import atexit
    import sys
    import threading
    import time

    deadline = time.monotonic() + seconds

    def end_pools():
        # Worker threads of executors end only when asked, which Python does at this place, too.
        for callback in reversed(list(getattr(threading, "_threading_atexits", ()))):
            callback()

    others = [t for t in threading.enumerate() if t is not threading.current_thread() and not t.daemon]
    pools = threading.Thread(target=end_pools, daemon=True)
    pools.start()
    for thread in [pools, *others]:
        thread.join(max(0.0, deadline - time.monotonic()))
    have_ended = not any(t.is_alive() for t in [pools, *others])
    if not have_ended and "multiprocessing" in sys.modules:
        for child in sys.modules["multiprocessing"].active_children():
            child.terminate()
    atexit._run_exitfuncs()
    return have_ended
