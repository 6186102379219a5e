// The least that a kernel for notebooks can cost: answers every request on its shell socket with a reply,
// framed by the statuses busy and idle and an input, all of them signed, after it was handed to another
// thread and back.
//
//     kernel_skeleton KEY
//
// The ports of shell and iopub are printed. Ends with its standard input.

#include <condition_variable>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <unistd.h>
#include <zmq.hpp>

namespace {

using Frames = std::vector<std::string>;

/// A place for one item on its way to another thread.
class Slot {
public:
    void put(bool item) {
        {
            const std::lock_guard lock(mutex_);
            item_ = item;
        }
        changed_.notify_one();
    }
    bool take() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return item_.has_value(); });
        const bool item = *item_;
        item_.reset();
        return item;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<bool> item_;
};

std::string signatureOf(const std::string& key, const std::vector<std::string_view>& parts) {
    std::string all;
    for (const auto part : parts) all += part;
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(all.data()), all.size(), digest, &size);
    std::string text;
    for (unsigned i = 0; i < size; ++i) {
        text += "0123456789abcdef"[digest[i] >> 4];
        text += "0123456789abcdef"[digest[i] & 15];
    }
    return text;
}

class Skeleton {
public:
    explicit Skeleton(std::string key) : key_(std::move(key)) {
        shell_.bind("tcp://127.0.0.1:*");
        iopub_.bind("tcp://127.0.0.1:*");
        std::cout << portOf(shell_) << ' ' << portOf(iopub_) << std::endl;
    }

    void run() {
        std::thread interpreter([this] {
            while (there_.take()) back_.put(true);
        });
        zmq::pollitem_t items[] = {{shell_.handle(), 0, ZMQ_POLLIN, 0},
                                   {nullptr, STDIN_FILENO, ZMQ_POLLIN, 0}};
        while (zmq::poll(items, 2, std::chrono::milliseconds(-1)) > 0 && items[1].revents == 0) answer();
        there_.put(false);
        interpreter.join();
    }

private:
    static std::string portOf(zmq::socket_t& socket) {
        const auto endpoint = socket.get(zmq::sockopt::last_endpoint);
        return endpoint.substr(endpoint.rfind(':') + 1);
    }

    void answer() {
        Frames request;  // identity, delimiter, signature, header, parent, metadata, content
        do {
            zmq::message_t frame;
            (void)shell_.recv(frame);
            request.push_back(frame.to_string());
            if (!frame.more()) break;
        } while (true);
        if (request.size() < 7 ||
            request[2] != signatureOf(key_, {request[3], request[4], request[5], request[6]}))
            return;
        send(iopub_, "status", "status", request[3], R"({"execution_state":"busy"})");
        send(iopub_, "execute_input", "execute_input", request[3], R"({"code":"pass","execution_count":1})");
        there_.put(true);
        back_.take();
        send(shell_, request[0], "execute_reply", request[3],
             R"({"status":"ok","execution_count":1,"user_expressions":{},"payload":[]})");
        send(iopub_, "status", "status", request[3], R"({"execution_state":"idle"})");
    }

    void send(zmq::socket_t& socket, const std::string& first, const char* kind, const std::string& parent,
              const std::string& content) {
        const std::string header =
            R"({"msg_id":"skeleton_)" + std::to_string(++count_) +
            R"(","session":"skeleton","username":"kernel","date":"2026-01-01T00:00:00.000000Z",)" +
            R"("msg_type":")" + kind + R"(","version":"5.5"})";
        const Frames frames{first,  "<IDS|MSG>", signatureOf(key_, {header, parent, "{}", content}),
                            header, parent,      "{}",
                            content};
        for (std::size_t i = 0; i < frames.size(); ++i)
            socket.send(zmq::buffer(frames[i]),
                        i + 1 < frames.size() ? zmq::send_flags::sndmore : zmq::send_flags::none);
    }

    const std::string key_;
    zmq::context_t context_;
    zmq::socket_t shell_{context_, zmq::socket_type::router};
    zmq::socket_t iopub_{context_, zmq::socket_type::pub};
    Slot there_;
    Slot back_;
    int count_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: kernel_skeleton KEY\n";
        return 2;
    }
    Skeleton(argv[1]).run();
}
