// Request encoding bytes, reply decoding rules and messages, set outcomes.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "MIO_JSON.h"
#include "socket.h"
#include "test_core_util.h"

using kxtest::LogCapture;

namespace {

// A connection record whose socket is one end of a socket pair.
struct PairedRecord {
    PairedRecord() {
        socketpair(AF_UNIX, SOCK_STREAM, 0, fds);
        record.socket_handle = kx_socket_handle_init("127.0.0.1", 1);
        record.socket_handle->socket_id = fds[0];
        record.fifo_handle = &fifo;
    }
    ~PairedRecord() {
        kx_socket_handle_destroy(record.socket_handle);
        close(fds[1]);
    }
    std::string read_all() {
        char buf[4096];
        ssize_t n = recv(fds[1], buf, sizeof buf, MSG_DONTWAIT);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
    }
    int fds[2];
    kx_socket_fifo_handle fifo{};
    kx_handle_t record{};
};

KeyValue row(JsonValueType type, const char* key, int array_size = 0) {
    KeyValue kv;
    memset(&kv, 0, sizeof kv);
    kv.type = type;
    kv.key = key;
    kv.array_size = array_size;
    return kv;
}

}  // namespace

TEST(CoreCodec, RequestBytesFollowTheTable) {
    PairedRecord pair;
    const int joints[3] = {1000, -2500, 0};
    cJSON* sub = MIO_JSON_CreateObject();
    cJSON_AddBoolToObject(sub, "hand", true);
    JsonValue rows[] = {
        {JSON_STRING, "command", 0, {.str_value = "set_x"}},
        {JSON_INT, "v", 0, {.int_value = -42}},
        {JSON_ARRAY, "joint", 3, {.array_value = joints}},
        {JSON_BOOL, "enable", 0, {.bool_value = false}},
        {JSON_STRING, nullptr, 0, {.str_value = "skipped"}},
        {JSON_STRING, "nullstr", 0, {.str_value = nullptr}},
        {static_cast<JsonValueType>(7), "odd", 0, {.int_value = 1}},
        {JSON_OBJECT, "custom", 0, {.sub_json = sub}},
    };
    ASSERT_EQ(0, common_json_pack_set("t", &pair.record, rows, sizeof rows / sizeof rows[0]));
    EXPECT_EQ("{\"command\":\"set_x\",\"v\":-42,\"joint\":[1000,-2500,0],\"enable\":false,\"custom\":{\"hand\":true}}\r\n",
              pair.read_all());

    // Every key null: still an (empty) object on the wire.
    JsonValue empty[] = {{JSON_INT, nullptr, 0, {.int_value = 1}}};
    ASSERT_EQ(0, common_json_pack_set("t", &pair.record, empty, 1));
    EXPECT_EQ("{}\r\n", pair.read_all());

    EXPECT_EQ(-1, common_json_pack_set("t", &pair.record, nullptr, 1));
    EXPECT_EQ(-1, common_json_pack_set("t", &pair.record, rows, 0));

    // A closed peer is a send error, not a signal.
    close(pair.fds[1]);
    pair.fds[1] = -1;
    EXPECT_EQ(-2, common_json_pack_set("t", &pair.record, empty, 1));
}

TEST(CoreCodec, UnusedGetBuilderSendsTextTerminatorAndOneMoreByte) {
    PairedRecord pair;
    char out[64] = {};
    EXPECT_EQ(0, common_json_pack_get("t", &pair.record, "get_y", out, sizeof out));
    const std::string text = "{\"command\":\"get_y\"}";
    EXPECT_EQ(text + std::string(2, '\0'), pair.read_all());
    EXPECT_EQ(0, memcmp(out, text.data(), 8));
    EXPECT_EQ(0, memcmp(out + text.size(), "\r\n", 2));
    char small[20] = {};
    EXPECT_EQ(-1, common_json_pack_get("t", &pair.record, "get_y", small, sizeof small));
}

