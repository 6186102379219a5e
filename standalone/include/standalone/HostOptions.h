#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "connector/message_service/MessageService.h"
#include "messages/LocalMessageService.h"

namespace standalone {

class HostObserver;

struct HostOptions {
    /// Size of the command window, in characters, for requests that do not say theirs.
    std::uint64_t columns = 80;
    std::uint64_t rows = 24;
    /// What native code and child processes write to file descriptors 1 and 2 is captured as interpreter
    /// output, and their standard input is empty.
    bool captureFileDescriptors = true;
    /// Initial configuration values; connector/configuration/settings.h has the keys that are read. Code
    /// changes them by numora.configure().
    std::map<std::string, std::string> configuration = {};
    messages::MessageServiceOptions messages = {};

    /// How many prompts there were before, in other processes: those of this host are numbered on from there.
    std::uint64_t promptsBefore = 0;

    // For a host whose process belongs to another one, which outlives it.

    /// The message service of its services; null: one of its own, made with `messages`.
    std::shared_ptr<connector::message_service::MessageService> messageService = {};
    /// Read ends of the pipes into which file descriptors 1 and 2 lead already; -1: the host makes pipes. The
    /// process has no other output then. The host closes them at its end.
    std::array<int, 2> capturePipes = {-1, -1};
    /// The folder of a virtual environment; empty: none.
    std::string virtualEnvironment = {};
    /// Where Python's traces go when the process crashes, and whenever SIGRTMIN+1 comes; -1: nowhere.
    int traceDescriptor = -1;
    /// Borrowed; null: nobody is told.
    HostObserver* observer = nullptr;
};

}  // namespace standalone
