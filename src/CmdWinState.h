#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "connector/ThreadSafety.h"
#include "connector/interpreter/ConnectorCmdWinSink.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"

namespace connector::interpreter {

using StatusPromise = Promise<ConnectorExecutionStatuses>;

/// Where the text of the level under way is captured.
struct CapturedBuffers {
    std::shared_ptr<ConnectorCmdWinBuffer> out;
    std::shared_ptr<ConnectorCmdWinBuffer> err;
};

/// What has happened in the level under way.
struct LevelFlags {
    bool hadReportableError = false;
    bool ctrlCCalled = false;
    bool clcCalled = false;
    bool homeCalled = false;
    std::vector<common::v1::Fault> faults;
};

/// No prompt has this value, so that the first one counts as a change.
inline constexpr std::uint32_t noPromptSeen = 65535;

/// What all sinks share: the levels, the newest of which captures what is printed.
struct CmdWinState {
    // Touched on the interpreter thread alone.
    std::uint32_t nestingLevel = 0;
    std::uint32_t skipLevel = 0;
    std::uint32_t oldStatus = noPromptSeen;
    LevelFlags flags;
    std::deque<std::shared_ptr<StatusPromise>> promises;  // newest in front
    foundation::msg_svc::eventmgr::ScopedConnection suggestionSub;

    Mutex mutex;
    std::u16string suggestion CONNECTOR_GUARDED_BY(mutex);
    CapturedBuffers buffers CONNECTOR_GUARDED_BY(mutex);
    std::shared_ptr<ConnectorCmdWinSink> outCmdWinSink CONNECTOR_GUARDED_BY(mutex);
    std::shared_ptr<ConnectorCmdWinSink> errCmdWinSink CONNECTOR_GUARDED_BY(mutex);
};

/// Threads: any; what is in it says who may touch it.
CmdWinState& cmdWinState();

/// The buffers, which are made with the sinks.
CapturedBuffers capturedBuffers();

/// Gathers what the level that ends has printed and how it went.  Threads: the interpreter thread.
void collectStatuses(ConnectorExecutionStatuses& statuses);

/// Takes the newest promise out and leaves the state as a new level needs it.  Threads: the interpreter
/// thread.
std::shared_ptr<StatusPromise> closeLevel(ConnectorExecutionStatuses& statuses);

/// Gives the command window back when no level is open.  Threads: the interpreter thread.
void closeWindowIfIdle();

}  // namespace connector::interpreter
