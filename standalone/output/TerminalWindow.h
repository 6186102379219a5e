#pragma once

#include <memory>
#include <string>

#include "services/io/CmdWinSink.h"

namespace standalone {

/// The command window of last resort, active while no evaluation captures: the process's own output and
/// error.
///
/// Owns: borrows the file descriptors.
class TerminalWindow : public services::io::CmdWinSinkFactory {
public:
    TerminalWindow(int outDescriptor, int errDescriptor);
    std::shared_ptr<services::io::CmdWinSink> getSink(bool isError) override { return isError ? err_ : out_; }

private:
    const std::shared_ptr<services::io::CmdWinSink> out_;
    const std::shared_ptr<services::io::CmdWinSink> err_;
};

}  // namespace standalone
