// Sockets and threads of the simulator: one I/O thread per arm serves its
// command connection; one clock thread advances every arm's motion in
// simulated time and pushes the realtime datagrams on absolute deadlines.
#include "simulator.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "sim_arm.h"

namespace kxsim {

namespace {
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr size_t kMaxLine = 64 * 1024;      /* longer request lines are dropped */
constexpr int kWriteTimeoutMs = 2000;       /* a peer that reads nothing this long is cut off */
constexpr auto kMinPushPeriod = std::chrono::microseconds(1000);
constexpr auto kMotionTick = std::chrono::microseconds(1000);
constexpr auto kMaxPushLag = std::chrono::milliseconds(100);
constexpr milliseconds kSplitPause{2};

struct Fault {
    enum Kind { kDrop, kDelay, kSplit, kScript, kCut, kReset } kind;
    std::string command;
    int count;
    milliseconds delay{0};
    size_t chunk = 0;
    std::string raw;
};

bool write_all(int fd, const char* p, size_t n) {
    while (n > 0) {
        const ssize_t w = ::send(fd, p, n, MSG_NOSIGNAL);
        if (w > 0) {
            p += w;
            n -= static_cast<size_t>(w);
            continue;
        }
        if (w < 0 && errno == EINTR) continue;
        if (w < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            pollfd pf{fd, POLLOUT, 0};
            if (::poll(&pf, 1, kWriteTimeoutMs) > 0) continue;
        }
        return false;
    }
    return true;
}

void close_fd(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}
}  // namespace

struct ArmServer {
    /* controller state, guarded by mu */
    mutable std::mutex mu;
    ArmState state;

    int number = 0; /* K of arm K, 1..5 */
    int listen_fd = -1, wake_fd = -1, udp_fd = -1;
    int port = 0;
    std::thread io;

    /* the command connection; every write holds wmu */
    std::mutex wmu;
    int conn_fd = -1;

    /* request log */
    mutable std::mutex rmu;
    mutable std::condition_variable rcv;
    std::vector<std::string> received;

    /* fault injection */
    std::mutex fmu;
    std::vector<Fault> faults;
    std::atomic<bool> silent{false};
    std::mutex busy; /* held while one request is answered */
    std::thread flooder;
    std::atomic<bool> flooding{false};

    /* the refusal log: the last line, and how often it came again since */
    std::mutex lmu;
    std::string last_note;
    unsigned long repeats = 0;

    std::atomic<unsigned long long> datagrams{0};
    std::atomic<Clock::rep> last_end_real{0};
    Clock::time_point next_push{}; /* clock thread only */

    /* framing, I/O thread only */
    std::string inbuf;
    size_t scanned = 0;
    bool discarding = false;
};

struct Simulator::Impl {
    Options opt;
    std::string start_error;
    std::vector<std::unique_ptr<ArmServer>> arms;
    Clock::time_point t0 = Clock::now();
    std::atomic<bool> running{false};
    std::thread clock;
    std::mutex cmu;
    std::condition_variable ccv;
    bool kicked = false;
    /* When the clock thread means to look at the arms next; the maximum while
       it is looking, so that a change it may have missed wakes it again. */
    std::atomic<Clock::time_point> planned{Clock::time_point::max()};

    double sim_now() const {
        return std::chrono::duration<double>(Clock::now() - t0).count() * opt.time_scale;
    }

    ArmServer* at(int arm) const {
        return arm >= 0 && static_cast<size_t>(arm) < arms.size() ? arms[static_cast<size_t>(arm)].get() : nullptr;
    }

    /* Something on the arm advances with time (under its lock). */
    static bool needs_ticks(const ArmServer& a) {
        return a.state.moving() || families_busy(a.state);
    }
    /* When the clock must next look at this arm (under its lock). */
    static Clock::time_point due(const ArmServer& a, Clock::time_point now) {
        if (needs_ticks(a)) return now + kMotionTick;
        if (a.state.push.enable) return a.next_push == Clock::time_point{} ? now : a.next_push;
        return Clock::time_point::max();
    }

