// Several arms from one process: no arm stalls another, a misbehaving
// controller does not take down later connections, and callbacks may command.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <future>
#include <thread>

#include "simulator.h"
#include "socket.h"
#include "test_core_util.h"

using namespace std::chrono_literals;
using kxtest::connect_arm;
using kxtest::LogCapture;

namespace {

using Clock = std::chrono::steady_clock;

std::unique_ptr<kxsim::Simulator> start_sim(int arms, double time_scale = 1.0, int udp_port = 0) {
    kxsim::Options options;
    options.arms.assign(static_cast<size_t>(arms), kxsim::ArmOptions{});
    options.time_scale = time_scale;
    options.push_enabled = udp_port != 0;
    if (udp_port) options.udp_port = udp_port;
    auto sim = std::make_unique<kxsim::Simulator>(options);
    EXPECT_TRUE(sim->start());
    return sim;
}

// True when a UDP socket without address reuse can bind the port (nobody holds it).
bool udp_port_free(int port, bool reuse = false) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    int one = 1;
    if (reuse) {
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &one, sizeof one);
    }
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    bool ok = bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    close(fd);
    return ok;
}

template <class T>
bool ready(std::future<T>& f, std::chrono::milliseconds within = 0ms) {
    return f.wait_for(within) == std::future_status::ready;
}

// Waits for a call that should end; if it hangs, shuts the library down so
// that it ends and the test can report it.
template <class T>
bool ends(std::future<T>& f, std::chrono::milliseconds within) {
    if (ready(f, within)) return true;
    kx_destory();
    f.wait();
    kx_init(KX_DUAL_MODE_E);
    return false;
}

const float kHome[7] = {0, 0, 0, 0, 0, 0, 0};

class MultiArm : public ::testing::Test {
protected:
    void SetUp() override {
        m_nOutTime = 500;
        ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    }
    void TearDown() override { EXPECT_EQ(0, kx_destory()); }
};

}  // namespace

// A non-blocking move accepted on one arm marks only that arm's next
// completion event; a blocking move on another arm still sees its own.
TEST_F(MultiArm, DiscardMarkerBelongsToTheArmWhoseMoveWasAccepted) {
    auto sim = start_sim(2, 20.0);
    kx_robot_handle* a = connect_arm(*sim, 0);
    kx_robot_handle* b = connect_arm(*sim, 1);
    ASSERT_TRUE(a && b && a->id > 0 && b->id > 0);
    const float far[7] = {170, 100, 100, 170, 100, 170, 0};
    ASSERT_EQ(0, kx_movej(a, far, 1, 0, 0, 0));
    EXPECT_EQ(1, event_listener.flag);  // the listener's flag is still written
    const float near[7] = {1, 0, 0, 0, 0, 0, 0};
    auto blocking = std::async(std::launch::async, [&] { return kx_movej(b, near, 100, 0, 0, 1); });
    ASSERT_TRUE(ends(blocking, 20s)) << "the blocking move lost its completion event to the other arm";
    EXPECT_EQ(0, blocking.get());
    EXPECT_TRUE(sim->moving(0));

    // Arm a's own event is still dropped for a later wait on arm a: a
    // blocking move there ends with its own event, not the earlier one.
    ASSERT_EQ(0, kx_set_arm_stop(a));
    auto again = std::async(std::launch::async, [&] { return kx_movej(a, kHome, 100, 0, 0, 1); });
    ASSERT_TRUE(ends(again, 20s));
    EXPECT_EQ(0, again.get());
    EXPECT_FALSE(sim->moving(0));
}

