#pragma once

#include <cstdint>

#include "iqm/plugins.h"

namespace connector::interpreter {

/// Runs one captured evaluation: gives it a level of the command-window sink and the client's window size,
/// and closes the level, which answers the client.
///
/// Threads: the interpreter thread, but for isLicenceBusy.
class ConnectorEvalPlugin : public iqm::UserEvalPlugin {
public:
    /// The name that the plug-in is registered under and that requests carry.
    static constexpr const char* registeredName = "ConnectorEval";

    explicit ConnectorEvalPlugin(iqm::PluginOptions options) : UserEvalPlugin(std::move(options)) {}

    /// Throws: std::bad_cast, when the request carries no ConnectorEvalIIP; as ConnectorCmdWinSink::preEval;
    /// what the host throws at the window size. No level is open then.
    void pre() override;
    /// Throws: as ConnectorCmdWinSink::postEval, and what the host throws; the level is closed all the same.
    void post() override;
    void processMFileError() override;

    /// Whether a captured evaluation holds the licence busy.  Threads: any.
    static bool isLicenceBusy();

private:
    void restoreWindow();
    void restoreHost();

    // The host's window size, from pre to post.
    std::uint64_t savedColumns_ = 0;
    std::uint64_t savedRows_ = 0;
};

}  // namespace connector::interpreter