    void kick() {
        {
            std::lock_guard<std::mutex> l(cmu);
            kicked = true;
        }
        ccv.notify_one();
    }

    /* Waits `d` of real time, cut short by stop(). */
    void pause_for(milliseconds d) {
        std::unique_lock<std::mutex> l(cmu);
        ccv.wait_for(l, d, [this] { return !running.load(); });
    }

    /* ---- writing ---- */

    /* A refusal repeated back to back (a stream into a held error) is
     * written once, and counted when something else comes. */
    void log(ArmServer& a, const std::string& text) {
        std::lock_guard<std::mutex> l(a.lmu);
        if (text == a.last_note) {
            ++a.repeats;
            return;
        }
        const std::string arm = "arm " + std::to_string(a.number) + ": ";
        if (a.repeats > 0) write_log(arm + "the refusal before repeated " + std::to_string(a.repeats) + " more times");
        a.last_note = text;
        a.repeats = 0;
        write_log(arm + text);
    }

    void write_log(const std::string& line) {
        if (opt.log) return opt.log(line);
        std::fprintf(stderr, "kx_sim: %s\n", line.c_str());
    }

    void write(ArmServer& a, const std::string& bytes) {
        std::lock_guard<std::mutex> l(a.wmu);
        if (a.conn_fd >= 0 && !write_all(a.conn_fd, bytes.data(), bytes.size()))
            ::shutdown(a.conn_fd, SHUT_RDWR);  // the I/O thread then drops it
    }

    void write_split(ArmServer& a, const std::string& bytes, size_t chunk) {
        std::lock_guard<std::mutex> l(a.wmu);
        for (size_t off = 0; a.conn_fd >= 0 && off < bytes.size(); off += chunk) {
            if (off) std::this_thread::sleep_for(kSplitPause);
            if (!write_all(a.conn_fd, bytes.data() + off, std::min(chunk, bytes.size() - off))) {
                ::shutdown(a.conn_fd, SHUT_RDWR);
                return;
            }
        }
    }

    void log_notes(ArmServer& a, Events& events) {
        for (Event& e : events)
            if (e.note) log(a, e.text);
        events.erase(std::remove_if(events.begin(), events.end(), [](const Event& e) { return e.note; }), events.end());
    }

    void send_events(ArmServer& a, const Events& events) {
        for (const Event& e : events) {
            if (e.note) {
                log(a, e.text);
                continue;
            }
            // Stamped before the write, so that whoever sees the event sees the stamp.
            if (e.motion_end) a.last_end_real = Clock::now().time_since_epoch().count();
            if (!a.silent && !a.flooding) write(a, e.text + "\r\n");
        }
    }

    bool take_fault(ArmServer& a, const std::string& cmd, Fault& out) {
        std::lock_guard<std::mutex> l(a.fmu);
        for (auto it = a.faults.begin(); it != a.faults.end(); ++it) {
            if (!it->command.empty() && it->command != cmd) continue;
            out = *it;
            if (--it->count <= 0) a.faults.erase(it);
            return true;
        }
        return false;
    }

    void send_reply(ArmServer& a, const std::string& cmd, const std::string& bytes) {
        if (a.silent || a.flooding) return; /* inside an endless line nothing else can be seen */
        Fault f{};
        if (!take_fault(a, cmd, f)) return write(a, bytes);
        switch (f.kind) {
        case Fault::kDrop: return;
        case Fault::kDelay: pause_for(f.delay); return write(a, bytes);
        case Fault::kSplit: return write_split(a, bytes, std::max<size_t>(f.chunk, 1));
        case Fault::kScript: return write(a, f.raw);
        case Fault::kCut:
        case Fault::kReset: return cut(a, bytes.substr(0, std::min(f.chunk, bytes.size())), f.kind == Fault::kReset);
        }
    }

