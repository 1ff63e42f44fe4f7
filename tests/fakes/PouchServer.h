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

// A pouchdb-server holding its databases in memory, on a free loopback
// port, with one admin account (without one it would let anybody in and
// refuse every name and password). Its config and log stay in a temporary
// folder. stop() kills it the hard way, as a crash or a pulled cable would;
// start() again brings it back on the same port, empty but with the same
// admin.
//
//   PouchServer server(ZETTLY_POUCHDB_SERVER);
//   ASSERT_TRUE(server.start()) << server.output();
//   settings.databaseUrl = server.url() + "/zettly";
//   auto docs = server.request("GET", "/zettly/_all_docs?include_docs=true");
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
        if (pid_ <= 0)
            return;
        ::kill(pid_, SIGKILL);
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
    }

    bool running() const { return pid_ > 0; }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

    // A request as the admin; `path` starts with "/".
    Response request(const std::string& method, const std::string& path,
                     const std::string& jsonBody = {}, bool authenticated = true) const {
        Response response;
        CURL* curl = curl_easy_init();
        if (!curl)
            return response;
        const std::string address = url() + path;
        curl_easy_setopt(curl, CURLOPT_URL, address.c_str());
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_TIMEOUT, 20L);
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
        if (authenticated) {
            curl_easy_setopt(curl, CURLOPT_USERNAME, user);
            curl_easy_setopt(curl, CURLOPT_PASSWORD, password);
        }
        curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        if (!jsonBody.empty())
            curl_easy_setopt(curl, CURLOPT_POSTFIELDS, jsonBody.c_str());
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response.body);
        if (curl_easy_perform(curl) == CURLE_OK)
            curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
        curl_slist_free_all(headers);
        curl_easy_cleanup(curl);
        return response;
    }

    // What the server printed: one line per request ("GET /zettly 200 ..."),
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
            for (const char* method : {"GET ", "PUT ", "POST ", "DELETE ", "HEAD "}) {
                auto at = line.find(std::string("] ") + method);
                if (at == std::string::npos)
                    continue;
                std::string request = line.substr(at + 2);
                request = request.substr(0, request.find(' ', std::string(method).size()));
                lines.push_back(request.substr(0, request.find('?')));
            }
        }
        return lines;
    }

    // The server logs a request after answering it: this waits until every
    // request answered so far is in requests().
    void settle() const {
        request("GET", "/", {}, false);
        for (int i = 0; i < 250; ++i) {
            auto logged = requests();
            if (!logged.empty() && logged.back() == "GET /")
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }

private:
    static std::size_t collect(char* data, std::size_t size, std::size_t count, void* target) {
        static_cast<std::string*>(target)->append(data, size * count);
        return size * count;
    }

    static int freePort() {
        int probe = ::socket(AF_INET, SOCK_STREAM, 0);
        if (probe < 0)
            return 0;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        int port = 0;
        if (::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) == 0)
            port = ntohs(address.sin_port);
        ::close(probe);
        return port;
    }

    bool launch() {
        const std::string portText = std::to_string(port_);
        const std::string folder = folder_.path().string();
        const std::string logPath = folder + "/server.log";
        std::vector<std::string> words{executable_, "--in-memory", "--port",    portText,
                                       "--host",    "127.0.0.1",   "--no-color"};
        std::vector<char*> argv;
        for (auto& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        pid_ = ::fork();
        if (pid_ < 0)
            return false;
        if (pid_ == 0) {
            // Its config.json and log.txt go to the temporary folder.
            int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
            if (::chdir(folder.c_str()) != 0 || log < 0)
                ::_exit(127);
            ::dup2(log, STDOUT_FILENO);
            ::dup2(log, STDERR_FILENO);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        return true;
    }

    bool waitUntilAnswering() {
        using namespace std::chrono;
        const auto deadline = steady_clock::now() + seconds(60);
        while (steady_clock::now() < deadline) {
            int status = 0;
            if (::waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;  // it gave up (the port was taken, node is missing)
                return false;
            }
            if (request("GET", "/", {}, false).status == 200)
                return true;
            std::this_thread::sleep_for(milliseconds(50));
        }
        return false;
    }

    bool createAdmin() {
        const auto answer = request("PUT", "/_config/admins/" + std::string(user),
                                    "\"" + std::string(password) + "\"", false);
        adminCreated_ = answer.status == 200;
        return adminCreated_;
    }

    std::string executable_;
    TempDir folder_;
    int port_ = 0;
    pid_t pid_ = -1;
    bool adminCreated_ = false;
};

}  // namespace zettly::test
