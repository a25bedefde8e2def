// Reply queue rules: slot choice, staleness, lowest index, discard flags,
// events, drag-teach points, bounded copies and signalled waits.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <thread>

#include "test_core_util.h"

using kxtest::LogCapture;

namespace {

struct Queue {
    Queue() {
        fifo = static_cast<kx_socket_fifo_handle*>(calloc(1, sizeof(kx_socket_fifo_handle)));
        record.fifo_handle = fifo;
        record.robot_handle.id = 3;
    }
    ~Queue() { free(fifo); }
    void add(const std::string& frame) {
        std::string copy = frame;
        add_str_to_fifo(&record, reinterpret_cast<uint8_t*>(copy.data()), static_cast<int>(copy.size()));
    }
    void add_key(const std::string& key) { add(R"({"command":")" + key + R"("})"); }
    int get(const char* key, std::string* text = nullptr, int len = 20000) {
        std::vector<uint8_t> buf(static_cast<size_t>(len) + 16, 0);
        int n = get_str_from_fifo(fifo, key, buf.data(), len);
        if (text) *text = reinterpret_cast<char*>(buf.data());
        return n;
    }
    kx_socket_fifo_handle* fifo;
    kx_handle_t record{};
};

std::vector<kx_event_push_data_t> g_events;
void record_event(kx_event_push_data_t event) { g_events.push_back(event); }

}  // namespace

TEST(CoreQueue, LowestSlotWinsAndTakingFrees) {
    Queue q;
    q.add(R"({"command":"a","n":1})");
    q.add(R"({"command":"b"})");
    q.add(R"({"command":"a","n":2})");
    std::string text;
    EXPECT_EQ(21, q.get("a", &text));
    EXPECT_EQ(R"({"command":"a","n":1})", text);
    EXPECT_EQ(0, q.fifo->fifo[0].is_used);
    // The freed slot 0 takes the next frame, which then wins over slot 2.
    q.add(R"({"command":"a","n":3})");
    EXPECT_EQ(21, q.get("a", &text));
    EXPECT_EQ(R"({"command":"a","n":3})", text);
    EXPECT_EQ(21, q.get("a", &text));
    EXPECT_EQ(R"({"command":"a","n":2})", text);
    EXPECT_EQ(-1, q.get("a"));
    // "state" keys a frame that has no "command".
    q.add(R"({"state":"s1"})");
    EXPECT_GT(q.get("s1"), 0);
    EXPECT_EQ(5u, q.fifo->current_time);
}

TEST(CoreQueue, FullQueueEvictsTheMarkedSlotAndDrops) {
    Queue q;
    for (int i = 0; i < 42; ++i) q.add_key("k" + std::to_string(i));
    EXPECT_EQ(42u, q.fifo->current_time);
    EXPECT_EQ(0, min_time);
    EXPECT_EQ(0, min_index);
    // The 40th frame zeroed slot 0 on its way to slot 39; the 41st took slot 0;
    // the 42nd zeroed it again and found nothing free.
    EXPECT_EQ(-1, q.get("k0"));
    EXPECT_EQ(-1, q.get("k40"));
    EXPECT_EQ(-1, q.get("k41"));
    for (int i = 1; i < 40; ++i) EXPECT_GT(q.get(("k" + std::to_string(i)).c_str()), 0) << i;
}

TEST(CoreQueue, StaleFramesAreOverwrittenAfterFiftyLaterFrames) {
    Queue q;
    q.add(R"({"command":"old","pad":"xxxxxxxxxxxxxxxxxxxx"})");
    for (int i = 0; i < 50; ++i) {
        q.add_key("x");
        ASSERT_GT(q.get("x"), 0);
    }
    q.add_key("new");  // frame 52: slot 0 (stamp 1) is now stale
    EXPECT_EQ(-1, q.get("old"));
    std::string text;
    EXPECT_EQ(17, q.get("new", &text));
    // The slot is not cleared first: the older, longer frame's tail follows.
    EXPECT_EQ(0u, text.rfind(R"({"command":"new"})", 0));
    EXPECT_GT(text.size(), 17u);
}

TEST(CoreQueue, ConductProjectAndGarbageAreNeverQueued) {
    Queue q;
    q.add(R"({"command":"conduct_project","x":1})");
    EXPECT_EQ(-1, q.get("conduct_project"));
    q.add("not json at all");
    q.add(R"({"no_key":1})");
    for (auto& slot : q.fifo->fifo) EXPECT_EQ(0, slot.is_used);
    EXPECT_EQ(3u, q.fifo->current_time);
}

TEST(CoreQueue, DiscardFlagsDropOneEventFrameAndCountAsAMiss) {
    Queue q;
    q.add(R"({"command":"current_trajectory_state","trajectory_state":true,"device":0})");
    q.add_key("r");
    event_listener.flag = 1;
    EXPECT_EQ(-1, q.get("r"));
    EXPECT_EQ(0, event_listener.flag);
    EXPECT_GT(q.get("r"), 0);
    EXPECT_EQ(-1, q.get("current_trajectory_state"));

    q.add(R"({"command":"program_run_finish","finish_id":4})");
    q.add_key("r");
    event_listener.flag = 2;
    EXPECT_EQ(-1, q.get("r"));
    EXPECT_EQ(0, event_listener.flag);
    EXPECT_GT(q.get("r"), 0);

    // Without a flag the event frame is an ordinary queued frame.
    q.add(R"({"command":"program_run_finish","finish_id":4})");
    EXPECT_GT(q.get("program_run_finish"), 0);
}