    /* Runs on the I/O thread (from a request), which alone closes descriptors. */
    void cut(ArmServer& a, const std::string& head, bool reset) {
        std::lock_guard<std::mutex> l(a.wmu);
        if (a.conn_fd < 0) return;
        write_all(a.conn_fd, head.data(), head.size());
        if (reset) {
            const linger abort_close{1, 0};
            ::setsockopt(a.conn_fd, SOL_SOCKET, SO_LINGER, &abort_close, sizeof abort_close);
        }
        close_fd(a.conn_fd);
    }

    void flood(ArmServer& a, bool on) {
        if (on) {
            if (a.flooding.exchange(true)) return;
            const std::string chunk(16 * 1024, 'x');
            write(a, chunk);  // the line has begun when this returns
            a.flooder = std::thread([this, &a, chunk] {
                while (a.flooding && running) {
                    std::this_thread::sleep_for(milliseconds{1});
                    write(a, chunk);
                }
            });
            return;
        }
        if (!a.flooding.exchange(false)) return;
        if (a.flooder.joinable()) a.flooder.join();
        write(a, "\r\n");
    }

    /* ---- reading ---- */

    void process_line(ArmServer& a, std::string line) {
        std::lock_guard<std::mutex> busy(a.busy);
        {
            std::lock_guard<std::mutex> l(a.rmu);
            a.received.push_back(line);
        }
        a.rcv.notify_all();
        {
            std::string ack;
            bool consumed;
            Events notes;
            {
                std::lock_guard<std::mutex> l(a.mu);
                consumed = loose_line(a.state, line, sim_now(), ack, notes);
            }
            send_events(a, notes);
            if (!ack.empty()) send_reply(a, "download_project", ack + "\r\n");
            if (consumed) {
                kick();  // a complete upload may start a run
                return;
            }
        }
        cJSON* req = cJSON_ParseWithLength(line.data(), line.size());
        std::string cmd;
        if (cJSON_IsObject(req) && cJSON_IsString(cJSON_GetObjectItemCaseSensitive(req, "command")))
            cmd = cJSON_GetObjectItemCaseSensitive(req, "command")->valuestring;
        if (cmd.empty()) {  // not a command: ignored, as a controller would
            cJSON_Delete(req);
            return;
        }
        Events before, after;
        std::string reply;
        Clock::time_point needed;
        {
            std::lock_guard<std::mutex> l(a.mu);
            const double now = sim_now();
            a.state.advance(now, before);
            reply = handle_request(a.state, req, now, after);
            needed = due(a, Clock::now());
        }
        cJSON_Delete(req);
        send_events(a, before);
        log_notes(a, after);  // logged before the reply, so that whoever sees the refusal can read why
        if (!reply.empty()) send_reply(a, cmd, reply + "\r\n");
        send_events(a, after);
        // Only a request that needs the clock sooner than planned wakes it:
        // queries leave it asleep, which keeps a busy command stream cheap.
        if (needed < planned.load()) kick();
    }

    size_t divert_upload(ArmServer& a, const char* data, size_t n) {
        std::string ack;
        size_t used;
        Events notes;
        {
            std::lock_guard<std::mutex> l(a.mu);
            used = take_upload(a.state, data, n, sim_now(), ack, notes);
        }
        send_events(a, notes);
        if (!ack.empty()) send_reply(a, "download_project", ack + "\r\n");
        if (used) kick();
        return used;
    }

    /* Cuts the stream at "\r\n"; a line longer than kMaxLine is dropped and
     * the stream picks up again after its terminator. */
    void feed(ArmServer& a, const char* data, size_t n) {
        const size_t raw = divert_upload(a, data, n);  // program bytes are not request lines
        data += raw;
        n -= raw;
        a.inbuf.append(data, n);
        size_t start = 0;
        for (;;) {
            const size_t pos = a.inbuf.find("\r\n", a.scanned);
            if (pos == std::string::npos) break;
            if (!a.discarding && pos - start <= kMaxLine) process_line(a, a.inbuf.substr(start, pos - start));
            a.discarding = false;
            start = pos + 2;
            a.scanned = start;
        }
        a.inbuf.erase(0, start);
        a.scanned = a.inbuf.empty() ? 0 : a.inbuf.size() - 1;  // a "\r" may end the chunk
        if (a.inbuf.size() > kMaxLine + 1) {
            a.discarding = true;
            a.inbuf = a.inbuf.back() == '\r' ? "\r" : "";
            a.scanned = 0;
        }
    }

