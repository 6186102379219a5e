#pragma once

#include <string>
#include <utility>

#include "cmddistributor/RuntimeException.h"
#include "nmutil/io/TextBase.h"

namespace nmutil::io {

/// Running code ended in an error that is to be shown. The text is what a person is shown.
class PrintableErrorEvent : public TextBase {
public:
    static constexpr const char16_t* typeName = u"nmutil::io::PrintableErrorEvent";

    PrintableErrorEvent(std::u16string text, ::cmddistributor::RuntimeException exception)
        : TextBase({typeName}, std::move(text), STANDARD_ERROR), exception_(std::move(exception)) {}

    const ::cmddistributor::RuntimeException& getException() const { return exception_; }
    /// The identifier of the error, such as "NUMORA:NameError".
    const std::string& getID() const { return exception_.GetID(); }

private:
    ::cmddistributor::RuntimeException exception_;
};

}  // namespace nmutil::io
