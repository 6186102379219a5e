"""The variables of evaluated code."""

import __main__

module = __main__
variables = vars(module)  # taken once, whatever the code makes of sys.modules later
hidden = {}  # those that are not the user's own, with their values
