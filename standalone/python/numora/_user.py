"""The variables of evaluated code."""

import __main__

variables = vars(__main__)  # taken once, whatever the code makes of sys.modules later
