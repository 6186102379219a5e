#include "GatewayFixture.h"
#include "metrics/PrometheusText.h"
#include "metrics/RequestMetrics.h"

namespace {

using namespace std::chrono_literals;

TEST(PrometheusTextTest, escapesLabels) {
    gateway::metrics::PrometheusText page;
    page.family("a", "gauge", "Help.");
    page.sample("a", {{"b", "x\"\\\ny"}, {"c", ""}}, std::uint64_t{1});
    page.sample("a", {}, 0.5);
    EXPECT_EQ(page.take(), "# HELP a Help.\n# TYPE a gauge\na{b=\"x\\\"\\\\\\ny\",c=\"\"} 1\na 0.5\n");
}

TEST(RequestMetricsTest, bucketsCountWhatIsNotLongerThanTheirBound) {
    gateway::metrics::RequestMetrics metrics;
    for (const auto duration : {5ms, 6ms, 3'600'000ms}) metrics.record("eval", 200, duration);
    gateway::metrics::PrometheusText text;
    metrics.write(text);
    const std::string page = text.take(), bucket = "duration_seconds_bucket{endpoint=\"eval\",le=";
    for (const std::string& line :
         {bucket + "\"0.001\"} 0\n", bucket + "\"0.005\"} 1\n", bucket + "\"0.025\"} 2\n",
          bucket + "\"300\"} 2\n", bucket + "\"+Inf\"} 3\n"}) {
        EXPECT_NE(page.find(line), std::string::npos) << line << page;
    }
}

using MetricsPageTest = GatewayFixture;

TEST_F(MetricsPageTest, tellsOfRequestsEvaluationsAndSessions) {
    const auto streaming = std::make_shared<messages::RequestCounter>();
    streaming->requestStarted("desk", nullptr).get();
    start({.streaming = streaming});
    post("/connector/v1/Eval", R"({"mcode":"1"})");
    post("/connector/v1/Eval", "no json");
    EXPECT_EQ(ask(connect().head("POST /connector/v1/Eval")).status, 401);
    ask("garbage\r\n\r\n");
    const auto session = messages_.openSession();
    for (const char* text : {"\"Done: success\"", "\"Done: success\"", "\"Done: failure\""}) {
        messages_.publish("/eval/response/completion", connector::common::DataBuffer(text)).get();
    }
    const auto response = get("/metrics");
    EXPECT_EQ(response.header("content-type"), "text/plain;version=0.0.4;charset=utf-8");
    for (const char* line : {"numora_ready 1", "numora_sessions 1", "numora_session_queue_bytes 0",
                             "numora_dropped_messages_total 0",
                             R"(numora_requests_total{type="connector/v1/Eval",outcome="success"} 1)",
                             R"(numora_http_requests_total{endpoint="eval",status="200"} 1)",
                             R"(numora_http_requests_total{endpoint="eval",status="400"} 1)",
                             R"(numora_http_requests_total{endpoint="eval",status="401"} 1)",
                             R"(numora_http_request_duration_seconds_count{endpoint="eval"} 2)",
                             R"(numora_http_requests_total{endpoint="malformed",status="400"} 1)",
                             R"(numora_streaming_evaluations_total{outcome="success"} 2)",
                             R"(numora_streaming_evaluations_total{outcome="error"} 1)",
                             R"(numora_streaming_requests_started_total{client_type="desk"} 1)"}) {
        EXPECT_NE(response.body.find("\n" + std::string(line) + "\n"), std::string::npos) << line;
    }
}

}  // namespace
