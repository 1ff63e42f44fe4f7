#pragma once

#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zettly::test {

// A small HTTP/1.1 server on a free loopback port that answers every request
// the same way, for what a real server does not do: an endless answer, one
// that trickles, a Date far from this computer's clock. Pointed at by
// http_proxy it stands for a proxy, and tells whether anything reached it.
class FakeHttpServer {
public:
    enum class Answer {
        fixed,    // `status` and `body`, then the connection closes
        endless,  // a 200 whose body never ends
        trickle,  // a 200 whose body comes one byte every `trickleEvery`
    };
    struct Options {
        Answer answer = Answer::fixed;
        int status = 200;
        std::string body = "{}";
        // A Date header this far from this computer's clock; none without.
        std::optional<std::chrono::seconds> dateOffset = std::nullopt;
        std::chrono::milliseconds trickleEvery{1000};
    };

    explicit FakeHttpServer(Options options) : options_(std::move(options)) {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (listener_ < 0 || ::pipe2(wake_, O_CLOEXEC) != 0 ||
            ::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::listen(listener_, 16) != 0 ||
            ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            return;
        port_ = ntohs(address.sin_port);
        acceptor_ = std::thread([this] { acceptLoop(); });
    }
    ~FakeHttpServer() { stop(); }
    FakeHttpServer(const FakeHttpServer&) = delete;
    FakeHttpServer& operator=(const FakeHttpServer&) = delete;

    // 0 when the server could not start.
    int port() const { return port_; }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

    // Ends the answers in progress and counts the connections still waiting
    // to be accepted, so that connections() is final afterwards.
    void stop() {
        if (stopped_.exchange(true))
            return;
        if (wake_[1] >= 0 && ::write(wake_[1], "x", 1) < 0) {
            ::close(wake_[1]);  // poll() then sees the pipe hang up instead
            wake_[1] = -1;
        }
        if (acceptor_.joinable())
            acceptor_.join();
        for (auto& handler : handlers_)
            handler.join();
        if (listener_ >= 0) {
            ::fcntl(listener_, F_SETFL, O_NONBLOCK);
            for (int fd; (fd = ::accept(listener_, nullptr, nullptr)) >= 0; ::close(fd))
                ++connections_;
            ::close(listener_);
        }
        for (int fd : wake_)
            if (fd >= 0)
                ::close(fd);
    }

    int connections() const { return connections_; }
    // The first line of each request, e.g. "GET /db HTTP/1.1".
    std::vector<std::string> requestLines() const {
        std::lock_guard lock(mutex_);
        return requestLines_;
    }

private:
    // Waits for `events` on the socket, or `timeoutMs` when not negative.
    // False once stop() was called or the socket failed.
    bool waitFor(int fd, short events, int timeoutMs) const {
        pollfd fds[] = {{fd, events, 0}, {wake_[0], POLLIN, 0}};
        if (::poll(fds, 2, timeoutMs) < 0 || fds[1].revents != 0)
            return false;
        return (fds[0].revents & events) != 0 || (fds[0].revents & (POLLERR | POLLHUP)) == 0;
    }

    void acceptLoop() {
        while (waitFor(listener_, POLLIN, -1)) {
            const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0)
                continue;
            ++connections_;
            handlers_.emplace_back([this, fd] {
                serve(fd);
                ::close(fd);
            });
        }
    }

    void serve(int fd) {
        std::string head;
        char buffer[4096];
        while (head.find("\r\n\r\n") == std::string::npos) {
            if (!waitFor(fd, POLLIN, -1))
                return;
            const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
            if (got <= 0)
                return;
            head.append(buffer, static_cast<std::size_t>(got));
        }
        {
            std::lock_guard lock(mutex_);
            requestLines_.push_back(head.substr(0, head.find("\r\n")));
        }
        std::string response = "HTTP/1.1 " + std::to_string(options_.status) +
                               " Fake\r\nContent-Type: application/json\r\nConnection: close\r\n";
        if (options_.dateOffset)
            response += "Date: " + httpDate(*options_.dateOffset) + "\r\n";
        if (options_.answer == Answer::fixed) {
            response += "Content-Length: " + std::to_string(options_.body.size()) + "\r\n\r\n";
            sendAll(fd, response + options_.body);
            return;
        }
        if (!sendAll(fd, response + "\r\n"))
            return;
        if (options_.answer == Answer::endless) {
            const std::string chunk(64 * 1024, ' ');
            while (sendAll(fd, chunk)) {
            }
            return;
        }
        const int every = static_cast<int>(options_.trickleEvery.count());
        while (sendAll(fd, " ") && waitFor(fd, 0, every)) {
        }
    }

    // False when the client went away or stop() was called.
    bool sendAll(int fd, const std::string& data) const {
        for (std::size_t sent = 0; sent < data.size();) {
            if (!waitFor(fd, POLLOUT, -1))
                return false;
            const ssize_t wrote = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
            if (wrote <= 0)
                return false;
            sent += static_cast<std::size_t>(wrote);
        }
        return true;
    }

    static std::string httpDate(std::chrono::seconds offset) {
        const std::time_t when = std::time(nullptr) + offset.count();
        std::tm parts{};
        ::gmtime_r(&when, &parts);
        char text[64];
        std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts);
        return text;
    }

    Options options_;
    int listener_ = -1;
    int wake_[2] = {-1, -1};
    int port_ = 0;
    std::atomic<bool> stopped_{false};
    std::atomic<int> connections_{0};
    std::thread acceptor_;
    std::vector<std::thread> handlers_;  // only the acceptor adds, until stop() joins it
    mutable std::mutex mutex_;
    std::vector<std::string> requestLines_;
};

}  // namespace zettly::test
