#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "cmddistributor/RuntimeException.h"
#include "foundation/msg_svc/eventmgr/BaseEvent.h"
#include "nmutil/io/NMSink.h"
#include "nmutil/prompt/InputRequester.h"

namespace nmutil::io {

/// An event that carries text of one stream, in UTF-16.
class TextBase : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    TextBase(foundation::msg_svc::eventmgr::TypeInformation type, std::u16string text, StreamTypeEnum stream)
        : BaseEvent(std::move(type)), text_(std::move(text)), stream_(stream) {}

    const std::u16string& getText() const { return text_; }
    StreamTypeEnum getStreamType() const { return stream_; }

private:
    std::u16string text_;
    StreamTypeEnum stream_;
};

/// Text was printed that belongs to no request, and so to the command window of the environment.
class SinkTextEvent : public TextBase {
public:
    static constexpr const char16_t* typeName = u"nmutil::io::SinkTextEvent";
    SinkTextEvent(std::u16string text, StreamTypeEnum stream)
        : TextBase({typeName}, std::move(text), stream) {}
};

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

/// Running code clears the command window.
class CLCEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    static constexpr const char16_t* typeName = u"services::io::CLCEvent";
    CLCEvent() : BaseEvent({typeName}) {}
};

/// Running code moves the cursor of the command window home.
class HomeEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    static constexpr const char16_t* typeName = u"services::io::HomeEvent";
    HomeEvent() : BaseEvent({typeName}) {}
};

}  // namespace nmutil::io

namespace nmutil::utils {

/// The prompt that the interpreter shows has changed while code runs: the code waits for input, or goes on.
class InputRequestEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    static constexpr const char16_t* typeName = u"services::prompt::InputRequestEvent";
    /// `number` is that of the question that input can be typed for, 0 where there is none; what is typed is
    /// shown if it `isEchoed`.
    explicit InputRequestEvent(prompt::InputRequester requester, std::uint64_t number = 0,
                               bool isEchoed = true)
        : BaseEvent({typeName}), requester_(requester), number_(number), isEchoed_(isEchoed) {}

    prompt::InputRequester getRequester() const { return requester_; }
    std::uint64_t getNumber() const { return number_; }
    bool isEchoed() const { return isEchoed_; }

private:
    prompt::InputRequester requester_;
    std::uint64_t number_;
    bool isEchoed_;
};

/// The queue manager begins to run code, or waits for the next command: the prompt is the one shown then.
class IqmInputRequestEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    static constexpr const char16_t* typeName = u"iqm::IqmInputRequestEvent";
    explicit IqmInputRequestEvent(prompt::InputRequester requester)
        : BaseEvent({typeName}), requester_(requester) {}

    prompt::InputRequester getRequester() const { return requester_; }

private:
    prompt::InputRequester requester_;
};

}  // namespace nmutil::utils

namespace numora::lang::correction {

/// A name in the code is unknown, and `getText` is one that may have been meant.
class SuggestionEvent : public foundation::msg_svc::eventmgr::BaseEvent {
public:
    static constexpr const char16_t* typeName = u"numora::lang::correction::SuggestionEvent";

    /// A suggestion goes where its error goes. `isQuiet` marks one that belongs to the text of a captured
    /// evaluation and is not announced by itself, `isElsewhere` one whose error no command window shows.
    explicit SuggestionEvent(std::u16string text, bool isQuiet = false, bool isElsewhere = false)
        : BaseEvent({typeName}), text_(std::move(text)), isQuiet_(isQuiet), isElsewhere_(isElsewhere) {}

    const std::u16string& getText() const { return text_; }
    bool isQuiet() const { return isQuiet_; }
    bool isElsewhere() const { return isElsewhere_; }

private:
    std::u16string text_;
    bool isQuiet_;
    bool isElsewhere_;
};

}  // namespace numora::lang::correction
