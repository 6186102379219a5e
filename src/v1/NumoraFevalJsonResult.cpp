#include "v1/NumoraFevalJsonResult.h"

#include <utility>

#include "cmddistributor/IIPResult.h"

namespace connector::interpreter::v1 {

namespace {

mxArray& field(mxArray& structure, const char* name, mxClassID wanted) {
    mxArray* const value = mxGetField(structure, 0, name);
    if (value == nullptr) {
        throw FEvalResultError(std::string("mxArray does not have a field named ") + name);
    }
    if (value->classId() != wanted) {
        throw FEvalResultError(std::string("mxArray contained ") + matrix::className(value->classId()) +
                               " but expected " + matrix::className(wanted));
    }
    return *value;
}

}  // namespace

NumoraFevalJsonResult::NumoraFevalJsonResult(mxArray& returned) {
    if (returned.classId() != mxSTRUCT_CLASS) throw FEvalResultError("mxArray is not a struct");
    if (returned.elementCount() != 1) {
        throw FEvalResultError("expected one struct, found " + std::to_string(returned.elementCount()));
    }
    mxArray& results = field(returned, "results", mxCHAR_CLASS);
    const mxArray& error = field(returned, "error", mxLOGICAL_CLASS);
    mxArray& faultMessage = field(returned, "faultMessage", mxCHAR_CLASS);
    mxArray* const faultId =
        mxGetField(returned, 0, "faultId") ? &field(returned, "faultId", mxCHAR_CLASS) : nullptr;
    if (error.elementCount() != 1) {
        throw FEvalResultError("mxArray contained " + std::to_string(error.elementCount()) +
                               " logicals but expected one");
    }
    isError_ = matrix::get_logical(error);
    results_ = matrix::take_ustring(results);
    faultMessage_ = matrix::take_ustring(faultMessage);
    if (faultId != nullptr) faultId_ = matrix::take_ustring(*faultId);
}

NumoraFevalJsonResult NumoraFevalJsonResult::extract(const cmddistributor::IIPResult& result) {
    const auto* const call = dynamic_cast<const cmddistributor::FEvalResult*>(&result);
    if (call == nullptr || call->outputs().empty() || call->outputs().front() == nullptr) {
        throw FEvalResultError("feval returned null.");
    }
    return NumoraFevalJsonResult(*call->outputs().front());
}

std::u16string NumoraFevalJsonResult::takeResults() {
    if (std::exchange(isTaken_, true)) {
        throw FEvalResultError("Cannot use FEvalResult results after move.");
    }
    return std::move(results_);
}

}  // namespace connector::interpreter::v1