TEST(CoreCodec, DecodesRowsFromTopLevelOrStateContainers) {
    LogCapture::install();
    const char* replies[] = {
        R"({"command":"q","name":"abc","n":7,"a":[1,"x",3],"b":true,"o":{"k":1}})",
        R"({"command":"q","arm_state":{"name":"abc","n":7,"a":[1,"x",3],"b":true,"o":{"k":1}}})",
        R"({"command":"q","all_state":{"name":"abc","n":7,"a":[1,"x",3],"b":true,"o":{"k":1}}})",
    };
    for (const char* reply : replies) {
        KeyValue rows[] = {row(JSON_STRING, "name"), row(JSON_INT, "n"), row(JSON_ARRAY, "a", 3), row(JSON_BOOL, "b"),
                           row(JSON_OBJECT, "o")};
        ASSERT_EQ(0, common_json_parse("caller", reply, rows, 5)) << reply;
        EXPECT_STREQ("abc", rows[0].data.str_value);
        EXPECT_EQ(7, rows[1].data.int_value);
        EXPECT_EQ(1, rows[2].data.array_value[0]);
        EXPECT_EQ(-1, rows[2].data.array_value[1]);  // not a number
        EXPECT_EQ(3, rows[2].data.array_value[2]);
        EXPECT_TRUE(rows[3].data.bool_value);
        ASSERT_NE(nullptr, rows[4].data.sub_json);
        EXPECT_EQ(1, MIO_JSON_GetObjectItemInt(rows[4].data.sub_json, "k"));
        MIO_JSON_Delete(rows[4].data.sub_json);
    }
    EXPECT_TRUE(LogCapture::has_line("[caller] name parse result: abc\n"));
    EXPECT_TRUE(LogCapture::has_line("[caller] n parse result: 7\n"));
    EXPECT_TRUE(LogCapture::has_line("[caller] a parse result:\n"));
    EXPECT_TRUE(LogCapture::has_line(" -1\n"));
    EXPECT_TRUE(LogCapture::has_line("[caller] b parse result: 1\n"));
}

TEST(CoreCodec, DecodingFailuresReturnMinus3WithTheirMessages) {
    LogCapture::install();
    KeyValue one[] = {row(JSON_INT, "n")};
    EXPECT_EQ(-3, common_json_parse("c", "not json", one, 1));
    EXPECT_TRUE(LogCapture::has_line("Error parsing JSON\n"));
    EXPECT_EQ(-3, common_json_parse("c", nullptr, one, 1));

    KeyValue missing[] = {row(JSON_INT, "n"), row(JSON_INT, "gone")};
    EXPECT_EQ(-3, common_json_parse("c", R"({"n":5})", missing, 2));
    EXPECT_EQ(5, missing[0].data.int_value);  // rows before the failure keep their values
    EXPECT_TRUE(LogCapture::has_line("[c] gone parsing error\n"));

    KeyValue str[] = {row(JSON_STRING, "s")};
    EXPECT_EQ(-3, common_json_parse("c", R"({"s":1})", str, 1));
    EXPECT_TRUE(LogCapture::has_line("[c] s is not a string\n"));

    KeyValue arr[] = {row(JSON_ARRAY, "a", 2)};
    EXPECT_EQ(-3, common_json_parse("c", R"({"a":{}})", arr, 1));
    EXPECT_TRUE(LogCapture::has_line("[c] a is not an array\n"));
    EXPECT_EQ(-3, common_json_parse("c", R"({"a":[1,2,3]})", arr, 1));
    EXPECT_TRUE(LogCapture::has_line("[c] Array size mismatch for key a\n"));

    KeyValue odd[] = {row(static_cast<JsonValueType>(7), "a")};
    EXPECT_EQ(-3, common_json_parse("c", R"({"a":1})", odd, 1));
    EXPECT_TRUE(LogCapture::has_line("[c] Unsupported JSON value type for key a\n"));

    // Non-number integers read 0; non-boolean booleans leave the field alone.
    KeyValue loose[] = {row(JSON_INT, "n"), row(JSON_BOOL, "b")};
    loose[1].data.bool_value = true;
    EXPECT_EQ(0, common_json_parse("c", R"({"n":"x","b":3})", loose, 2));
    EXPECT_EQ(0, loose[0].data.int_value);
    EXPECT_TRUE(loose[1].data.bool_value);
}

TEST(CoreCodec, OversizedValuesAreCutToTheirFields) {
    std::string reply = R"({"s":")" + std::string(100, 'x') + R"(","a":[)";
    for (int i = 0; i < 30; ++i) reply += (i ? "," : "") + std::to_string(i);
    reply += "]}";
    KeyValue rows[] = {row(JSON_STRING, "s"), row(JSON_ARRAY, "a", 30)};
    int guard_after = 0x5a5a5a5a;
    ASSERT_EQ(0, common_json_parse("c", reply.c_str(), rows, 2));
    EXPECT_EQ(27u, strlen(rows[0].data.str_value));
    EXPECT_EQ(23, rows[1].data.array_value[23]);
    EXPECT_EQ(0x5a5a5a5a, guard_after);
}

