#pragma once

namespace iqm {

/// The set of variables that code runs in. What it is belongs to the interpreter.
class Workspace {
public:
    virtual ~Workspace() = default;
};

}  // namespace iqm
