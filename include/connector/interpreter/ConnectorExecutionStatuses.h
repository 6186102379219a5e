#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cmddistributor/RuntimeException.h"
#include "connector/common/v1/Message.h"
#include "nmutil/prompt/InputRequester.h"

namespace connector::interpreter {

/// What one finished evaluation reports. Copyable.
struct ConnectorExecutionStatuses {
    std::int32_t codeBlockStatus = 0;
    nmutil::cmddistributor::inExecutionStatus executionStatus = nmutil::cmddistributor::EXECUTION_OK;
    /// The prompt that the interpreter showed at the end.
    nmutil::prompt::InputRequester inputRequester = nmutil::prompt::BASE_PROMPT;
    /// What was printed, then the text of errors, then the suggestion.
    std::u16string output;
    std::vector<common::v1::Fault> faults;
    bool hadReportableError = false;
    bool ctrlCCalled = false;
    bool clcCalled = false;
    bool homeCalled = false;
};

}  // namespace connector::interpreter