// Connecting, a silent arm and a send-without-reply pause hold no lock that
// the other arms need.
TEST_F(MultiArm, TableLockIsNeverHeldAcrossNetworkIo) {
    auto sim = start_sim(3);
    kx_robot_handle* healthy = connect_arm(*sim, 0);
    kx_robot_handle* quiet = connect_arm(*sim, 1);
    ASSERT_TRUE(healthy && quiet && healthy->id > 0 && quiet->id > 0);

    kxtest::DeafPeer hole;
    ASSERT_TRUE(hole.full());
    auto creating = std::async(std::launch::async, [&] { return kx_create_robot_arm("127.0.0.1", hole.port()); });
    // A stop is a normal round trip, not the 3 s connect of the other arm.
    const size_t before = sim->received(0).size();
    for (auto t0 = Clock::now(); Clock::now() - t0 < 300ms;) ASSERT_EQ(0, kx_set_arm_stop(healthy));
    EXPECT_FALSE(ready(creating)) << "stops waited for the connect";
    EXPECT_GT(sim->received(0).size(), before);
    kx_robot_handle* failed = creating.get();
    ASSERT_NE(nullptr, failed);
    EXPECT_EQ(-1, failed->id);

    // A silent arm's wait and a one-second no-reply pause block neither calls
    // nor creates on other arms.
    sim->set_silent(1, true);
    m_nOutTime = 3000;
    auto waiting = std::async(std::launch::async, [&] {
        kx_realtime_push_config_t config;
        return kx_get_realtime_push(quiet, &config);
    });
    auto pausing = std::async(std::launch::async, [&] { return kx_set_wifi_ap(quiet, "net", "secret"); });
    ASSERT_TRUE(sim->wait_received(1, 2, 10s));
    EXPECT_EQ(0, kx_set_arm_stop(healthy));
    kx_robot_handle* third = connect_arm(*sim, 2);
    ASSERT_NE(nullptr, third);
    EXPECT_GT(third->id, 0);
    EXPECT_FALSE(ready(pausing)) << "the create waited for the no-reply pause";
    EXPECT_EQ(0, kx_delete_robot_arm(third));
    EXPECT_FALSE(ready(waiting)) << "the delete waited for a call on another arm";
    EXPECT_EQ(-2, waiting.get());
    EXPECT_EQ(0, pausing.get());
    m_nOutTime = 500;  // only once no call that reads it is running

    // A long stream on one arm does not hold up the other.
    sim->set_silent(1, false);
    std::string line = R"({"command":"noise","pad":")" + std::string(1000, 'n') + "\"}\r\n";
    std::string stream;
    for (int i = 0; i < 4000; ++i) stream += line;
    std::thread streamer([&] { sim->send_raw(1, stream); });
    for (int i = 0; i < 20; ++i) EXPECT_EQ(0, kx_set_arm_stop(healthy));
    streamer.join();

    // A program upload paces itself for about half a second; stops and a
    // create on other arms go through meanwhile.
    std::string program = "{\"file\":6}\r\n"
                          "{\"name\":\"Folder\",\"num\":1,\"type\":200,\"enabled\":true,\"parent_number\":0}\r\n";
    for (int i = 0; i < 200; ++i)
        program += R"({"command":"movej","v":50,"joint":[10000,0,20000,0,0,0],"r":0,"trajectory_connect":0})" "\r\n";
    const std::string path = ::testing::TempDir() + "kx_multi_upload_" + std::to_string(getpid()) + ".txt";
    ASSERT_TRUE(kxtest::write_file(path, program));
    const kx_send_project_t project = kxtest::project_of(path, 1);
    sim->clear_received(1);
    auto uploading = std::async(std::launch::async, [&] {
        int err_line = -1;
        return kx_send_project(quiet, project, &err_line);
    });
    ASSERT_TRUE(sim->wait_received(1, 1, 10s));  // the announcement
    EXPECT_EQ(0, kx_set_arm_stop(healthy));
    third = connect_arm(*sim, 2);
    ASSERT_NE(nullptr, third);
    EXPECT_GT(third->id, 0);
    EXPECT_EQ(0, kx_set_arm_stop(healthy));
    EXPECT_FALSE(ready(uploading)) << "the stop or the create waited for the upload";
    EXPECT_EQ(0, uploading.get());
    std::remove(path.c_str());
}

