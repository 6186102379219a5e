#pragma once

#include <memory>

#include "connector/interpreter/ConnectorCmdWinSink.h"
#include "services/io/CmdWinSink.h"

namespace connector::interpreter {

/// Hands the host the two sinks of captured evaluations.  Threads: any.
class ConnectorCmdWinSinkFactory : public services::io::CmdWinSinkFactory {
public:
    std::shared_ptr<services::io::CmdWinSink> getSink(bool isError) override {
        return ConnectorCmdWinSink::getInstance(isError);
    }
};

}  // namespace connector::interpreter
