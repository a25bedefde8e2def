// kx_sim refuses what it cannot honour, with a message and a non-zero
// exit, and names the address and port it cannot listen on.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <string>

namespace {

/* kx_sim beside the test directory of the build tree. */
std::string kx_sim() {
    char self[PATH_MAX] = {};
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return {};
    std::string dir(self, static_cast<size_t>(n));
    dir = dir.substr(0, dir.rfind('/'));
    const std::string path = dir.substr(0, dir.rfind('/')) + "/kx_sim";
    return ::access(path.c_str(), X_OK) == 0 ? path : std::string();
}

/* Runs kx_sim with `args`; its standard error and exit status. Every case
 * here ends at once (refused options, or a port it cannot take). */
std::pair<std::string, int> run(const std::string& args) {
    const std::string cmd = kx_sim() + " " + args + " 2>&1 >/dev/null </dev/null";
    FILE* p = ::popen(cmd.c_str(), "r");
    std::string out;
    char buf[512];
    while (p && std::fgets(buf, sizeof buf, p)) out += buf;
    const int status = p ? ::pclose(p) : -1;
    return {out, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

}  // namespace

TEST(KxSimCommandLine, RefusesWhatItCannotHonour) {
    if (kx_sim().empty()) GTEST_SKIP() << "kx_sim is not built";
    const struct {
        const char* args;
        const char* says;
    } cases[] = {
        {"--push 1,2", "--push takes three forces FX,FY,FZ or six values"},
        {"--push 1,2,3,4", "--push takes three forces"},
        {"--arms 2 --model AVEN,BRIV,CALD", "--model gives 3 values for 2 arms"},
        {"--edition P,QS", "--edition gives 2 values for 1 arm"},
        {"--arms 2 --port 0,0,0", "--port gives 3 values for 2 arms"},
        {"--model ZETA", "unknown model 'ZETA'"},
        {"--edition QX", "--edition takes P, QA or QS"},
        {"--model FIRU --edition QS", "arm 1: there is no FIRU-QS (FIRU comes in edition P only)"},
        {"--arms 3 --model AVEN,ESKA --edition QS", "arm 2: there is no ESKA-QS (ESKA comes in edition P only)"},
        {"--arms 0", "--arms takes 1 to 5"},
        {"--port 70000", "--port takes 0 to 65535"},
        {"--time-scale 0", "--time-scale takes one positive number"},
        {"--time-scale inf", "--time-scale takes one positive number"},
        {"--time-scale 2x", "--time-scale takes one positive number"},
        {"--udp-ip 192.168.1.5", "is not a loopback address"},
        {"--udp-ip 127.1", "--udp-ip takes a dotted-quad IPv4 address"},
        {"--udp-port 0", "--udp-port takes 1 to 65535"},
        {"--grip-object 1001", "--grip-object takes 0 to 1000"},
        {"--surface 1,2", "--surface takes one height"},
        {"--bogus", "unknown option --bogus"},
        {"--arms", "missing value for --arms"},
    };
    for (const auto& c : cases) {
        const auto [err, code] = run(c.args);
        EXPECT_EQ(2, code) << c.args;
        EXPECT_NE(std::string::npos, err.find(c.says)) << c.args << " said: " << err;
    }
}

TEST(KxSimCommandLine, NamesTheAddressAndPortItCannotListenOn) {
    if (kx_sim().empty()) GTEST_SKIP() << "kx_sim is not built";
    // Arm 2 lives at 127.0.0.2: take its port there first.
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    ASSERT_EQ(0, ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a));
    ASSERT_EQ(0, ::listen(fd, 1));
    socklen_t len = sizeof a;
    ASSERT_EQ(0, ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len));
    const std::string port = std::to_string(ntohs(a.sin_port));
    const auto [err, code] = run("--arms 2 --no-push --port 0," + port);
    EXPECT_EQ(1, code);
    EXPECT_NE(std::string::npos, err.find("arm 2 cannot listen on 127.0.0.2:" + port + ": Address already in use"))
        << err;
    ::close(fd);
}
