// kx_latency_bench: latency from a realtime datagram leaving kx_sim to the
// JointState reaching a subscriber in another process, and the driver's CPU
// per arm.
//
//   kx_latency_bench --kx-sim build/kx_sim --arms 10 [--seconds 10] [--base-port 29080]
//
// Needs a running roscore (ROS_MASTER_URI). Starts ceil(arms/5) kx_sim
// processes and one kx_driver_node per arm. Each controller pushes to a relay
// in this process, which notes the time, writes a sequence number into the
// first joint angle (the arms stand still) and forwards the datagram to its
// driver; the subscriber here reads the number back from the JointState.
// The figure therefore includes one extra loopback hop (the relay's).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ros/ros.h>
#include <sensor_msgs/JointState.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kSeqModulo = 90000;  // thousandths of a degree: stays within any joint's range

struct Arm {
    int relay_fd = -1;  // the controller pushes here
    int send_fd = -1;   // forwards from the arm's own address, as the controller would
    sockaddr_in driver{};
    pid_t pid = 0;
    std::mutex m;
    std::map<int, std::pair<Clock::time_point, bool>> sent;  // sequence -> relay time, within the window
    int seq = 0;
    std::vector<double> latency_us;
    std::atomic<bool> measuring{false};
    unsigned long forwarded = 0, received = 0;
};

int udp_socket(int port, const char* ip = "127.0.0.1") {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    inet_pton(AF_INET, ip, &a.sin_addr);
    a.sin_port = htons(static_cast<uint16_t>(port));
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) return -1;
    return fd;
}

int bound_port(int fd) {
    sockaddr_in a{};
    socklen_t len = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    return ntohs(a.sin_port);
}

// Replaces the first joint angle of the datagram with `value`; false when it has none.
bool stamp(std::string& d, int value) {
    const std::string key = "\"joint_position\":[";
    const size_t at = d.find(key);
    if (at == std::string::npos) return false;
    const size_t from = at + key.size();
    const size_t to = d.find_first_of(",]", from);
    if (to == std::string::npos) return false;
    d.replace(from, to - from, std::to_string(value));
    return true;
}

pid_t spawn(const std::vector<std::string>& argv, int* out_fd = nullptr) {
    int pipefd[2] = {-1, -1};
    if (out_fd && pipe(pipefd) != 0) return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        if (out_fd) {
            dup2(pipefd[1], STDOUT_FILENO);
            close(pipefd[0]);
        }
        std::vector<char*> args;
        for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    if (out_fd) {
        close(pipefd[1]);
        *out_fd = pipefd[0];
    }
    return pid;
}

double cpu_seconds(pid_t pid) {
    std::ifstream f("/proc/" + std::to_string(pid) + "/stat");
    std::string s((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    const size_t close_paren = s.rfind(')');
    if (close_paren == std::string::npos) return 0;
    std::istringstream in(s.substr(close_paren + 2));
    std::string field;
    unsigned long utime = 0, stime = 0;
    for (int i = 3; i <= 15 && in >> field; ++i) {  // fields 14 and 15: utime, stime
        if (i == 14) utime = std::stoul(field);
        if (i == 15) stime = std::stoul(field);
    }
    return static_cast<double>(utime + stime) / sysconf(_SC_CLK_TCK);
}

double percentile(std::vector<double> v, double p) {
    if (v.empty()) return NAN;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, static_cast<size_t>(p * (v.size() - 1) + 0.5))];
}

}  // namespace