// Deleting a connection waits for the calls that use it.
TEST_F(MultiArm, DeleteWaitsForCallsOnItsConnection) {
    auto sim = start_sim(1);
    kx_robot_handle* arm = connect_arm(*sim, 0);
    ASSERT_TRUE(arm && arm->id > 0);
    sim->delay_replies(0, "get_realtime_push", 200ms);
    const size_t before = sim->received(0).size();
    auto call = std::async(std::launch::async, [&] {
        int cycle = 0;
        char command[] = "get_realtime_push", key[] = "cycle";
        return kx_get_data_common(arm, &cycle, command, key);
    });
    ASSERT_TRUE(sim->wait_received(0, before + 1, 10s));
    auto t0 = Clock::now();
    EXPECT_EQ(0, kx_delete_robot_arm(arm));
    EXPECT_GE(Clock::now() - t0, 100ms);  // it waited for the delayed reply
    EXPECT_EQ(0, call.get());
}

// A hostile controller, failed creates and released ports leave the table
// and the realtime port usable.
TEST_F(MultiArm, FailuresDoNotExhaustTheTableOrThePorts) {
    LogCapture::install(LOG_LEVEL_ERROR);
    auto sim = start_sim(5);
    kx_robot_handle* hostile = connect_arm(*sim, 0);
    ASSERT_TRUE(hostile && hostile->id > 0);
    std::string reply = R"({"command":"get_realtime_push","cycle":7,"port":9,"ip":"127.0.0.1","enable":false,"custom":{}})";
    sim->script_reply(0, "get_realtime_push", std::string(1 << 20, 'x') + "\r\n" + reply + "\r\n");
    kx_realtime_push_config_t config;
    kx_get_realtime_push(hostile, &config);
    EXPECT_EQ(0, kx_delete_robot_arm(hostile));

    // Failed creates hold their slots until deleted, and deleting frees them.
    int closed = kxtest::bound_port(SOCK_STREAM);
    for (int i = 0; i < 5; ++i) {
        kx_robot_handle* failed = kx_create_robot_arm("127.0.0.1", closed);
        ASSERT_NE(nullptr, failed);
        EXPECT_EQ(-1, failed->id);
        EXPECT_EQ(0, kx_delete_robot_arm(failed));
    }
    kx_robot_handle* held[3];
    for (auto*& failed : held) EXPECT_EQ(-1, (failed = kx_create_robot_arm("127.0.0.1", closed))->id);
    for (auto* failed : held) EXPECT_EQ(0, kx_delete_robot_arm(failed));
    kx_robot_handle* arms[5];
    for (int i = 0; i < 5; ++i) {
        arms[i] = connect_arm(*sim, i);
        ASSERT_NE(nullptr, arms[i]);
        EXPECT_EQ(i + 1, arms[i]->id);
    }
    EXPECT_EQ(nullptr, kx_create_robot_arm("127.0.0.1", closed));
}

