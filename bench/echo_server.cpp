// The least that a request over TCP can cost: takes REQUEST bytes, answers with REPLY bytes, again and again.
//
//     echo_server direct|handoff REQUEST REPLY
//
// With `handoff` each request is handed to another thread and back before it is answered. The port, one of
// the loopback that is free, is printed. Ends when the only connection that it takes ends, or none has come
// in a minute.

#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// A place for one item on its way to the other thread.
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

/// Another thread that gives back whatever it gets.
class Worker {
public:
    ~Worker() {
        there_.put(false);
        thread_.join();
    }
    void visit() {
        there_.put(true);
        back_.take();
    }

private:
    void work() {
        while (there_.take()) back_.put(true);
    }

    Slot there_;
    Slot back_;
    std::thread thread_{&Worker::work, this};
};

int listenOnLoopback() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval minute{.tv_sec = 60, .tv_usec = 0};
    setsockopt(listener, SOL_SOCKET, SO_RCVTIMEO, &minute, sizeof minute);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, general, size) != 0 || listen(listener, 1) != 0) return -1;
    getsockname(listener, general, &size);
    std::cout << ntohs(address.sin_port) << std::endl;
    return listener;
}

bool readAll(int peer, std::vector<char>& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const auto count = read(peer, bytes.data() + done, bytes.size() - done);
        if (count <= 0) return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

bool writeAll(int peer, const std::vector<char>& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const auto count = send(peer, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (count <= 0) return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: echo_server direct|handoff REQUEST REPLY\n";
        return 2;
    }
    std::optional<Worker> worker;
    if (std::string_view(argv[1]) == "handoff") worker.emplace();
    std::vector<char> request(std::strtoul(argv[2], nullptr, 10));
    const std::vector<char> reply(std::strtoul(argv[3], nullptr, 10), 'x');

    const int listener = listenOnLoopback();
    const int peer = accept(listener, nullptr, nullptr);
    if (peer < 0) return 1;
    const int on = 1;
    setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    while (readAll(peer, request)) {
        if (worker) worker->visit();
        if (!writeAll(peer, reply)) break;
    }
    close(peer);
    close(listener);
}
