#pragma once

#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/fakes/TempDir.h"

namespace zettly::test {

// A pouchdb-server holding its databases in memory on a free loopback port,
// with one admin (without one it lets anybody in and refuses every name and
// password); its config and log stay in a temporary folder. stop() kills it
// the hard way, as a crash would; start() again brings it back on the same
// port, empty but with the same admin.
class PouchServer {
public:
    static constexpr const char* user = "admin";
    static constexpr const char* password = "test-password";

    struct Response {
        long status = 0;  // 0: no answer
        std::string body;
    };

    explicit PouchServer(std::string executable) : executable_(std::move(executable)) {}
    ~PouchServer() { stop(); }
    PouchServer(const PouchServer&) = delete;
    PouchServer& operator=(const PouchServer&) = delete;

    // False when it did not come up (output() tells why).
    bool start() {
        stop();
        for (int attempt = 0; attempt < 5; ++attempt) {
            // Another test's server may take the port between the probe and
            // the server's own bind; a first start then tries another one.
            if (port_ == 0 || (attempt > 0 && !adminCreated_))
                port_ = freePort();
            if (port_ != 0 && launch() && waitUntilAnswering())
                return adminCreated_ || createAdmin();
            stop();
        }
        return false;
    }

    void stop() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
    }

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

    // A request as the admin; `path` starts with "/".
    Response request(const std::string& method, const std::string& path,
                     const std::string& jsonBody = {}, bool authenticated = true) const {
        Response response;
        CURL* curl = curl_easy_init();
        if (!curl)
            return response;
        const std::string address = url() + path;
        curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
        curl_easy_setopt(curl, CURLOPT_URL, address.c_str());
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_TIMEOUT, 20L);
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        if (authenticated) {
            curl_easy_setopt(curl, CURLOPT_USERNAME, user);
            curl_easy_setopt(curl, CURLOPT_PASSWORD, password);
        }
        if (!jsonBody.empty())
            curl_easy_setopt(curl, CURLOPT_POSTFIELDS, jsonBody.c_str());
        curl_easy_setopt(
            curl, CURLOPT_WRITEFUNCTION,
            +[](char* data, std::size_t size, std::size_t n, void* body) {
                static_cast<std::string*>(body)->append(data, size * n);
                return size * n;
            });
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response.body);
        if (curl_easy_perform(curl) == CURLE_OK)
            curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
        curl_slist_free_all(headers);
        curl_easy_cleanup(curl);
        return response;
    }

    // What the server printed: a line per request ("GET /zettly 200 ..."),
    // and why it stopped when it did.
    std::string output() const {
        std::ifstream in(folder_ / "server.log");
        return {std::istreambuf_iterator<char>(in), {}};
    }

    // The requests it logged, as "METHOD /path" (query left out).
    std::vector<std::string> requests() const {
        std::vector<std::string> lines;
        std::istringstream in(output());
        for (std::string line; std::getline(in, line);) {
            for (const std::string method : {"GET ", "PUT ", "POST ", "DELETE ", "HEAD "}) {
                if (auto at = line.find("] " + method); at != std::string::npos) {
                    auto end = line.find_first_of(" ?", at + 2 + method.size());
                    lines.push_back(line.substr(at + 2, end - at - 2));
                }
            }
        }
        return lines;
    }

    // The server logs a request after answering it: this waits until every
    // request answered so far is in requests().
    void settle() const {
        request("GET", "/", {}, false);
        for (int i = 0; i < 250 && (requests().empty() || requests().back() != "GET /"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }

private:
    static int freePort() {
        int probe = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        int port = 0;
        if (probe >= 0 && ::bind(probe, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
            ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) == 0)
            port = ntohs(address.sin_port);
        ::close(probe);
        return port;
    }

    bool launch() {
        const std::string folder = folder_.path().string();
        const std::string log = folder + "/server.log";
        std::vector<std::string> words{executable_,           "--in-memory", "--port",
                                       std::to_string(port_), "--host",      "127.0.0.1",
                                       "--no-color"};
        std::vector<char*> argv;
        for (auto& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        pid_ = ::fork();
        if (pid_ == 0) {
            // Its config.json and log.txt go to the temporary folder.
            int fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
            if (::chdir(folder.c_str()) == 0 && fd >= 0 && ::dup2(fd, STDOUT_FILENO) >= 0 &&
                ::dup2(fd, STDERR_FILENO) >= 0)
                ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        return pid_ > 0;
    }

    bool waitUntilAnswering() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < deadline) {
            if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;  // it gave up (the port was taken, node is missing)
                return false;
            }
            if (request("GET", "/", {}, false).status == 200)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    bool createAdmin() {
        adminCreated_ = request("PUT", "/_config/admins/" + std::string(user),
                                "\"" + std::string(password) + "\"", false)
                            .status == 200;
        return adminCreated_;
    }

    std::string executable_;
    TempDir folder_;
    int port_ = 0;
    pid_t pid_ = -1;
    bool adminCreated_ = false;
};

}  // namespace zettly::test
