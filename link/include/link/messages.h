#pragma once

/// The heads of frames, each a list of fields one after the other: numbers are 8 bytes, little endian; truth
/// values one byte, 0 or 1; strings their length in 4 bytes and their bytes; lists their length in 4 bytes
/// and their items; maps their length and, for each item, its key and its value. Heads are read for each
/// request, so they are no JSON.
///
/// decode() throws BadFrame when the bytes are not exactly such a head; only a Hello may be longer, so that
/// one of another version can be refused by its name.

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "link/Frame.h"

namespace links {

inline constexpr std::uint64_t protocolVersion = 2;

struct Hello {
    std::uint64_t protocol = protocolVersion;
    std::string build{};
    std::uint64_t pid = 0;

    std::string encode() const;
    static Hello decode(std::string_view head);
    static auto fields(auto& head) { return std::tie(head.protocol, head.build, head.pid); }
};

struct Start {
    std::string id{};        ///< of the interpreter
    std::uint64_t life = 0;  ///< counts its processes, from 1
    std::string folder{};    ///< the working directory; empty: the worker's own
    std::string venv{};      ///< the virtual environment; empty: none
    std::uint64_t columns = 0;
    std::uint64_t rows = 0;
    std::uint64_t logLevel = 0;  ///< as LogHead::severity: records below it are not to be told
    std::map<std::string, std::string> configuration{};  ///< what that of the host begins with

    std::string encode() const;
    static Start decode(std::string_view head);
    static auto fields(auto& head) {
        return std::tie(head.id, head.life, head.folder, head.venv, head.columns, head.rows, head.logLevel,
                        head.configuration);
    }
};

struct RequestHead {
    std::string type{};
    std::string clientType{};
    bool hasCapabilities = false;  ///< the client has named its capabilities, maybe none
    std::vector<std::string> capabilities{};
    std::uint64_t arrivedNs = 0;   ///< when the request came in: CLOCK_MONOTONIC, nanoseconds
    std::uint64_t startedMs = 0;   ///< the same by the system clock: milliseconds since the epoch
    std::uint64_t client = 0;      ///< the gateway's number for the Bayeux session that asks; 0: none
    std::uint64_t interrupts = 0;  ///< how many Interrupts were sent before it, which are to be over first

    std::string encode() const;
    static RequestHead decode(std::string_view head);
    static auto fields(auto& head) {
        return std::tie(head.type, head.clientType, head.hasCapabilities, head.capabilities, head.arrivedNs,
                        head.startedMs, head.client, head.interrupts);
    }
};

struct ResponseHead {
    std::uint64_t status = 0;        ///< of HTTP
    std::string type{};              ///< of the response
    std::string outcome{};           ///< "success", "error", "timeout", "fault", "dropped" or "refused"
    std::string problem{};           ///< what went wrong; empty: nothing
    std::uint64_t retrySeconds = 0;  ///< 0: no such advice
    bool isDropped = false;

    std::string encode() const;
    static ResponseHead decode(std::string_view head);
    static auto fields(auto& head) {
        return std::tie(head.status, head.type, head.outcome, head.problem, head.retrySeconds,
                        head.isDropped);
    }
};

struct MessageHead {
    std::string channel{};
    std::string clientType{};
    bool hasCapabilities = false;
    std::vector<std::string> capabilities{};
    std::string request{};   ///< name of the streamed request; empty: none
    bool hasPrompt = false;  ///< it answers the prompt `prompt`
    std::uint64_t prompt = 0;
    bool isPaced = false;  ///< whoever prints for it waits for its client
    std::uint64_t arrivedNs = 0;
    std::uint64_t startedMs = 0;
    std::uint64_t client = 0;
    std::uint64_t interrupts = 0;  ///< as of requests

    std::string encode() const;
    static MessageHead decode(std::string_view head);
    static auto fields(auto& head) {
        return std::tie(head.channel, head.clientType, head.hasCapabilities, head.capabilities, head.request,
                        head.hasPrompt, head.prompt, head.isPaced, head.arrivedNs, head.startedMs,
                        head.client, head.interrupts);
    }
};

struct ReplyHead {
    std::uint64_t status = 0;  ///< 0: taken, else of HTTP
    std::string reason{};

    std::string encode() const;
    static ReplyHead decode(std::string_view head);
    static auto fields(auto& head) { return std::tie(head.status, head.reason); }
};

struct NoticeHead {
    bool isSubscribed = false;
    std::string channel{};
    std::string clientId{};
    std::string clientType{};

    std::string encode() const;
    static NoticeHead decode(std::string_view head);
    static auto fields(auto& head) {
        return std::tie(head.isSubscribed, head.channel, head.clientId, head.clientType);
    }
};

struct PaceHead {
    bool isBehind = false;

    std::string encode() const;
    static PaceHead decode(std::string_view head);
    static auto fields(auto& head) { return std::tie(head.isBehind); }
};

struct PublishHead {
    std::string channel{};
    std::string request{};     ///< name of the streamed request that it belongs to; empty: none
    std::uint64_t prompt = 0;  ///< number of the prompt; 0: none
    bool echo = false;

    std::string encode() const;
    static PublishHead decode(std::string_view head);
    static auto fields(auto& head) { return std::tie(head.channel, head.request, head.prompt, head.echo); }
};

struct StateHead {
    std::string state{};  ///< "busy", "idle" or "input"

    std::string encode() const;
    static StateHead decode(std::string_view head);
    static auto fields(auto& head) { return std::tie(head.state); }
};

struct LogHead {
    std::uint64_t severity = 0;
    std::string logger{};

    std::string encode() const;
    static LogHead decode(std::string_view head);
    static auto fields(auto& head) { return std::tie(head.severity, head.logger); }
};

struct PingHead {
    std::uint64_t logLevel = 0;  ///< as Start has it, which may have changed

    std::string encode() const;
    static PingHead decode(std::string_view head);
    static auto fields(auto& head) { return std::tie(head.logLevel); }
};

struct PongHead {
    std::string request{};        ///< type and uuid of the request under way; empty: none
    std::uint64_t runningMs = 0;  ///< for how long it has been
    std::uint64_t deafMs = 0;     ///< for how long the interpreter has not looked at its signals

    std::string encode() const;
    static PongHead decode(std::string_view head);
    static auto fields(auto& head) { return std::tie(head.request, head.runningMs, head.deafMs); }
};

struct StopHead {
    std::uint64_t ms = 0;  ///< how long the worker may take

    std::string encode() const;
    static StopHead decode(std::string_view head);
    static auto fields(auto& head) { return std::tie(head.ms); }
};

}  // namespace links
