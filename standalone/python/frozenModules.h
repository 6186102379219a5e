#pragma once

struct _frozen;

namespace standalone {

/// The modules of the package `numora`, which CPython's own importer finds in this table. It ends with an
/// empty row.
extern const _frozen frozenModules[];

}  // namespace standalone
