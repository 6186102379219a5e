#pragma once

#include <cstdint>

/// The size of the command window in characters. The setters return the previous value.
/// Threads: the interpreter thread.
std::uint64_t ioGetNumWindowRows();
std::uint64_t ioGetNumWindowColumns();
std::uint64_t ioSetNumWindowRows(std::uint64_t rows);
std::uint64_t ioSetNumWindowColumns(std::uint64_t columns);
