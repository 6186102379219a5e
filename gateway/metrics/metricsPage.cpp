#include "metrics/metricsPage.h"

namespace gateway::metrics {

namespace {

void writeConnections(PrometheusText& page, const Snapshot& now) {
    page.single("numora_ready", "gauge", "Whether the interpreter takes requests.",
                now.interpreter.isReady ? 1 : 0);
    page.single("numora_connections", "gauge", "Open connections, WebSockets included.", now.connections);
    page.single("numora_connections_refused_total", "counter",
                "Connections that found no place, or gave way before they had shown the token.",
                now.refusedConnections);
    page.single("numora_bayeux_sessions", "gauge", "Sessions of Bayeux clients.",
                now.interpreter.bayeuxSessions);
}

void writeMessages(PrometheusText& page, const messages::MessageMetrics& messages) {
    page.single("numora_sessions", "gauge", "Sessions of the message service.", messages.openSessions);
    page.single("numora_session_queue_bytes", "gauge", "Bytes queued for all sessions.",
                messages.queuedBytes);
    page.single("numora_dropped_messages_total", "counter", "Messages dropped from full queues.",
                messages.droppedMessages);
    page.single("numora_dropped_bytes_total", "counter", "Bytes of the data of dropped messages.",
                messages.droppedBytes);
    page.single("numora_messages_published_total", "counter", "Messages published by services and clients.",
                messages.messagesPublished);
}

void writeEvaluations(PrometheusText& page, const InterpreterSnapshot& now) {
    page.single("numora_requests_queued", "gauge", "Requests that wait for a thread.",
                now.port.requests.queued);
    page.single("numora_requests_running", "gauge", "Requests that run.", now.port.requests.running);
    constexpr std::string_view requests = "numora_requests_total";
    page.family(requests, "counter", "Requests of clients, by type and outcome.");
    for (const auto& [key, count] : now.port.requests.outcomes) {
        page.sample(requests, {{"type", key.first}, {"outcome", key.second}}, count);
    }
    constexpr std::string_view streaming = "numora_streaming_evaluations_total";
    page.family(streaming, "counter", "Streaming evaluations that have ended, by outcome.");
    page.sample(streaming, {{"outcome", "success"}}, now.completions.successes);
    page.sample(streaming, {{"outcome", "error"}}, now.completions.failures);
    constexpr std::string_view started = "numora_streaming_requests_started_total";
    page.family(started, "counter", "Streaming requests of clients that name their type.");
    for (const auto& [type, counts] : now.port.streaming) {
        page.sample(started, {{"client_type", type}}, counts.started);
    }
    constexpr std::string_view ended = "numora_streaming_requests_ended_total";
    page.family(ended, "counter", "Those of them that have ended.");
    for (const auto& [type, counts] : now.port.streaming) {
        page.sample(ended, {{"client_type", type}}, counts.ended);
    }
}

}  // namespace

std::string metricsPage(const RequestMetrics& requests, const Snapshot& now) {
    PrometheusText page;
    writeConnections(page, now);
    writeMessages(page, now.interpreter.messages);
    writeEvaluations(page, now.interpreter);
    requests.write(page);
    return page.take();
}

}  // namespace gateway::metrics
