#include "registry/Paths.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

using namespace testing_support;

namespace {

// A loopback listener on a port the kernel picked; closed on destruction.
struct Listener {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int port = 0;
    Listener() {
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof addr;
        ::bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
        ::listen(fd, 1);
        ::getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &len);
        port = ntohs(addr.sin_port);
    }
    ~Listener() { ::close(fd); }
};

std::string httpGet(int port, const std::string &path) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(uint16_t(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string response;
    if (::connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0) {
        const std::string request = "GET " + path + " HTTP/1.0\r\nHost: x\r\n\r\n";
        (void)!::write(fd, request.data(), request.size());
        char buf[4096];
        ssize_t n;
        while ((n = ::read(fd, buf, sizeof buf)) > 0)
            response.append(buf, size_t(n));
    }
    ::close(fd);
    return response;
}

int waitExit(pid_t pid) {
    int status = -1;
    const bool exited = waitFor([&] { return ::waitpid(pid, &status, WNOHANG) == pid; });
    return exited && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(Standin, HelpSaysItIsAStandInNotADatabaseServer) {
    const std::string command = standinPath().toStdString() + " --help";
    FILE *pipe = ::popen(command.c_str(), "re");
    ASSERT_NE(pipe, nullptr);
    std::string text;
    char buf[1024];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0)
        text.append(buf, n);
    EXPECT_EQ(::pclose(pipe), 0);
    EXPECT_NE(text.find("A stand-in for the Corvanta database server, for trying and testing"),
              std::string::npos);
    EXPECT_NE(text.find("It is not a database server"), std::string::npos);
    EXPECT_NE(text.find("CORVANTA_STANDIN_LOCK_DELAY_MS"), std::string::npos);
}

TEST(Standin, ServesTheConsolePageAndCleansUpOnSignal15) {
    TempDir tmp;
    makeInstance(tmp / "inst", "[database]\nlockfile = run/s.lck\nerrorlogfile = s.log\n");
    makeDir(tmp / "inst/run");
    int port;
    {
        Listener probe;
        port = probe.port;
    }
    const pid_t pid =
        startStandinDirectly(tmp / "inst", {{"CORVANTA_STANDIN_PORT", std::to_string(port)}});
    ProcessGuard guard(pid);
    ASSERT_TRUE(waitFor([&] { return readFile(tmp / "inst/s.log").contains("serving"); }));
    EXPECT_EQ(readFile(tmp / "inst/run/s.lck"), QByteArray::number(pid) + "\n");

    const std::string page = httpGet(port, "/kelvarine/");
    EXPECT_EQ(page.rfind("HTTP/1.0 200 OK\r\n", 0), 0u) << page;
    EXPECT_NE(page.find("<title>Corvanta Kelvarine</title>"), std::string::npos);
    EXPECT_EQ(httpGet(port, "/other").rfind("HTTP/1.0 404", 0), 0u);

    ::kill(pid, SIGTERM);
    EXPECT_EQ(waitExit(pid), 0);
    EXPECT_FALSE(Paths::existsAsNonDirectory(tmp / "inst/run/s.lck"));
    const QByteArray serverLog = readFile(tmp / "inst/s.log");
    EXPECT_TRUE(serverLog.contains("request \"GET /kelvarine/ HTTP/1.0\" 200"));
    EXPECT_TRUE(serverLog.contains("request \"GET /other HTTP/1.0\" 404"));
    EXPECT_TRUE(serverLog.contains("stopped on signal 15"));
}

TEST(Standin, BusyPortIsLoggedAndTheServerCarriesOn) {
    TempDir tmp;
    makeInstance(tmp / "inst");
    Listener occupied;
    const pid_t pid = startStandinDirectly(
        tmp / "inst", {{"CORVANTA_STANDIN_PORT", std::to_string(occupied.port)}});
    ProcessGuard guard(pid);
    ASSERT_TRUE(
        waitFor([&] { return readFile(tmp / "inst/corvanta.log").contains("unavailable"); }));
    EXPECT_EQ(readFile(tmp / "inst/corvanta.lck"), QByteArray::number(pid) + "\n");
    ::kill(pid, SIGTERM);
    EXPECT_EQ(waitExit(pid), 0);
}
