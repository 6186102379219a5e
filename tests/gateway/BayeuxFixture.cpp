#include "BayeuxFixture.h"

#include "FunctionFramework.h"

using namespace std::chrono_literals;

BayeuxFixture::BayeuxFixture()
    : port_(std::make_unique<gateway::ports::LocalPort>(
          gateway::ports::LocalPort::Parts{
              .framework = std::make_shared<FunctionFramework>([this](const JsonRequest& request) {
                  return connector::makeReadyFuture<FunctionFramework::Response>(
                      std::make_unique<JsonRequest>(onRequest(*request.object)));
              }),
              .serializer = JsonRequest::makeSerializer(),
              .isReady = [] { return true; }},
          dispatch::DispatcherOptions())) {
    serve();
}

BayeuxFixture::~BayeuxFixture() { port_->stop(); }

void BayeuxFixture::serve(gateway::bayeux::ServerOptions options) {
    options.now = [this] { return now_; };
    using enum gateway::bayeux::ServerOptions::TokenCheck;
    options.checkToken = [](const std::string& token) { return token == "sesame" ? Right : Wrong; };
    options.sweepInterval = 1h;
    server_ =
        std::make_unique<gateway::bayeux::BayeuxServer>(context_, messages_, *port_, std::move(options));
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

std::string BayeuxFixture::WebSocket::received() {
    std::string all;
    for (const auto& frame : std::exchange(frames, {})) all += (all.empty() ? "" : "\n") + frame;
    return all;
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

std::vector<int> BayeuxFixture::numbersIn(const std::string& array) {
    const std::string data = R"("data":)";
    std::vector<int> numbers;
    for (auto at = array.find(data); at != std::string::npos; at = array.find(data, at + 1)) {
        numbers.push_back(std::stoi(array.substr(at + data.size())));
    }
    return numbers;
}

std::optional<int> BayeuxFixture::ackIn(const std::string& array) {
    const auto at = array.rfind(R"("ack":)");
    return at == std::string::npos ? std::nullopt : std::optional(std::stoi(array.substr(at + 6)));
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

std::string BayeuxFixture::handshakeText(const std::string& ext) {
    return R"([{"channel":"/meta/handshake","version":"1.0","supportedConnectionTypes":["long-polling"],"ext":)" +
           ext + "}]";
}
