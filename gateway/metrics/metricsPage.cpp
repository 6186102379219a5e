#include "metrics/metricsPage.h"

#include <string_view>

namespace gateway::metrics {

namespace {

using Labels = PrometheusText::Labels;

/// The families of the interpreters: one sample, or some, for each of them.
class Families {
public:
    Families(PrometheusText& page, const std::vector<InterpreterSnapshot>& interpreters)
        : page_(page), interpreters_(interpreters) {}

    template <class ValueOf>
    void add(std::string_view name, std::string_view type, std::string_view help, ValueOf valueOf) {
        page_.family(name, type, help);
        for (const auto& each : interpreters_) page_.sample(name, labels(each), std::uint64_t{valueOf(each)});
    }
    /// `write` gets the interpreter and what writes a sample with further labels.
    template <class Write>
    void addSeveral(std::string_view name, std::string_view help, Write write) {
        page_.family(name, "counter", help);
        for (const auto& each : interpreters_) {
            write(each, [&](Labels further, std::uint64_t value) {
                const auto own = labels(each);
                further.insert(further.end(), own.begin(), own.end());
                page_.sample(name, further, value);
            });
        }
    }

private:
    static Labels labels(const InterpreterSnapshot& each) {
        return each.label.empty() ? Labels() : Labels{{"interpreter", each.label}};
    }

    PrometheusText& page_;
    const std::vector<InterpreterSnapshot>& interpreters_;
};

void writeConnections(PrometheusText& page, const Snapshot& now) {
    page.single("numora_connections", "gauge", "Open connections, WebSockets included.", now.connections);
    page.single("numora_connections_refused_total", "counter",
                "Connections that found no place, or gave way before they had shown the token.",
                now.refusedConnections);
    page.family("numora_refused_total", "counter", "What was refused because of who has sent it, by reason.");
    for (const auto& [reason, count] : now.refusals) {
        page.sample("numora_refused_total", {{"reason", reason}}, count);
    }
}

void writeMessages(Families& families) {
    const auto add = [&](std::string_view name, std::string_view type, std::string_view help,
                         std::uint64_t messages::MessageMetrics::*value) {
        families.add(name, type, help, [value](const auto& now) { return now.messages.*value; });
    };
    using Metrics = messages::MessageMetrics;
    add("numora_sessions", "gauge", "Sessions of the message service.", &Metrics::openSessions);
    add("numora_session_queue_bytes", "gauge", "Bytes queued for all sessions.", &Metrics::queuedBytes);
    add("numora_dropped_messages_total", "counter", "Messages dropped from full queues.",
        &Metrics::droppedMessages);
    add("numora_dropped_bytes_total", "counter", "Bytes of the data of dropped messages.",
        &Metrics::droppedBytes);
    add("numora_messages_published_total", "counter", "Messages published by services and clients.",
        &Metrics::messagesPublished);
}

void writeEvaluations(Families& families) {
    families.add("numora_requests_queued", "gauge", "Requests that wait for a thread.",
                 [](const auto& now) { return now.port.requests.queued; });
    families.add("numora_requests_running", "gauge", "Requests that run.",
                 [](const auto& now) { return now.port.requests.running; });
    families.addSeveral("numora_requests_total", "Requests of clients, by type and outcome.",
                        [](const auto& now, const auto& sample) {
                            for (const auto& [key, count] : now.port.requests.outcomes) {
                                sample({{"type", key.first}, {"outcome", key.second}}, count);
                            }
                        });
    families.addSeveral("numora_streaming_evaluations_total",
                        "Streaming evaluations that have ended, by outcome.",
                        [](const auto& now, const auto& sample) {
                            sample({{"outcome", "success"}}, now.completions.successes);
                            sample({{"outcome", "error"}}, now.completions.failures);
                        });
    const auto addStreaming = [&](std::string_view name, std::string_view help,
                                  std::uint64_t messages::RequestCounter::Counts::*count) {
        families.addSeveral(name, help, [count](const auto& now, const auto& sample) {
            for (const auto& [type, counts] : now.port.streaming) {
                sample({{"client_type", type}}, counts.*count);
            }
        });
    };
    using Counts = messages::RequestCounter::Counts;
    addStreaming("numora_streaming_requests_started_total",
                 "Streaming requests of clients that name their type.", &Counts::started);
    addStreaming("numora_streaming_requests_ended_total", "Those of them that have ended.", &Counts::ended);
}

}  // namespace

std::string metricsPage(const RequestMetrics& requests, const Snapshot& now) {
    PrometheusText page;
    Families families(page, now.interpreters);
    families.add("numora_ready", "gauge", "Whether the interpreter takes requests.",
                 [](const auto& interpreter) { return interpreter.isReady ? 1U : 0U; });
    writeConnections(page, now);
    families.add("numora_bayeux_sessions", "gauge", "Sessions of Bayeux clients.",
                 [](const auto& interpreter) { return interpreter.bayeuxSessions; });
    writeMessages(families);
    writeEvaluations(families);
    requests.write(page);
    return page.take();
}

}  // namespace gateway::metrics
