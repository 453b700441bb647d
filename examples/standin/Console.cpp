// The stand-in's console: one small page over HTTP on the loopback address.
#include "Console.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <vector>

namespace {

const char kPage[] =
    "<!DOCTYPE html>\n"
    "<html><head><meta charset=\"utf-8\"><title>Corvanta Kelvarine</title></head>\n"
    "<body><h1>Corvanta Kelvarine</h1>\n"
    "<p>This is the stand-in server used for trying and testing the Corvanta\n"
    "Monitor. There is no database behind it.</p></body></html>\n";

constexpr size_t kRequestLimit = 4096;
constexpr size_t kMaxClients = 16;
constexpr int kClientTimeoutMs = 5000;

int64_t nowMs() {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

struct Client {
    int fd;
    int64_t deadline;
    std::string request;
};

void sendAll(int fd, const std::string &data) {
    size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = ::send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;  // the client is gone or not reading; its socket closes next
        }
        done += size_t(n);
    }
}

void respond(Client &client, void (*log)(const std::string &)) {
    const std::string firstLine = client.request.substr(0, client.request.find("\r\n"));
    std::string status = "404 Not Found";
    std::string body = "Not found\n";
    std::string type = "text/plain";
    if (firstLine.rfind("GET /kelvarine/ ", 0) == 0 || firstLine == "GET /kelvarine/") {
        status = "200 OK";
        body = kPage;
        type = "text/html; charset=utf-8";
    } else if (firstLine.rfind("GET ", 0) != 0) {
        status = "405 Method Not Allowed";
        body = "Method not allowed\n";
    }
    log("request \"" + firstLine.substr(0, 200) + "\" " + status.substr(0, 3));
    sendAll(client.fd, "HTTP/1.0 " + status + "\r\nContent-Type: " + type + "\r\nContent-Length: " +
                           std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
}

}  // namespace

int openConsoleListener(long port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    const int one = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(uint16_t(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 || ::listen(fd, 8) != 0) {
        const int err = errno;
        ::close(fd);
        errno = err;
        return -1;
    }
    return fd;
}

int serveConsole(int listener, int wakeRead, const volatile sig_atomic_t &stop,
                 void (*log)(const std::string &)) {
    std::vector<Client> clients;
    while (stop == 0) {
        std::vector<pollfd> fds;
        fds.push_back({wakeRead, POLLIN, 0});
        if (listener >= 0 && clients.size() < kMaxClients) {
            fds.push_back({listener, POLLIN, 0});
        }
        for (const Client &c : clients) {
            fds.push_back({c.fd, POLLIN, 0});
        }
        const int64_t now = nowMs();
        int timeout = -1;  // no client: wait for a connection or a signal
        for (const Client &c : clients) {
            const int remaining = int(std::max<int64_t>(0, c.deadline - now));
            timeout = timeout < 0 ? remaining : std::min(timeout, remaining);
        }
        if (::poll(fds.data(), fds.size(), timeout) < 0 && errno != EINTR) {
            return 1;
        }
        if (stop != 0) {
            break;
        }
        for (const pollfd &p : fds) {
            if (p.fd != listener || !(p.revents & POLLIN)) {
                continue;
            }
            const int fd = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (fd >= 0) {
                clients.push_back({fd, nowMs() + kClientTimeoutMs, {}});
            }
        }
        const int64_t after = nowMs();
        for (auto it = clients.begin(); it != clients.end();) {
            char buf[1024];
            bool done = false;
            const ssize_t n = ::recv(it->fd, buf, sizeof buf, 0);
            if (n > 0) {
                it->request.append(buf, size_t(n));
                if (it->request.find("\r\n\r\n") != std::string::npos ||
                    it->request.find("\n\n") != std::string::npos) {
                    respond(*it, log);
                    done = true;
                } else if (it->request.size() > kRequestLimit) {
                    log("request too large, connection closed");
                    sendAll(it->fd,
                            "HTTP/1.0 431 Request Header Fields Too Large\r\n"
                            "Connection: close\r\nContent-Length: 0\r\n\r\n");
                    done = true;
                }
            } else if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
                done = true;
            }
            if (!done && after >= it->deadline) {
                done = true;
            }
            if (done) {
                ::close(it->fd);
                it = clients.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (const Client &c : clients) {
        ::close(c.fd);
    }
    return 0;
}