TEST(CoreCodec, SetOutcomes) {
    LogCapture::install();
    EXPECT_EQ(1, parse_kx_set_command("f", R"({"command":"x","set_state":false})", "set_state"));
    EXPECT_TRUE(LogCapture::has_line("[f] set_state: false\n"));
    EXPECT_EQ(0, parse_kx_set_command("f", R"({"set_state":true})", "set_state"));
    EXPECT_TRUE(LogCapture::has_line("[f] set_state: true\n"));
    EXPECT_EQ(-3, parse_kx_set_command("f", R"({"command":"x"})", "set_state"));
    EXPECT_TRUE(LogCapture::has_line("[f] set_state command parse err\n"));
    EXPECT_EQ(-3, parse_kx_set_command("f", R"({"set_state":1})", "set_state"));
    EXPECT_EQ(-3, parse_kx_set_command("f", "garbage", "set_state"));
    EXPECT_TRUE(LogCapture::has_line("[f] garbage parse err\n"));

    // "given_state" silences the two parse-error messages, each by its own test.
    LogCapture::clear();
    EXPECT_EQ(-3, parse_kx_set_command("f", R"({"x":1})", "given_state"));
    EXPECT_EQ(-3, parse_kx_set_command("f", "given_state", "set_state"));
    EXPECT_TRUE(LogCapture::all().empty());
}

TEST(CoreCodec, MoveReplyDecoding) {
    LogCapture::install();
    int device = -9, connect = -9;
    EXPECT_EQ(1, parse_kx_move_command(R"({"trajectory_state":true,"device":2,"trajectory_connect":1})", &device,
                                       &connect));
    EXPECT_EQ(2, device);
    EXPECT_EQ(1, connect);
    EXPECT_TRUE(LogCapture::has_line("Move command result is: true, current Device: 2, trajectory_connect: 1\n"));
    EXPECT_EQ(0, parse_kx_move_command(R"({"trajectory_state":false,"device":0,"trajectory_connect":0})", &device,
                                       &connect));
    EXPECT_TRUE(LogCapture::has_line("Move command result is: false, current Device: 0, trajectory_connect: 0\n"));
    EXPECT_EQ(-3, parse_kx_move_command(R"({"trajectory_state":true,"device":0})", &device, &connect));
    EXPECT_TRUE(LogCapture::has_line("Move command parse err\n"));
    EXPECT_EQ(-3, parse_kx_move_command("{", &device, &connect));
    EXPECT_TRUE(LogCapture::has_line("Set command parse err\n"));
}

TEST(CoreCodec, WrapperGettersReportFailuresByValue) {
    cJSON* root = MIO_JSON_Parse(R"({"i":5,"s":"t","b":false,"a":[4,"x"]})");
    ASSERT_NE(nullptr, root);
    EXPECT_EQ(5, MIO_JSON_GetObjectItemInt(root, "i"));
    EXPECT_EQ(-1, MIO_JSON_GetObjectItemInt(root, "none"));
    EXPECT_EQ(-3, MIO_JSON_GetObjectItemInt(root, "s"));
    EXPECT_EQ(-2, MIO_JSON_GetObjectItemInt(nullptr, "i"));
    EXPECT_STREQ("t", MIO_JSON_GetObjectItemStr(root, "s"));
    EXPECT_EQ(nullptr, MIO_JSON_GetObjectItemStr(root, "i"));
    EXPECT_EQ(0, MIO_JSON_GetObjectItemBool(root, "b"));
    EXPECT_EQ(-1, MIO_JSON_GetObjectItemBool(root, "i"));
    cJSON* array = MIO_JSON_GetObjectItem(root, "a");
    EXPECT_EQ(4, MIO_JSON_GetArrayItemInt(array, 0));
    EXPECT_EQ(-1, MIO_JSON_GetArrayItemInt(array, 1));
    EXPECT_EQ(-1, MIO_JSON_GetArrayItemInt(array, 2));
    EXPECT_EQ(-1, MIO_JSON_GetArrayItemInt(root, 0));
    EXPECT_EQ(0, MIO_JSON_GetArraySize(nullptr));
    EXPECT_EQ(0, MIO_JSON_GetTypeFormItem(nullptr));
    EXPECT_EQ(nullptr, MIO_JSON_CreateString(nullptr));
    MIO_JSON_AddItemToObject(root, nullptr, nullptr);  // ignored
    MIO_JSON_Delete(nullptr);
    MIO_JSON_Delete(root);
}