    void reset_framing(ArmServer& a) {
        a.inbuf.clear();
        a.scanned = 0;
        a.discarding = false;
    }

    void accept_connection(ArmServer& a) {
        const int fd = ::accept4(a.listen_fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) return;
        const int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        std::lock_guard<std::mutex> l(a.wmu);
        close_fd(a.conn_fd);  // a new connection replaces the old one
        a.conn_fd = fd;
        reset_framing(a);
    }

    void drop_connection(ArmServer& a, int fd) {
        std::lock_guard<std::mutex> l(a.wmu);
        if (a.conn_fd == fd) close_fd(a.conn_fd);
        reset_framing(a);
    }

    void serve(ArmServer& a) {
        std::vector<char> buf(64 * 1024);
        while (running) {
            int conn;
            {
                std::lock_guard<std::mutex> l(a.wmu);
                conn = a.conn_fd;
            }
            pollfd p[3] = {{a.listen_fd, POLLIN, 0}, {a.wake_fd, POLLIN, 0}, {conn, POLLIN, 0}};
            if (::poll(p, 3, -1) < 0) continue;
            if (!running) break;
            if (p[1].revents) {
                uint64_t v;
                [[maybe_unused]] const ssize_t r = ::read(a.wake_fd, &v, sizeof v);
            }
            if (p[0].revents & POLLIN) {
                accept_connection(a);
                continue;
            }
            if (conn < 0 || !p[2].revents) continue;
            const ssize_t n = ::recv(conn, buf.data(), buf.size(), 0);
            if (n > 0) feed(a, buf.data(), static_cast<size_t>(n));
            else if (n == 0 || (errno != EAGAIN && errno != EINTR)) drop_connection(a, conn);
        }
    }

    /* ---- clock ---- */