TEST(MultiArmPorts, RealtimePortIsReleasedInAnyOrderAndNeverShared) {
    LogCapture::install(LOG_LEVEL_ERROR);
    const int port = kxtest::free_udp_port();
    auto sim = start_sim(1, 1.0, port);
    for (int order = 0; order < 3; ++order) {
        ASSERT_EQ(0, kx_init(KX_TRIPLE_MODE_E));
        kx_robot_handle* arm = connect_arm(*sim, 0);
        ASSERT_TRUE(arm && arm->id > 0);
        EXPECT_FALSE(udp_port_free(port));
        EXPECT_FALSE(udp_port_free(port, true)) << "a second socket shared the realtime port";
        if (order == 0) {
            EXPECT_EQ(0, kx_delete_robot_arm(arm));
            EXPECT_TRUE(udp_port_free(port)) << "delete kept the port";
            EXPECT_EQ(0, kx_destory());
        } else if (order == 1) {
            EXPECT_EQ(0, kx_destory());
            EXPECT_TRUE(udp_port_free(port)) << "destroy kept the port";
        } else {
            EXPECT_EQ(0, kx_destory());
            EXPECT_EQ(-1, kx_delete_robot_arm(arm));
            EXPECT_TRUE(udp_port_free(port));
        }
    }

    // A port held elsewhere is reported, not silently left unbound.
    int holder = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    ASSERT_EQ(0, bind(holder, reinterpret_cast<sockaddr*>(&addr), sizeof addr));
    ASSERT_EQ(0, kx_init(KX_TRIPLE_MODE_E));
    kx_robot_handle* arm = connect_arm(*sim, 0);
    ASSERT_TRUE(arm && arm->id > 0);
    LogCapture::clear();
    kx_realtime_push_config_t config = {};
    ASSERT_EQ(0, kx_get_realtime_push(arm, &config));
    EXPECT_TRUE(LogCapture::has_line("[kx_get_realtime_push] udp port " + std::to_string(port) + " cannot be bound\n"));
    EXPECT_EQ(-1, kx_set_realtime_push(arm, config));
    EXPECT_TRUE(LogCapture::has_line("[kx_set_realtime_push] udp port " + std::to_string(port) + " cannot be bound\n"));
    EXPECT_EQ(0, kx_destory());
    close(holder);
}

