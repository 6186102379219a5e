#pragma once

#include <string>

#include "cmddistributor/IIPResult.h"
#include "foundation/core/except.h"
#include "matrix/mxArray.h"

namespace connector::interpreter::v1 {

/// A function call returned something else than it promises. The text tells the client what.
class FEvalResultError : public foundation::core::except::IException {
public:
    using IException::IException;
};

/// What a call through JSON returned: a value that is moved, never copied.
///
/// Threads: one at a time.
class NumoraFevalJsonResult {
public:
    /// Reads the struct with the fields "results", "error" and "faultMessage", and with "faultId" if it has
    /// that. Texts are moved out of it.
    /// Throws: FEvalResultError, when it is not such a struct; `returned` is unchanged then.
    explicit NumoraFevalJsonResult(mxArray& returned);

    /// The result of a request for a function call.
    /// Throws: FEvalResultError, also when the function returned nothing.
    static NumoraFevalJsonResult extract(const cmddistributor::IIPResult& result);

    NumoraFevalJsonResult(NumoraFevalJsonResult&&) = default;
    NumoraFevalJsonResult& operator=(NumoraFevalJsonResult&&) = default;
    ~NumoraFevalJsonResult() = default;

    /// The results as one JSON array.
    /// Throws: FEvalResultError, when they have been taken before.
    std::u16string takeResults();
    bool isError() const { return isError_; }
    const std::u16string& faultMessage() const { return faultMessage_; }
    /// The identifier of an error that has one of its own; empty where it has not.
    const std::u16string& faultId() const { return faultId_; }

private:
    std::u16string results_;
    std::u16string faultMessage_;
    std::u16string faultId_;
    bool isError_ = false;
    bool isTaken_ = false;
};

}  // namespace connector::interpreter::v1
