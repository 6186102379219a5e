#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <gmock/gmock.h>

#include "connector/interpreter/ConnectorEventMgrBridge.h"
#include "connector/json/parse.h"
#include "fl/i18n/text.h"
#include "standalone/TaggedEvent.h"
#include "support/FakeHost.h"
#include "support/FakeMessageService.h"

namespace {

using foundation::json::Value;
using standalone::TaggedEvent;

class HostWithConverters : public fake::FakeHost {
public:
    HostWithConverters() { framework_.Start(); }
    cppmicroservices::Framework microservices() override { return framework_; }
    std::vector<cppmicroservices::Bundle> installAndStartBundles(const std::string&) override {
        auto bundles = framework_.GetBundleContext().InstallBundles(NUMORA_CONVERTER_BUNDLE);
        for (auto& bundle : bundles) bundle.Start();
        return bundles;
    }

private:
    cppmicroservices::Framework framework_ = cppmicroservices::FrameworkFactory().NewFramework();
};

// The bridge starts the bundle once in a process, so all of this is one test.
TEST(ConverterBundleTest, convertsEventsWithAnyTag) {
    HostWithConverters host;
    const auto messages = std::make_shared<fake::FakeMessageService>();
    const connector::interpreter::ConnectorEventMgrBridge bridge(messages);
    const auto raise = [&](const std::string& tag, int number) {
        host.events->raise(TaggedEvent(fl::i18n::to_ustring(tag), {{"number", Value(number)}}));
    };

    // A program that has a tag of its own for each of many pieces of work.
    constexpr int tags = 1000;
    for (int i = 0; i < tags; ++i) {
        const std::string tag = "job-" + std::to_string(i);
        messages->subscribeClient("client", "/eventmgr/0/" + tag);
        raise(tag, i);
        messages->unsubscribeClient("client", "/eventmgr/0/" + tag);
    }
    ASSERT_EQ(messages->published().size(), std::size_t{tags});

    // The data of a display that is larger than an event may be.
    const auto json = [](std::string text) { return Value(Value::Json{std::move(text)}); };
    messages->subscribeClient("client", "/eventmgr/0/display");
    const std::string text = "\"" + std::string(5U << 20U, 'x') + '"';
    std::string odd = "\"";
    while (odd.size() < 5U << 20U) odd += "\\u0001\\n\u00e9";
    for (const auto& plain : {std::string("1"), text, odd + '"'}) {
        const Value::Object data{{"a/b", json(text)}, {"text/plain", json(plain)}};
        host.events->raise(TaggedEvent(u"display", {{"data", data}, {"metadata", json(R"({"a/b":1})")}}));
        const std::string shown = messages->published().back();
        const bool isCut = plain != "1";
        EXPECT_TRUE(
            shown.ends_with(std::string(isCut ? R"(\n[...]")" : "1") + R"(},"metadata":{},"note":"a/b)" +
                            (isCut ? ", the end of text/plain" : "") + R"( left out: more than 4 MiB"})"))
            << shown.substr(shown.size() - 200);
        EXPECT_LT(shown.size(), (4U << 20U) + 200);
        EXPECT_NO_THROW(connector::json::parse(shown.substr(shown.find('{'))));
    }

    // A handler, which is called between the bundle's and the bridge's, raises another event in its place.
    const foundation::msg_svc::eventmgr::ScopedConnection between(
        host.events->subscribe<TaggedEvent>([&](const TaggedEvent&) { raise("inner", 2); }, u"outer"));
    messages->subscribeClient("client", "/eventmgr/0/outer");
    messages->subscribeClient("client", "/eventmgr/0/inner");
    raise("outer", 1);
    EXPECT_THAT(messages->published(), testing::Contains(R"(/eventmgr/0/inner {"number":2})"));
    EXPECT_EQ(messages->published().back(), R"(/eventmgr/0/outer {"number":1})");
}

}  // namespace