int main(int argc, char** argv) {
    std::string sim = "build/kx_sim";
    int arms = 1, seconds = 10, base_port = 29080;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string a = argv[i], v = argv[i + 1];
        if (a == "--kx-sim") sim = v;
        else if (a == "--arms") arms = std::clamp(std::stoi(v), 1, 50);
        else if (a == "--seconds") seconds = std::max(1, std::stoi(v));
        else if (a == "--base-port") base_port = std::stoi(v);
    }
    ros::init(argc, argv, "kx_latency_bench", ros::init_options::AnonymousName | ros::init_options::NoSigintHandler);
    if (!ros::master::check()) {
        std::fprintf(stderr, "kx_latency_bench: no ROS master at %s; start roscore first\n",
                     ros::master::getURI().c_str());
        return 1;
    }
    char self[4096] = {};
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    const std::string dir = n > 0 ? std::string(self, static_cast<size_t>(n)).substr(0, std::string(self).rfind('/')) : ".";
    const std::string driver = dir + "/kx_driver_node";

    // Simulators: five arms each, arm K of simulator S at 127.0.0.K:base_port+S.
    std::vector<pid_t> sims;
    for (int s = 0; s * 5 < arms; ++s) {
        const int count = std::min(5, arms - s * 5);
        int out = -1;
        sims.push_back(spawn({sim, "--arms", std::to_string(count), "--model", s % 2 ? "BRIV,AVEN" : "AVEN,BRIV",
                              "--port", std::to_string(base_port + s)},
                             &out));
        FILE* f = fdopen(out, "r");
        char line[256];
        for (int k = 0; k < count && f && std::fgets(line, sizeof line, f);) k += std::strstr(line, "listening") != nullptr;
    }
    ros::NodeHandle nh;
    std::vector<std::unique_ptr<Arm>> fleet;
    std::vector<ros::Subscriber> subs;
    for (int k = 0; k < arms; ++k) {
        auto arm = std::make_unique<Arm>();
        const std::string ip = "127.0.0." + std::to_string(k % 5 + 1);
        arm->relay_fd = udp_socket(0);
        arm->send_fd = udp_socket(0, ip.c_str());
        const int listen_fd = udp_socket(0);  // a free port for the driver, released for it to bind
        const int driver_port = bound_port(listen_fd);
        close(listen_fd);
        arm->driver.sin_family = AF_INET;
        arm->driver.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        arm->driver.sin_port = htons(static_cast<uint16_t>(driver_port));
        const std::string ns = "bench_arm" + std::to_string(k + 1);
        arm->pid = spawn({driver, "__ns:=" + ns, "__name:=kx_driver", "_ip:=" + ip,
                          "_port:=" + std::to_string(base_port + k / 5), "_udp_port:=" + std::to_string(driver_port),
                          "_push_port:=" + std::to_string(bound_port(arm->relay_fd)), "_tf_prefix:=" + ns + "_"});
        Arm* a = arm.get();
        subs.push_back(nh.subscribe<sensor_msgs::JointState>(
            "/" + ns + "/joint_states", 1000,
            [a](const sensor_msgs::JointState::ConstPtr& m) {
                const auto now = Clock::now();
                if (m->position.empty()) return;
                const int seq = static_cast<int>(std::lround(m->position[0] * 180.0 / M_PI * 1000.0));
                std::lock_guard lock(a->m);
                const auto it = a->sent.find(seq);
                if (it == a->sent.end()) return;
                if (it->second.second) {
                    a->latency_us.push_back(std::chrono::duration<double, std::micro>(now - it->second.first).count());
                    ++a->received;
                }
                a->sent.erase(a->sent.begin(), std::next(it));
            },
            ros::VoidConstPtr(), ros::TransportHints().tcpNoDelay()));
        fleet.push_back(std::move(arm));
    }

    std::atomic<bool> stop{false};
    std::thread relay([&] {
        std::vector<pollfd> fds;
        for (auto& a : fleet) fds.push_back({a->relay_fd, POLLIN, 0});
        char buf[2048];
        while (!stop) {
            if (poll(fds.data(), fds.size(), 100) <= 0) continue;
            for (size_t i = 0; i < fds.size(); ++i) {
                if (!(fds[i].revents & POLLIN)) continue;
                const ssize_t got = recv(fds[i].fd, buf, sizeof buf, MSG_DONTWAIT);
                const auto t = Clock::now();
                if (got <= 0) continue;
                Arm& a = *fleet[i];
                std::string d(buf, static_cast<size_t>(got));
                int seq;
                {
                    std::lock_guard lock(a.m);
                    seq = a.seq = (a.seq + 1) % kSeqModulo;
                    if (a.sent.size() > 10000) a.sent.clear();
                    a.sent[seq] = {t, a.measuring.load()};
                    if (a.measuring) ++a.forwarded;
                }
                if (stamp(d, seq))
                    sendto(a.send_fd, d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&a.driver), sizeof a.driver);
            }
        }
    });
    ros::AsyncSpinner spinner(2);
    spinner.start();

    // Warm up until every driver publishes, then measure.
    const auto give_up = Clock::now() + std::chrono::seconds(60);
    auto publishing = [&] {
        for (auto& a : fleet) {
            std::lock_guard lock(a->m);
            if (a->sent.empty() || a->seq < 200) return false;
        }
        return true;
    };
    while (!publishing() && Clock::now() < give_up) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::vector<double> cpu0;
    for (auto& a : fleet) cpu0.push_back(cpu_seconds(a->pid));
    const auto t0 = Clock::now();
    for (auto& a : fleet) a->measuring = true;
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    for (auto& a : fleet) a->measuring = false;
    const double wall = std::chrono::duration<double>(Clock::now() - t0).count();
    double cpu = 0;
    for (size_t i = 0; i < fleet.size(); ++i) cpu += cpu_seconds(fleet[i]->pid) - cpu0[i];
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // the last ones on their way
    std::vector<double> all;
    unsigned long forwarded = 0, received = 0;
    for (size_t i = 0; i < fleet.size(); ++i) {
        std::lock_guard lock(fleet[i]->m);
        all.insert(all.end(), fleet[i]->latency_us.begin(), fleet[i]->latency_us.end());
        forwarded += fleet[i]->forwarded;
        received += fleet[i]->received;
    }
    std::printf("arms %d  %.0f s  datagrams %lu  joint_states %lu (%.1f %%)  latency p50 %.0f us  p99 %.0f us  max %.0f us"
                "  driver CPU per arm %.1f %% of a core\n",
                arms, wall, forwarded, received, forwarded ? 100.0 * received / forwarded : 0.0, percentile(all, 0.5),
                percentile(all, 0.99), all.empty() ? NAN : *std::max_element(all.begin(), all.end()),
                100.0 * cpu / wall / arms);

    stop = true;
    relay.join();
    spinner.stop();
    for (auto& a : fleet) kill(a->pid, SIGINT);
    for (auto& a : fleet) waitpid(a->pid, nullptr, 0);
    for (pid_t s : sims) kill(s, SIGTERM);
    for (pid_t s : sims) waitpid(s, nullptr, 0);
    return all.empty() ? 1 : 0;
}
