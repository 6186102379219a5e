"""Reads Python code that need not be complete."""

import re
import warnings

_MARK = re.compile(r"""[\\\n;#()\[\]{}'"]""")
_PREFIX = re.compile(r"(?<!\w)[rRbBuUfF]{1,2}\Z")
_STRING_END = {
    "'": re.compile(r"[^\\'\n]*(?:\\.[^\\'\n]*)*'", re.DOTALL),
    '"': re.compile(r'[^\\"\n]*(?:\\.[^\\"\n]*)*"', re.DOTALL),
    "'''": re.compile(r"[^\\']*(?:(?:\\.|'(?!''))[^\\']*)*'''", re.DOTALL),
    '"""': re.compile(r'[^\\"]*(?:(?:\\.|"(?!""))[^\\"]*)*"""', re.DOTALL),
}


class Scanner:
    """Tells where in Python code its end stands."""

    def __init__(self, code):
        self.inside = ""  # "#" in a comment; in a string its prefix and quotes
        self.at = 0  # where that begins
        self.brackets = []  # positions of the open ones
        self.statement = 0  # where the last statement begins
        self.begins = {}  # where the string or the brackets begin that end at a position
        position = 0
        while mark := _MARK.search(code, position):
            position = self._pass(code, mark.start(), mark[0])
            if position < 0:
                return

    def _pass(self, code, begin, mark):
        """The position after what `mark` begins, or -1 where that is still open at the end."""
        after = begin + 1
        if mark == "#":
            after = code.find("\n", begin)
            if after < 0:
                self.inside, self.at = mark, begin
        elif mark == "\\":
            after += 1
        elif mark in "'\"":
            return self._pass_string(code, begin, mark * 3 if code.startswith(mark * 3, begin) else mark)
        elif mark in "\n;":
            if not self.brackets:
                self.statement = after
        elif mark in "([{":
            self.brackets.append(begin)
        elif self.brackets:
            self.begins[after] = self.brackets.pop()
        return after

    def _pass_string(self, code, begin, quotes):
        prefix = _PREFIX.search(code, max(0, begin - 2), begin)
        prefix = prefix[0] if prefix else ""
        end = _STRING_END[quotes].match(code, begin + len(quotes))
        if end:
            self.begins[end.end()] = begin - len(prefix)
            return end.end()
        line_end = code.find("\n", begin) if len(quotes) == 1 else -1
        if line_end < 0:
            self.inside, self.at = prefix + quotes, begin - len(prefix)
        return line_end


_TREE_ONLY, _ALLOW_INCOMPLETE = 0x400, 0x4000  # flags of compile()


def parse(code, mode):
    """The syntax tree, with no warning shown or remembered."""
    file = "<numora input>"
    quiet = ("ignore", None, Warning, file, 0)
    filters = warnings.filters
    filters.insert(0, quiet)
    try:
        return compile(code, file, mode, _TREE_ONLY | _ALLOW_INCOMPLETE, dont_inherit=True)
    finally:
        filters.remove(quiet)
