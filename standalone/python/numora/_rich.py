"""What code shows to clients besides text, as functions that load the rest at their first use."""


def display(*values, display_id=None, metadata=None, raw=False, clear=False):
    """Shows values to clients, as pictures, tables or whatever else they are made of; and as text to clients that show
    nothing else.

    With `display_id`, a string or True for a new one, what is shown can be replaced: by the handle that is returned, or by
    update_display. `metadata` is added to that of the values. With `raw` the values are dictionaries of data by MIME type.
    With `clear` the values take the place of what was shown before.
    """
    from ._display import display

    return display(values, display_id, metadata, raw, clear)


def update_display(value, *, display_id, metadata=None, raw=False):
    """Replaces what was shown with a display id."""
    from ._display import update

    update(value, display_id, metadata, raw)


def clear_output(wait=False):
    """Clears what this code has shown; with `wait` only when it shows something new."""
    from ._display import clear_output

    clear_output(wait)
