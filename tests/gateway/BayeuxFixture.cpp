#include "BayeuxFixture.h"

#include <stdexcept>
#include <utility>

#include "connector/json/JsonSerializer.h"

namespace {

using namespace std::chrono_literals;
using connector::Message;
using Poco::JSON::Object;

struct JsonRequest : Message {
    explicit JsonRequest(Object::Ptr json) : object(std::move(json)) {}
    Object::Ptr object;
};

class FunctionFramework : public connector::ServiceFramework {
public:
    using Function = std::function<Object::Ptr(const Object&)>;
    explicit FunctionFramework(const Function& function) : function_(function) {}

    void registerService(const connector::Address&, std::vector<std::type_index>,
                         std::shared_ptr<connector::ServiceProvider>) override {}
    void unregisterService(const std::shared_ptr<connector::ServiceProvider>&) override {}
    connector::Future<std::unique_ptr<Message>> deliver(
        const connector::Address&, std::unique_ptr<Message> message,
        std::shared_ptr<connector::common::ContextState>) override {
        std::unique_ptr<Message> response =
            std::make_unique<JsonRequest>(function_(*dynamic_cast<JsonRequest&>(*message).object));
        return connector::makeReadyFuture(std::move(response));
    }

private:
    const Function& function_;
};

std::shared_ptr<connector::json::JsonSerializer> makeSerializer() {
    auto serializer = std::make_shared<connector::json::JsonSerializer>();
    serializer->registerType(
        "connector/v1/Eval", typeid(JsonRequest),
        [](const Object::Ptr& object) {
            if (object->has("bad")) throw std::invalid_argument("bad request");
            return std::make_unique<JsonRequest>(object);
        },
        [](const Message& message) { return dynamic_cast<const JsonRequest&>(message).object; });
    return serializer;
}

}  // namespace

BayeuxFixture::BayeuxFixture()
    : dispatcher_(std::make_unique<dispatch::RequestDispatcher>(
          std::make_shared<FunctionFramework>(onRequest), makeSerializer())) {
    serve();
}

BayeuxFixture::~BayeuxFixture() { dispatcher_->stop(); }

void BayeuxFixture::serve(gateway::bayeux::ServerOptions options) {
    options.now = [this] { return now_; };
    options.isToken = [](const std::string& token) { return token == "sesame"; };
    options.sweepInterval = 1h;
    server_ = std::make_unique<gateway::bayeux::BayeuxServer>(context_, messages_, *dispatcher_,
                                                              std::move(options));
}

void BayeuxFixture::turn() {
    context_.restart();
    context_.poll();
}

void BayeuxFixture::pass(std::chrono::milliseconds time) {
    turn();
    now_ += time;
    server_->sweep();
    turn();
}

void BayeuxFixture::turnUntil(const std::function<bool()>& isDone) {
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (!isDone() && std::chrono::steady_clock::now() < deadline) {
        context_.restart();
        context_.run_one_until(deadline);
    }
    EXPECT_TRUE(isDone());
}

std::string BayeuxFixture::withClient(std::string text) const {
    for (auto at = text.find('$'); at != std::string::npos; at = text.find('$')) text.replace(at, 1, client_);
    return text;
}

std::string BayeuxFixture::clientIdIn(const std::string& reply) {
    const std::string before = R"("clientId":")";
    const auto at = reply.find(before);
    return at == std::string::npos ? "" : reply.substr(at + before.size(), 40);
}

std::shared_ptr<BayeuxFixture::Post> BayeuxFixture::post(const std::string& body) {
    auto post = std::make_shared<Post>();
    post->pending = server_->post(withClient(body), peer_, [post = post.get()](HttpAnswer answer) {
        EXPECT_FALSE(post->answer.has_value()) << "answered twice";
        post->answer = std::move(answer);
    });
    turn();
    return post;
}

std::string BayeuxFixture::ask(const std::string& body) { return post(body)->body(); }

std::string BayeuxFixture::WebSocket::received() {
    std::string all;
    for (const auto& frame : std::exchange(frames, {})) all += (all.empty() ? "" : "\n") + frame;
    return all;
}

std::shared_ptr<BayeuxFixture::WebSocket> BayeuxFixture::openSocket() {
    auto socket = std::make_shared<WebSocket>(peer_);
    server_->open(socket);
    return socket;
}

void BayeuxFixture::send(WebSocket& socket, const std::string& text) {
    server_->receive(socket.shared_from_this(), withClient(text));
    socket.endReadTurn();
    turn();
}

std::string BayeuxFixture::askSocket(WebSocket& socket, const std::string& text) {
    send(socket, text);
    return socket.received();
}

namespace {

std::string handshakeText(const std::string& ext) {
    return R"([{"channel":"/meta/handshake","version":"1.0","supportedConnectionTypes":["long-polling"],)"
           R"("ext":)" +
           ext + "}]";
}

}  // namespace

void BayeuxFixture::handshake(const std::string& ext) { client_ = clientIdIn(ask(handshakeText(ext))); }

void BayeuxFixture::handshakeOn(WebSocket& socket, const std::string& ext) {
    client_ = clientIdIn(askSocket(socket, handshakeText(ext)));
}

void BayeuxFixture::subscribe(const std::string& pattern) {
    ask(R"([{"channel":"/meta/subscribe","clientId":"$","subscription":")" + pattern + R"("}])");
}

std::shared_ptr<BayeuxFixture::Post> BayeuxFixture::connect(const std::string& members) {
    return post(R"([{"channel":"/meta/connect","clientId":"$","connectionType":"long-polling")" + members +
                "}]");
}

void BayeuxFixture::publish(const std::string& channel, const std::string& data) {
    messages_.publish(channel, connector::common::DataBuffer(data));
}
