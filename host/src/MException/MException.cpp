#include "MException/MException.h"

#include <utility>
#include <variant>

#include "fl/i18n/messages.h"
#include "fl/i18n/text.h"
#include "host/Environment.h"

namespace MException {

namespace {

using cmddistributor::RuntimeException;
using fl::i18n::MessageCatalog;

std::vector<std::u16string> textsOf(const mxArray* arguments) {
    std::vector<std::u16string> texts;
    if (arguments == nullptr) return texts;
    if (arguments->classId() == mxCHAR_CLASS) return {matrix::get_ustring(*arguments)};
    matrix::detail::rejectInvalidClassId(arguments->classId(), mxCELL_CLASS);
    for (const auto& cell : std::get<mxArray::Cells>(arguments->content()))
        texts.push_back(cell ? matrix::get_ustring(*cell) : std::u16string());
    return texts;
}

std::u16string catalogued(const std::string& identifier, const std::u16string& otherwise) {
    const std::u16string text = MessageCatalog::get_message(fl::i18n::MessageID(identifier));
    return text == fl::i18n::to_ustring(identifier) ? otherwise : text;
}

void addReport(const MExceptionEnvelope& error, const std::u16string& indent, std::u16string& report) {
    report += indent + error.message() + u'\n';
    for (const auto& cause : error.causes()) {
        report += indent + u"Caused by:\n";
        addReport(cause, indent + u"    ", report);
    }
}

RuntimeException exceptionOf(const MExceptionEnvelope& error, std::u16string text) {
    std::vector<RuntimeException> causes;
    for (const auto& cause : error.causes()) causes.push_back(exceptionOf(cause, {}));
    return {nmutil::cmddistributor::EXECUTION_ERROR,
            error.identifier(),
            error.message(),
            std::move(text),
            {},
            std::move(causes)};
}

}  // namespace

MExceptionEnvelope::MExceptionEnvelope(std::string identifier, std::u16string message,
                                       const mxArray* arguments, bool isInCatalog)
    : identifier_(std::move(identifier)),
      message_(MessageCatalog::format(isInCatalog ? catalogued(identifier_, message) : message,
                                      textsOf(arguments))) {}

std::u16string MExceptionEnvelope::GetReport() const {
    std::u16string report;
    addReport(*this, {}, report);
    return report;
}

RuntimeException CreateMException(const MExceptionEnvelope& envelope) {
    return exceptionOf(envelope, envelope.GetReport());
}

void LastError::Set(const MExceptionEnvelope& envelope) {
    host::environment().setLastError(
        {nmutil::cmddistributor::EXECUTION_ERROR, envelope.identifier(), envelope.message()});
}

void LastMException::Set(const RuntimeException& exception) { host::environment().setLastError(exception); }

}  // namespace MException