// A send the kernel takes only in part is completed, never counted as done.
TEST(MultiArmSocket, PartialSendsAreCompleted) {
    int pair[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, pair));
    int small = 4096;
    setsockopt(pair[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    fcntl(pair[0], F_SETFL, fcntl(pair[0], F_GETFL) | O_NONBLOCK);
    kx_socket_handle* sock = kx_socket_handle_init("127.0.0.1", 1);
    ASSERT_NE(nullptr, sock);
    kx::set_socket_fd(sock, pair[0]);
    std::string payload(1 << 20, 'p');
    size_t received = 0;
    std::thread reader([&] {
        char buf[65536];
        ssize_t n;
        while ((n = recv(pair[1], buf, sizeof buf, 0)) > 0) received += static_cast<size_t>(n);
    });
    EXPECT_EQ(0, sock->send(sock, reinterpret_cast<uint8_t*>(payload.data()), static_cast<int>(payload.size())));
    EXPECT_EQ(0, sock->block_send(sock, reinterpret_cast<uint8_t*>(payload.data()), static_cast<int>(payload.size())));
    shutdown(pair[0], SHUT_WR);
    reader.join();
    EXPECT_EQ(2 * payload.size(), received);
    kx_socket_handle_destroy(sock);
    close(pair[1]);
}

// ---- callbacks ---------------------------------------------------------------

namespace {

kx_robot_handle* g_arm = nullptr;
kxtest::Collector<int> g_query_results;
std::atomic<int> g_events{0};
std::vector<int> g_order;
std::mutex g_gate_mutex;
std::condition_variable g_gate_cv;
bool g_gate_open = true;
std::atomic<bool> g_in_callback{false};

void query_from_callback(kx_event_push_data_t) {
    kx_arm_software_version_t info;
    g_query_results.add(kx_get_arm_software_info(g_arm, &info));
}

void gated_callback(kx_event_push_data_t event) {
    g_in_callback = true;
    std::unique_lock lock(g_gate_mutex);
    g_gate_cv.wait(lock, [] { return g_gate_open; });
    g_order.push_back(event.program_id);
    g_events++;
}

void set_gate(bool open) {
    std::lock_guard lock(g_gate_mutex);
    g_gate_open = open;
    g_gate_cv.notify_all();
}

std::string program_event(int id) {
    return R"({"command":"program_run_finish","finish_id":)" + std::to_string(id) + "}\r\n";
}

}  // namespace

TEST_F(MultiArm, AnEventCallbackMayCommandItsOwnArm) {
    auto sim = start_sim(1);
    g_arm = connect_arm(*sim, 0);
    ASSERT_TRUE(g_arm && g_arm->id > 0);
    kx_get_arm_event_call_back(query_from_callback);
    sim->send_raw(0, program_event(1));
    auto results = g_query_results.wait_for(1);
    ASSERT_EQ(1u, results.size());
    EXPECT_EQ(0, results[0]);
}

TEST_F(MultiArm, ASlowCallbackDelaysNoReplyAndDropsAreCounted) {
    LogCapture::install(LOG_LEVEL_ERROR);
    auto sim = start_sim(2);
    kx_robot_handle* a = connect_arm(*sim, 0);
    kx_robot_handle* b = connect_arm(*sim, 1);
    ASSERT_TRUE(a && b && a->id > 0 && b->id > 0);
    g_order.clear();
    g_events = 0;
    kx_get_arm_event_call_back(gated_callback);

    // In order, all of them, when the callback keeps up.
    std::string burst;
    for (int i = 0; i < 200; ++i) burst += program_event(i);
    sim->send_raw(0, burst);
    for (auto t0 = Clock::now(); g_events < 200 && Clock::now() - t0 < 10s;) std::this_thread::yield();
    ASSERT_EQ(200, g_events.load());
    for (int i = 0; i < 200; ++i) EXPECT_EQ(i, g_order[static_cast<size_t>(i)]);

    // A callback that does not return holds up no reply. (Arm a's queue is
    // full of unread events, which may push out its replies, so ask arm b.)
    set_gate(false);
    g_in_callback = false;
    sim->send_raw(0, program_event(1000));
    while (!g_in_callback) std::this_thread::yield();
    kx_arm_software_version_t info;
    EXPECT_EQ(0, kx_get_arm_software_info(b, &info));

    // Meanwhile the bounded queue fills; what does not fit is counted and logged.
    burst.clear();
    for (int i = 0; i < 5000; ++i) burst += program_event(2000 + i);
    sim->send_raw(0, burst);
    for (auto t0 = Clock::now(); !LogCapture::contains("callback queue full") && Clock::now() - t0 < 10s;)
        std::this_thread::yield();
    EXPECT_TRUE(LogCapture::contains("callback queue full"));
    EXPECT_EQ(0, kx_get_arm_software_info(b, &info));
    set_gate(true);
    for (auto t0 = Clock::now(); g_events < 201 && Clock::now() - t0 < 10s;) std::this_thread::yield();
    EXPECT_GT(g_events.load(), 200);
}

TEST_F(MultiArm, DestroyReturnsWhileACallbackIsStuck) {
    auto sim = start_sim(1);
    kx_robot_handle* arm = connect_arm(*sim, 0);
    ASSERT_TRUE(arm && arm->id > 0);
    kx_get_arm_event_call_back(gated_callback);
    set_gate(false);
    g_in_callback = false;
    sim->send_raw(0, program_event(7));
    while (!g_in_callback) std::this_thread::yield();
    auto destroying = std::async(std::launch::async, [] { return kx_destory(); });
    bool returned = ready(destroying, 5s);
    set_gate(true);
    EXPECT_TRUE(returned);
    EXPECT_EQ(0, destroying.get());
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));  // for TearDown
}

TEST_F(MultiArm, DestroyReturnsWhileACallbackWaitsForAReply) {
    auto sim = start_sim(1);
    g_arm = connect_arm(*sim, 0);
    ASSERT_TRUE(g_arm && g_arm->id > 0);
    sim->set_silent(0, true);
    m_nOutTime = 600000;
    kx_get_arm_event_call_back(query_from_callback);
    size_t before = sim->received(0).size();
    sim->send_raw(0, program_event(1));
    ASSERT_TRUE(sim->wait_received(0, before + 1, 10s));  // the callback's query is out
    auto destroying = std::async(std::launch::async, [] { return kx_destory(); });
    ASSERT_TRUE(ready(destroying, 5s));
    EXPECT_EQ(0, destroying.get());
    EXPECT_EQ(-2, g_query_results.wait_for(1).back());
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));  // for TearDown
}
