#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "cmddistributor/RunOptions.h"
#include "nmutil/io/NMSink.h"

namespace connector::interpreter::v1 {

/// Where the output of one function call goes: never into the command window, because the call may run
/// inside the code of another request, whose output that would become. The response has no place for it
/// either, so the end of it goes to the log, "connector::numora_output", if that takes such lines when the
/// call begins and it is wanted at all.
///
/// Threads: the constructor's, then the interpreter thread.
class CallOutput {
public:
    explicit CallOutput(bool isWanted);

    const std::shared_ptr<nmutil::io::NMSink>& sink() const { return sink_; }
    void write(std::u16string_view text);
    /// `function` names the call in the log.
    void writeToLog(const std::string& function) const;

private:
    const std::shared_ptr<nmutil::io::UnicodeStreamBuf> buffer_;
    const std::shared_ptr<nmutil::io::NMSink> sink_;
};

}  // namespace connector::interpreter::v1