    static sockaddr_in push_address(const PushConfig& p) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<uint16_t>(p.port));
        // The simulated controllers live on this machine: push only to loopback.
        if (::inet_pton(AF_INET, p.ip.c_str(), &to.sin_addr) != 1 || (ntohl(to.sin_addr.s_addr) >> 24) != 127)
            to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return to;
    }

    void tick() {
        while (running) {
            planned.store(Clock::time_point::max());
            const Clock::time_point now = Clock::now();
            const double t = sim_now();
            Clock::time_point next = now + std::chrono::hours(1);
            for (auto& ap : arms) {
                ArmServer& a = *ap;
                Events events;
                std::string datagram;
                sockaddr_in to{};
                {
                    std::lock_guard<std::mutex> l(a.mu);
                    a.state.advance(t, events);
                    if (needs_ticks(a)) next = std::min(next, now + kMotionTick);
                    if (a.state.push.enable) {
                        const auto period = std::max<Clock::duration>(
                            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double, std::milli>(
                                a.state.push.cycle / opt.time_scale)),
                            kMinPushPeriod);
                        if (a.next_push == Clock::time_point{}) a.next_push = now;
                        if (now >= a.next_push) {
                            datagram = realtime_datagram(a.state);
                            to = push_address(a.state.push);
                            a.next_push += period;
                            // Short stalls are made up for; after a long one the cadence restarts.
                            if (a.next_push + kMaxPushLag < now) a.next_push = now + period;
                        }
                        next = std::min(next, a.next_push);
                    } else {
                        a.next_push = {};
                    }
                }
                send_events(a, events);
                if (!datagram.empty() &&
                    ::sendto(a.udp_fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&to),
                             sizeof to) == static_cast<ssize_t>(datagram.size()))
                    ++a.datagrams;
            }
            std::unique_lock<std::mutex> l(cmu);
            planned.store(next);
            ccv.wait_until(l, next, [this] { return kicked || !running; });
            kicked = false;
        }
    }

    /* ---- lifecycle ---- */

    /* Arm index k (arm K = k + 1) lives at 127.0.0.K. */
    static in_addr_t arm_address(int k) { return htonl(INADDR_LOOPBACK + static_cast<uint32_t>(k)); }

    bool open_arm(ArmServer& a, int k, int port) {
        a.listen_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        a.udp_fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        a.wake_fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (a.listen_fd < 0 || a.udp_fd < 0 || a.wake_fd < 0) return false;
        const int one = 1;
        ::setsockopt(a.listen_fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = arm_address(k);
        addr.sin_port = htons(static_cast<uint16_t>(port));
        socklen_t len = sizeof addr;
        if (::bind(a.listen_fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
            ::listen(a.listen_fd, 8) != 0 || ::getsockname(a.listen_fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0)
            return false;
        a.port = ntohs(addr.sin_port);
        // Datagrams leave from the arm's own address too.
        addr.sin_port = 0;
        return ::bind(a.udp_fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    }

    void close_arm(ArmServer& a) {
        close_fd(a.listen_fd);
        close_fd(a.udp_fd);
        close_fd(a.wake_fd);
        std::lock_guard<std::mutex> l(a.wmu);
        close_fd(a.conn_fd);
        reset_framing(a);
    }

    void stop() {
        if (!running.exchange(false)) return;
        for (auto& a : arms) {
            const uint64_t one = 1;
            [[maybe_unused]] const ssize_t r = ::write(a->wake_fd, &one, sizeof one);
        }
        kick();
        for (auto& a : arms) {
            a->flooding = false;
            if (a->flooder.joinable()) a->flooder.join();
            if (a->io.joinable()) a->io.join();
        }
        if (clock.joinable()) clock.join();
        for (auto& a : arms) close_arm(*a);
    }
};

/* ------------------------------------------------------------ Simulator -- */

Simulator::Simulator(Options options) : impl_(std::make_unique<Impl>()) {
    impl_->opt = std::move(options);
    if (impl_->opt.arms.empty()) impl_->opt.arms.push_back(ArmOptions{});
    if (impl_->opt.arms.size() > 5) impl_->opt.arms.resize(5);
    if (!(impl_->opt.time_scale > 0)) impl_->opt.time_scale = 1.0;
    for (const ArmOptions& ao : impl_->opt.arms) {
        auto a = std::make_unique<ArmServer>();
        a->number = static_cast<int>(impl_->arms.size()) + 1;
        a->state.set_product("AVEN-P");  // a known model first, whatever the string says
        a->state.set_product(ao.product_version);
        PushConfig& p = a->state.push;
        p.enable = impl_->opt.push_enabled;
        p.cycle = std::max(1, impl_->opt.push_cycle);
        p.port = impl_->opt.udp_port;
        p.ip = impl_->opt.udp_ip;
        impl_->arms.push_back(std::move(a));
    }
}

Simulator::~Simulator() { stop(); }

bool Simulator::start() {
    Impl& im = *impl_;
    if (im.running) return true;
    for (size_t k = 0; k < im.arms.size(); ++k) {
        const int port = im.opt.arms[k].port >= 0 ? im.opt.arms[k].port : std::max(0, im.opt.base_port);
        if (!im.open_arm(*im.arms[k], static_cast<int>(k), port)) {
            const int err = errno;
            im.start_error = "arm " + std::to_string(k + 1) + " cannot listen on " + host(static_cast<int>(k)) + ":" +
                             std::to_string(port) + ": " + std::strerror(err);
            for (auto& a : im.arms) im.close_arm(*a);
            errno = err;
            return false;
        }
    }
    im.start_error.clear();
    im.running = true;
    for (auto& a : im.arms) {
        ArmServer* ap = a.get();
        a->io = std::thread([&im, ap] { im.serve(*ap); });
    }
    im.clock = std::thread([&im] { im.tick(); });
    return true;
}

void Simulator::stop() { impl_->stop(); }

std::string Simulator::start_error() const { return impl_->start_error; }

int Simulator::arm_count() const { return static_cast<int>(impl_->arms.size()); }

std::string Simulator::host(int arm) const {
    if (!impl_->at(arm)) return {};
    char text[INET_ADDRSTRLEN] = "";
    const in_addr a{Impl::arm_address(arm)};
    ::inet_ntop(AF_INET, &a, text, sizeof text);
    return text;
}

int Simulator::port(int arm) const {
    const ArmServer* a = impl_->at(arm);
    return a ? a->port : -1;
}

std::vector<std::string> Simulator::received(int arm) const {
    const ArmServer* a = impl_->at(arm);
    if (!a) return {};
    std::lock_guard<std::mutex> l(a->rmu);
    return a->received;
}

void Simulator::clear_received(int arm) {
    if (ArmServer* a = impl_->at(arm)) {
        std::lock_guard<std::mutex> l(a->rmu);
        a->received.clear();
    }
}

bool Simulator::wait_received(int arm, size_t n, std::chrono::milliseconds timeout) const {
    const ArmServer* a = impl_->at(arm);
    if (!a) return false;
    std::unique_lock<std::mutex> l(a->rmu);
    return a->rcv.wait_for(l, timeout, [&] { return a->received.size() >= n; });
}

unsigned long long Simulator::datagrams_sent(int arm) const {
    const ArmServer* a = impl_->at(arm);
    return a ? a->datagrams.load() : 0;
}

namespace {
void add_fault(ArmServer* a, Fault f) {
    if (!a || f.count <= 0) return;
    std::lock_guard<std::mutex> l(a->fmu);
    a->faults.push_back(std::move(f));
}
}  // namespace

void Simulator::drop_replies(int arm, const std::string& command, int count) {
    add_fault(impl_->at(arm), {Fault::kDrop, command, count, milliseconds{0}, 0, {}});
}

void Simulator::delay_replies(int arm, const std::string& command, std::chrono::milliseconds delay, int count) {
    add_fault(impl_->at(arm), {Fault::kDelay, command, count, delay, 0, {}});
}

void Simulator::split_replies(int arm, const std::string& command, size_t chunk, int count) {
    add_fault(impl_->at(arm), {Fault::kSplit, command, count, milliseconds{0}, chunk, {}});
}

void Simulator::script_reply(int arm, const std::string& command, const std::string& raw, int count) {
    add_fault(impl_->at(arm), {Fault::kScript, command, count, milliseconds{0}, 0, raw});
}

void Simulator::set_silent(int arm, bool silent) {
    if (ArmServer* a = impl_->at(arm)) {
        // A request being answered right now finishes under the old setting.
        std::lock_guard<std::mutex> l(a->busy);
        a->silent = silent;
    }
}

void Simulator::send_raw(int arm, const std::string& bytes) {
    if (ArmServer* a = impl_->at(arm)) impl_->write(*a, bytes);
}

void Simulator::close_connection(int arm) {
    ArmServer* a = impl_->at(arm);
    if (!a) return;
    std::lock_guard<std::mutex> l(a->wmu);
    if (a->conn_fd >= 0) ::shutdown(a->conn_fd, SHUT_RDWR);  // the I/O thread closes it
}

void Simulator::cut_replies(int arm, const std::string& command, size_t keep, bool reset, int count) {
    add_fault(impl_->at(arm), {reset ? Fault::kReset : Fault::kCut, command, count, milliseconds{0}, keep, {}});
}

void Simulator::flood(int arm, bool on) {
    if (ArmServer* a = impl_->at(arm)) impl_->flood(*a, on);
}

std::string Simulator::product_version(int arm) const {
    const ArmServer* a = impl_->at(arm);
    if (!a) return {};
    std::lock_guard<std::mutex> l(a->mu);
    return a->state.product;
}

void Simulator::set_product_version(int arm, const std::string& product_version) {
    if (ArmServer* a = impl_->at(arm)) {
        std::lock_guard<std::mutex> l(a->mu);
        a->state.set_product(product_version);
    }
}

std::vector<double> Simulator::joints(int arm) const {
    const ArmServer* a = impl_->at(arm);
    if (!a) return {};
    std::lock_guard<std::mutex> l(a->mu);
    return std::vector<double>(a->state.q.begin(), a->state.q.begin() + a->state.dof);
}

bool Simulator::moving(int arm) const {
    const ArmServer* a = impl_->at(arm);
    if (!a) return false;
    std::lock_guard<std::mutex> l(a->mu);
    return a->state.moving();
}

std::vector<std::vector<double>> Simulator::preview(int arm, double dt) const {
    const ArmServer* a = impl_->at(arm);
    if (!a || !(dt > 0)) return {};
    std::lock_guard<std::mutex> l(a->mu);
    std::vector<std::vector<double>> out;
    for (const Joints& j : a->state.preview(dt)) out.emplace_back(j.begin(), j.begin() + a->state.dof);
    return out;
}

std::chrono::steady_clock::time_point Simulator::last_motion_end(int arm) const {
    const ArmServer* a = impl_->at(arm);
    if (!a) return {};
    return Clock::time_point(Clock::duration(a->last_end_real.load()));
}

/* ---- force sensing, drag teaching, programs ---- */

namespace {
/* Runs f on the arm's state under its lock; the clock then re-examines it. */
template <class F>
void with_state(Simulator::Impl& im, int arm, F&& f) {
    if (ArmServer* a = im.at(arm)) {
        {
            std::lock_guard<std::mutex> l(a->mu);
            f(a->state);
        }
        im.kick();
    }
}
template <class F>
auto read_state(const Simulator::Impl& im, int arm, F&& f) -> decltype(f(std::declval<const ArmState&>())) {
    const ArmServer* a = im.at(arm);
    if (!a) return {};
    std::lock_guard<std::mutex> l(a->mu);
    return f(a->state);
}
}  // namespace

bool Simulator::drive(int arm, const std::string& hook, const std::vector<double>& args) {
    int done = -1;
    with_state(*impl_, arm, [&](ArmState& s) { done = apply_hook(s, hook, args); });
    return done == 1;
}

void Simulator::set_external_force(int arm, const std::vector<double>& wrench) {
    drive(arm, "external_force", std::vector<double>(wrench.begin(), wrench.begin() + std::min<size_t>(6, wrench.size())));
}

void Simulator::set_surface_height(int arm, double z) { drive(arm, "surface_height", {z}); }

void Simulator::set_hand_motion(int arm, const std::vector<double>& joint_rates) {
    drive(arm, "hand_motion", joint_rates);
}

void Simulator::inject_save_faults(int arm, int after_points, int malformed_at) {
    drive(arm, "save_faults", {static_cast<double>(after_points), static_cast<double>(malformed_at)});
}

void Simulator::fail_program_at(int arm, int line) { drive(arm, "fail_program_at", {static_cast<double>(line)}); }

std::string Simulator::last_upload(int arm) const {
    return read_state(*impl_, arm, [](const ArmState& s) { return s.program.last_upload; });
}

size_t Simulator::recorded_points(int arm) const {
    return read_state(*impl_, arm, [](const ArmState& s) { return s.drag.path.size(); });
}

std::vector<int> Simulator::program_ids(int arm) const {
    return read_state(*impl_, arm, [](const ArmState& s) {
        std::vector<int> ids;
        for (const auto& entry : s.program.library) ids.push_back(entry.first);
        return ids;
    });
}

/* ---- peripherals, driven from outside ---- */

bool Simulator::set_digital_input(int arm, int channel, int value) {
    return drive(arm, "digital_input", {static_cast<double>(channel), static_cast<double>(value)});
}

bool Simulator::set_tool_digital_input(int arm, int channel, int value) {
    return drive(arm, "tool_digital_input", {static_cast<double>(channel), static_cast<double>(value)});
}

void Simulator::set_gripper_object(int arm, int width) { drive(arm, "gripper_object", {static_cast<double>(width)}); }

}  // namespace kxsim