TEST(CoreQueue, EventsReachTheCallbackAndStayQueued) {
    Queue q;
    kx_get_arm_event_call_back(nullptr);  // ignored
    q.add(R"({"command":"current_trajectory_state","device":1,"trajectory_connect":0})");
    EXPECT_TRUE(g_events.empty());
    kx_get_arm_event_call_back(record_event);
    kx_get_arm_event_call_back(nullptr);  // cannot remove it
    q.add(R"({"command":"current_trajectory_state","trajectory_state":false,"device":2,"trajectory_connect":1})");
    q.add(R"({"command":"current_trajectory_state"})");
    q.add(R"({"command":"program_run_finish","finish_id":9})");
    q.add(R"({"command":"program_run_finish"})");
    ASSERT_EQ(4u, g_events.size());
    EXPECT_EQ(3, g_events[0].handle_id);
    EXPECT_EQ(KX_CURRENT_TRAJECTORY_STATE_E, g_events[0].event_type);
    EXPECT_FALSE(g_events[0].trajectory_state);
    EXPECT_EQ(2, g_events[0].device);
    EXPECT_EQ(1, g_events[0].trajectory_connect);
    EXPECT_TRUE(g_events[1].trajectory_state);  // missing reads as reached
    EXPECT_EQ(-1, g_events[1].device);
    EXPECT_EQ(KX_PROGRAM_RUN_FINISH_E, g_events[2].event_type);
    EXPECT_EQ(9, g_events[2].program_id);
    EXPECT_EQ(0, g_events[2].device);
    EXPECT_EQ(-1, g_events[3].program_id);
    EXPECT_EQ(-1, event_data.program_id);  // the shared record holds the last event
    EXPECT_GT(q.get("current_trajectory_state"), 0);
    EXPECT_GT(q.get("program_run_finish"), 0);
}

TEST(CoreQueue, DragTeachPointsGoToTheSaveFile) {
    LogCapture::install();
    Queue q;
    F_SaveDragTeach = tmpfile();
    drag_teach_total_num = 2;
    q.add(R"({"point":[1,2,3,4,5,6]})");
    EXPECT_EQ(1, drag_teach_save_start);
    EXPECT_EQ(0, drag_teach_save_complete);
    q.add(R"({"point":[7,8,9,10,11,12]})");
    EXPECT_EQ(2, drag_teach_count);
    EXPECT_EQ(1, drag_teach_save_complete);
    EXPECT_TRUE(LogCapture::has_line("drag_teach_count:  2  drag_teach_total_num: 2\n"));
    EXPECT_EQ("{\"point\":[1,2,3,4,5,6]}\r\n{\"point\":[7,8,9,10,11,12]}\r\n", kxtest::close_save_file());

    q.add(R"({"point":5})");
    EXPECT_EQ(1, drag_teach_save_state);
    EXPECT_TRUE(LogCapture::has_line("Error: 'point' is not an array. {\"point\":5}\n"));
    q.add(R"({"point":[1]})");  // no file open: counted, not written
    EXPECT_EQ(3, drag_teach_count);
}

TEST(CoreQueue, CopiesAreBoundedByTheirDestinations) {
    Queue q;
    std::string long_key(80, 'k');
    q.add(R"({"command":")" + long_key + R"("})");
    EXPECT_EQ(std::string(49, 'k'), std::string(q.fifo->fifo[0].command));
    EXPECT_GT(q.get(std::string(49, 'k').c_str()), 0);

    std::string big = R"({"command":"big","pad":")" + std::string(20000, 'p') + R"("})";
    q.add(big);
    const int stored_len = q.fifo->fifo[0].recevie_len;  // a packed field: copied, not bound by reference
    EXPECT_EQ(KX_FIFO_FRAME_LEN, stored_len);
    std::string text;
    EXPECT_GT(q.get("big", &text, 100), 0);
    EXPECT_EQ(99u, text.size());
}

TEST(CoreQueue, WaitsAreSignalledAndShortTimeoutsGiveUpAtOnce) {
    Queue q;
    g_mode = KX_DUAL_MODE_E;
    uint8_t buf[256] = {};
    q.add_key("ready");
    EXPECT_EQ(-1, handle_revice_data("t", &q.record, "ready", buf, sizeof buf, 1));  // zero polls
    EXPECT_EQ(19, handle_revice_data("t", &q.record, "ready", buf, sizeof buf, 2));
    EXPECT_STREQ(R"({"command":"ready"})", reinterpret_cast<char*>(buf));

    std::thread producer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        q.add_key("late");
    });
    EXPECT_EQ(18, handle_revice_data("t", &q.record, "late", buf, sizeof buf, 60000));
    producer.join();
    EXPECT_EQ(-1, handle_revice_data("t", &q.record, "never", buf, sizeof buf, 20));
    EXPECT_EQ(-1, handle_revice_data("t", &q.record, nullptr, buf, sizeof buf, 20));
}

TEST(CoreQueue, ShutdownWakesWaiters) {
    Queue q;
    g_mode = KX_DUAL_MODE_E;
    int result = 0;
    std::thread waiter([&] {
        uint8_t buf[64] = {};
        result = handle_revice_data("t", &q.record, "never", buf, sizeof buf, 600000);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    kx_destory();
    waiter.join();
    EXPECT_EQ(-1, result);
}
