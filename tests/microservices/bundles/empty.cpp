// A library that exports no activator.