// A number no int can hold (beyond the range, or infinite after parsing) is a
// decode error wherever it arrives, never a conversion; a fraction truncates.
TEST(CoreCodec, NumbersNoIntHoldsAreDecodeErrors) {
    LogCapture::install(LOG_LEVEL_ERROR);
    for (const char* v : {"2147483648", "-2147483649", "3e9", "1e999", "-1e999"}) {
        SCOPED_TRACE(v);
        LogCapture::clear();
        std::string text = std::string(R"({"v":)") + v + "}";
        KeyValue kv = row(JSON_INT, "v");
        EXPECT_EQ(-3, common_json_parse("t", text.c_str(), &kv, 1));
        EXPECT_TRUE(LogCapture::has_line("[t] v parsing error\n"));
        text = std::string(R"({"a":[1,)") + v + "]}";
        KeyValue arr = row(JSON_ARRAY, "a", 2);
        EXPECT_EQ(-3, common_json_parse("t", text.c_str(), &arr, 1));
        EXPECT_TRUE(LogCapture::has_line("[t] a parsing error\n"));
        cJSON* root = MIO_JSON_Parse(text.c_str());
        EXPECT_EQ(-1, MIO_JSON_GetArrayItemInt(MIO_JSON_GetObjectItem(root, "a"), 1));
        MIO_JSON_Delete(root);
        root = MIO_JSON_Parse((std::string(R"({"v":)") + v + "}").c_str());
        EXPECT_EQ(-3, MIO_JSON_GetObjectItemInt(root, "v"));
        MIO_JSON_Delete(root);
    }
    KeyValue kv[] = {row(JSON_INT, "hi"), row(JSON_INT, "lo"), row(JSON_INT, "f"), row(JSON_ARRAY, "a", 2)};
    ASSERT_EQ(0, common_json_parse("t", R"({"hi":2147483647,"lo":-2147483648,"f":-7.9,"a":[2.5,"x"]})", kv, 4));
    EXPECT_EQ(2147483647, kv[0].data.int_value);
    EXPECT_EQ(-2147483647 - 1, kv[1].data.int_value);
    EXPECT_EQ(-7, kv[2].data.int_value);
    EXPECT_EQ(2, kv[3].data.array_value[0]);
    EXPECT_EQ(-1, kv[3].data.array_value[1]);
}

TEST(CoreCodec, RealtimeNumbersNoIntHoldsFailTheDatagram) {
    const std::string good = R"({"joint_status":{"joint_position":[1000]},)"
                             R"("waypoint":{"quat":[1000000,0,0,0],"euler":[0,0,0],"position":[0,0,0]},"err":[0]})";
    kx_realtime_arm_joint_state_t s;
    ASSERT_EQ(0, parse_kx_realtime_arm_joint_state(good.c_str(), &s));
    const std::vector<std::pair<std::string, std::string>> spoil = {
        {"[1000]", "[1e10]"},
        {R"("quat":[1000000,)", R"("quat":[1e999,)"},
        {R"("position":[0,0,0])", R"("position":[0,0,-3e9])"},
        {R"("err":[0])", R"("err":[0,4294967296])"},
        {R"("joint_status":{)", R"("lift_state":{"pos":1e12,"height":0,"current":0,"err_flag":0,"en_flag":0},"joint_status":{)"},
        {R"("joint_status":{)", R"("aloha_state":{"io1_state":2147483648,"io2_state":0},"joint_status":{)"},
        {R"("joint_status":{)", R"("hand":{"hand_pos":[1e300],"hand_angle":[],"hand_force":[],"hand_state":[],"hand_err":0},"joint_status":{)"},
        {R"("err":)", R"("six_force_sensor":{"force":[0],"coordinate":-1e999},"err":)"},
        {R"("err":)", R"("one_force_sensor":{"zero_force":[1e10]},"err":)"},
    };
    for (const auto& [from, to] : spoil) {
        std::string text = good;
        text.replace(text.find(from), from.size(), to);
        SCOPED_TRACE(text);
        EXPECT_EQ(-3, parse_kx_realtime_arm_joint_state(text.c_str(), &s));
    }
}
