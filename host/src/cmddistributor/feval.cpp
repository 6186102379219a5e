#include <ostream>
#include <utility>

#include "cmddistributor/CmdRequest.h"
#include "cmddistributor/IIPResult.h"
#include "fl/i18n/text.h"

namespace cmddistributor {

namespace {

void describe(std::ostream& out, const mxArray* array) {
    if (array == nullptr) {
        out << " nothing";
        return;
    }
    out << ' ' << matrix::className(array->classId());
    char separator = ' ';
    for (const std::size_t size : array->dimensions()) {
        out << separator << size;
        separator = 'x';
    }
}

}  // namespace

std::u16string FEvalIIP::toCustomerFriendlyString() const {
    if (const auto* name = std::get_if<std::string>(&function_)) return fl::i18n::to_ustring(*name);
    const auto& handle = std::get<std::shared_ptr<const Array>>(function_);
    return handle && handle->classId() == mxCHAR_CLASS ? matrix::get_ustring(*handle) : u"function handle";
}

void FEvalResult::fillStream(std::ostream& out) const {
    out << "function call " << id().value << ':';
    if (exception()) {
        out << " failed, " << exception()->GetID() << ": " << exception()->what();
        return;
    }
    if (outputs_.empty()) out << " no results";
    for (const auto& output : outputs_) describe(out, output.get());
}

FEvalCmdRequest::FEvalCmdRequest(FEvalIIP::Function function, std::int32_t nargout,
                                 std::shared_ptr<FEvalIIP::Data> data, IqmStreamID stream,
                                 std::shared_ptr<nmutil::io::NMSink> out,
                                 std::shared_ptr<nmutil::io::NMSink> err)
    : CmdRequest(stream, std::move(out), std::move(err)),
      function_(std::move(function)),
      nargout_(nargout),
      data_(std::move(data)) {}

std::shared_ptr<IIP> FEvalCmdRequest::createIIP() {
    return std::make_shared<FEvalIIP>(function_, nargout_, data_, getStreamID(), getOutputSink(),
                                      getErrorSink());
}

}  // namespace cmddistributor
