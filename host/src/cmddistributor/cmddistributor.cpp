#include <ostream>
#include <stdexcept>
#include <utility>

#include "cmddistributor/CmdRequest.h"
#include "cmddistributor/RunOptions.h"
#include "cmddistributor/RuntimeException.h"
#include "fl/i18n/text.h"

namespace cmddistributor {

RuntimeException::RuntimeException(nmutil::cmddistributor::inExecutionStatus status, std::string identifier,
                                   std::u16string message, std::u16string text,
                                   std::vector<StackFrame> frames, std::vector<RuntimeException> causes)
    : status_(status),
      identifier_(std::move(identifier)),
      message_(std::move(message)),
      text_(std::move(text)),
      frames_(std::move(frames)),
      causes_(std::move(causes)),
      what_(fl::i18n::to_string(message_)) {}

RunOptions::RunOptions(WhenToDequeue when, boost::optional<std::u16string> source)
    : when_(when), source_(std::move(source)) {}

RunOptions::RunOptions(std::shared_ptr<nmutil::io::UnicodeStreamBuf> out,
                       std::shared_ptr<nmutil::io::UnicodeStreamBuf> err, WhenToDequeue when,
                       nmutil::io::SinkTraits outTraits, nmutil::io::SinkTraits errTraits)
    : when_(when),
      outSink_(std::make_shared<nmutil::io::NMSink>(std::move(out), outTraits)),
      errSink_(std::make_shared<nmutil::io::NMSink>(std::move(err), errTraits)) {}

void IIP::write(std::ostream& out) const {
    out << pluginName_ << ": " << fl::i18n::to_string(toCustomerFriendlyString());
}

const std::shared_ptr<IIP>& CmdRequest::getIIP() {
    if (!iip_) iip_ = createIIP();
    if (!iip_) throw std::logic_error("request must contain an IIP.");
    return iip_;
}

void CmdRequestTraits<CmdRequest>::extractResult(const IIPResult& result) {
    if (result.exception()) throw RuntimeException(*result.exception());
}

EvalCmdRequest::EvalCmdRequest(bool isInternal, IqmStreamID stream, std::shared_ptr<nmutil::io::NMSink> out,
                               std::shared_ptr<nmutil::io::NMSink> err, std::u16string code,
                               std::string pluginName)
    : CmdRequest(stream, std::move(out), std::move(err)),
      isInternal_(isInternal),
      code_(std::move(code)),
      pluginName_(std::move(pluginName)) {}

std::shared_ptr<IIP> EvalCmdRequest::createIIP() {
    return std::make_shared<EvalIIP>(pluginName_, getStreamID(), getOutputSink(), getErrorSink(), code_);
}

PackagedTaskCmdRequest::PackagedTaskCmdRequest(std::function<void()> task)
    : CmdRequest(IqmStreamID::Internal, nullptr, nullptr), task_(std::move(task)) {}

std::shared_ptr<IIP> PackagedTaskCmdRequest::createIIP() {
    return std::make_shared<PackagedTaskIIP>(std::move(task_), getStreamID());
}

}  // namespace cmddistributor
