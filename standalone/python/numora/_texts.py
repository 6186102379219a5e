"""Texts of objects whose own code may fail, in a length that can be shown."""

_LIMIT = 100_000  # characters


def text_of(value):
    """The text of an object, or None where its own code fails or is interrupted."""
    try:
        return shortened(str(value))
    except BaseException:
        return None


def shortened(text):
    """The beginning and the end of a text that is too long to be shown."""
    if len(text) <= _LIMIT:
        return text
    half = _LIMIT // 2
    return "%s\n[... %d characters ...]\n%s" % (text[:half], len(text) - 2 * half, text[-half:])
