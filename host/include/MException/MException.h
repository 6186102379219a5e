#pragma once

#include <string>
#include <vector>

#include "cmddistributor/RuntimeException.h"
#include "matrix/mxArray.h"

/// Errors that the system raises into the interpreter: a task that throws what CreateMException makes fails
/// as code does.
///
/// Threads: the envelope one at a time; setting the last error the interpreter thread.
namespace MException {

/// What an error of the interpreter is made of.
class MExceptionEnvelope {
public:
    /// `arguments`, a char array or a cell array of such, go into the places "{0}", "{1}" and so on of the
    /// message; null stands for none. With `isInCatalog` the message is that of the catalog for the
    /// identifier, and `message` is used only where that has none. Throws: matrix::ArrayException, when the
    /// arguments are of another class.
    MExceptionEnvelope(std::string identifier, std::u16string message, const mxArray* arguments,
                       bool isInCatalog);

    void AddCause(MExceptionEnvelope cause) { causes_.push_back(std::move(cause)); }

    const std::string& identifier() const { return identifier_; }
    const std::u16string& message() const { return message_; }
    const std::vector<MExceptionEnvelope>& causes() const { return causes_; }

    /// What a user is shown: a line with the message, then, indented, those of the causes.
    std::u16string GetReport() const;

private:
    std::string identifier_;
    std::u16string message_;
    std::vector<MExceptionEnvelope> causes_;
};

/// The exception to throw.
cmddistributor::RuntimeException CreateMException(const MExceptionEnvelope& envelope);

/// The last error of the interpreter, `sys.last_value` in a host that is Python, without what led to it.
struct LastError {
    /// Throws: std::logic_error when no environment is installed.
    static void Set(const MExceptionEnvelope& envelope);
};

/// The same with its causes.
struct LastMException {
    static void Set(const cmddistributor::RuntimeException& exception);
};

}  // namespace MException
