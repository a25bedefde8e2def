/* RS485 modes and Modbus access through the simulated controller and its
 * emulated slave: exact requests, values written and read back, the coil
 * and register packing, absent devices and hostile replies. */
#include "test_periph_fixture.h"

using namespace cmdtest;

namespace {

constexpr int kRtu = 0, kToolRtu = 1, kTcp = 2, kSlave = 1;

kx_peripheral_read_write_params_t at(int port, int address, int num = 1, int device = kSlave) {
    return {port, address, device, num};
}

using Modbus = PeriphFixture;

}  // namespace

TEST_F(Modbus, PortModes) {
    start();
    int mode = -1, baud = -1, timeout = -1;
    clear_log();
    ASSERT_EQ(0, kx_get_controller_RS485_mode(h(), &mode, &baud, &timeout));
    EXPECT_EQ(0, mode);
    EXPECT_EQ(0, timeout); /* not a Modbus master: no timeout in the reply */
    EXPECT_TRUE(logged("it is not in Modbus-RTU mode, and the modbus_timeout field does not exist.\n"));

    ASSERT_EQ(0, kx_set_modbus_mode(h(), kRtu, 115200, 100));
    EXPECT_EQ(R"({"command":"set_modbus_mode","port":0,"baudrate":115200,"timeout":100})", last("set_modbus_mode"));
    ASSERT_EQ(0, kx_get_controller_RS485_mode(h(), &mode, &baud, &timeout));
    EXPECT_EQ(1, mode);
    EXPECT_EQ(115200, baud);
    EXPECT_EQ(100, timeout);
    ASSERT_EQ(0, kx_set_modbus_mode(h(), kToolRtu, 9600, 20));
    ASSERT_EQ(0, kx_get_tool_RS485_mode(h(), &mode, &baud, &timeout));
    EXPECT_EQ(9600, baud);
    ASSERT_EQ(0, kx_close_modbus_mode(h(), kToolRtu));
    EXPECT_EQ(R"({"command":"close_modbus_mode","port":1})", last("close_modbus_mode"));
    ASSERT_EQ(0, kx_get_tool_RS485_mode(h(), &mode, &baud, &timeout));
    EXPECT_EQ(0, mode);

    ASSERT_EQ(0, kx_set_modbustcp_mode(h(), "127.0.0.9", 502, 200));
    EXPECT_EQ(R"({"command":"set_modbustcp_mode","ip":"127.0.0.9","port":502,"timeout":200})",
              last("set_modbustcp_mode"));
    ASSERT_EQ(0, kx_close_modbustcp_mode(h()));
    EXPECT_EQ(R"({"command":"close_modbustcp_mode"})", last("close_modbustcp_mode"));
    EXPECT_EQ(1, kx_set_modbus_mode(h(), 7, 115200, 100)); /* no such port */
    EXPECT_EQ(-1, kx_set_modbustcp_mode(h(), nullptr, 502, 100));

    /* A reply missing an earlier key, or carrying a string where a number
     * goes, fails; the timeout key alone may be absent. */
    reply("get_tool_RS485_mode", R"({"command":"get_tool_RS485_mode","baudrate":9600})");
    clear_log();
    EXPECT_EQ(-3, kx_get_tool_RS485_mode(h(), &mode, &baud, &timeout));
    EXPECT_TRUE(logged("tool_RS485_mode parsing error\n"));
}

TEST_F(Modbus, SlaveKeepsWhatIsWritten) {
    start();
    ASSERT_EQ(0, kx_set_modbus_mode(h(), kRtu, 115200, 100));
    sim->clear_received(0);
    ASSERT_EQ(0, kx_write_single_register(h(), at(kRtu, 10), 0x1234));
    ASSERT_EQ(0, kx_write_single_coil(h(), at(kRtu, 3), 1));
    const int regs[6] = {0x12, 0x34, 0x00, 0xff, 0xab, 0xcd};
    ASSERT_EQ(0, kx_write_registers(h(), at(kRtu, 20, 3), const_cast<int*>(regs)));
    const int coils[2] = {0xa5, 0x3c};
    ASSERT_EQ(0, kx_write_coils(h(), at(kRtu, 100, 16), const_cast<int*>(coils)));
    const std::vector<std::string> expected = {
        R"({"command":"write_single_register","port":0,"address":10,"data":4660,"device":1})",
        R"({"command":"write_single_coil","port":0,"address":3,"data":1,"device":1})",
        R"({"command":"write_registers","port":0,"address":20,"num":3,"data":[18,52,0,255,171,205],"device":1})",
        R"({"command":"write_coils","port":0,"address":100,"num":16,"data":[165,60],"device":1})",
    };
    EXPECT_EQ(expected, last_lines(expected.size()));

    int v = -1;
    ASSERT_EQ(0, kx_read_holding_registers(h(), at(kRtu, 10, 5), &v));
    EXPECT_EQ(R"({"command":"read_holding_registers","port":0,"address":10,"device":1})",
              last("read_holding_registers"));
    EXPECT_EQ(0x1234, v);
    ASSERT_EQ(0, kx_read_coils(h(), at(kRtu, 0, 8), &v));
    EXPECT_EQ(R"({"command":"read_coils","port":0,"address":0,"num":8,"device":1})", last("read_coils"));
    EXPECT_EQ(0x08, v);
    ASSERT_EQ(0, kx_read_input_status(h(), at(kRtu, 0, 4), &v));
    EXPECT_EQ(0, v);
    ASSERT_EQ(0, kx_read_input_registers(h(), at(kRtu, 0), &v));
    EXPECT_EQ(0, v);

    int out[24];
    std::fill(std::begin(out), std::end(out), -1);
    ASSERT_EQ(0, kx_read_multiple_holding_registers(h(), at(kRtu, 20, 3), out));
    EXPECT_EQ(std::vector<int>(regs, regs + 6), std::vector<int>(out, out + 6));
    EXPECT_EQ(-1, out[6]);
    ASSERT_EQ(0, kx_read_multiple_input_registers(h(), at(kRtu, 0, 2), out));
    EXPECT_EQ(0, out[3]);
    /* Sixteen coils are two bytes; seventeen are three on the wire, of which
     * two are delivered. */
    std::fill(std::begin(out), std::end(out), -1);
    ASSERT_EQ(0, kx_read_multiple_coils(h(), at(kRtu, 100, 17), out));
    EXPECT_EQ((std::vector<int>{0xa5, 0x3c, -1}), std::vector<int>(out, out + 3));

    /* The same slave answers over the TCP link once it is open. */
    EXPECT_EQ(1, kx_read_holding_registers(h(), at(kTcp, 10), &v));
    ASSERT_EQ(0, kx_set_modbustcp_mode(h(), "127.0.0.9", 502, 200));
    ASSERT_EQ(0, kx_read_holding_registers(h(), at(kTcp, 10), &v));
    EXPECT_EQ(0x1234, v);

    /* Another device address, a port not opened as master, an address past
     * the table: the controller reports the failure. */
    EXPECT_EQ(1, kx_read_holding_registers(h(), at(kRtu, 10, 1, 2), &v));
    EXPECT_EQ(1, kx_write_single_register(h(), at(kToolRtu, 10), 5));
    EXPECT_EQ(1, kx_read_multiple_holding_registers(h(), at(kRtu, 999, 2), out));
}

TEST_F(Modbus, Packing) {
    start();
    ASSERT_EQ(0, kx_set_modbus_mode(h(), kRtu, 115200, 100));
    /* Seven coils are less than a whole byte: nothing is sent. */
    const int byte[1] = {0x7f};
    ASSERT_EQ(0, kx_write_coils(h(), at(kRtu, 0, 7), const_cast<int*>(byte)));
    EXPECT_EQ(R"({"command":"write_coils","port":0,"address":0,"num":7,"data":[],"device":1})", last("write_coils"));

    int out[4] = {-1, -1, -1, -1};
    reply("read_multiple_coils", R"({"command":"read_multiple_coils","data":[1,2]})");
    ASSERT_EQ(0, kx_read_multiple_coils(h(), at(kRtu, 0, 10), out));
    EXPECT_EQ((std::vector<int>{1, -1}), std::vector<int>(out, out + 2));
    reply("read_multiple_coils", R"({"command":"read_multiple_coils","data":[1,2]})");
    EXPECT_EQ(0, kx_read_multiple_coils(h(), at(kRtu, 0, 16), out));
    EXPECT_EQ(2, out[1]);
    reply("read_multiple_coils", R"({"command":"read_multiple_coils","data":[1,2]})");
    EXPECT_EQ(-3, kx_read_multiple_coils(h(), at(kRtu, 0, 17), out)); /* three expected, no verdict */
    reply("read_multiple_holding_registers", R"({"command":"read_multiple_holding_registers","data":[1,2,3]})");
    EXPECT_EQ(-3, kx_read_multiple_holding_registers(h(), at(kRtu, 0, 2), out));
}

TEST_F(Modbus, HostileReplies) {
    start();
    int v = 42;
    reply("read_coils", R"({"command":"read_coils","read_state":false})");
    EXPECT_EQ(1, kx_read_coils(h(), at(kRtu, 0), &v));
    reply("read_coils", R"({"command":"read_coils","read_state":true})");
    EXPECT_EQ(0, kx_read_coils(h(), at(kRtu, 0), &v));
    EXPECT_EQ(42, v); /* nothing to deliver */
    reply("read_input_status", R"({"command":"read_input_status"})");
    EXPECT_EQ(-3, kx_read_input_status(h(), at(kRtu, 0), &v));
    reply("write_registers", R"({"command":"write_registers","set_state":true})");
    int regs[2] = {0, 1};
    EXPECT_EQ(-3, kx_write_registers(h(), at(kRtu, 0), regs));
    EXPECT_EQ(-1, kx_read_coils(h(), at(kRtu, 0), nullptr));

    /* A slow write waits 2 s longer than a read: a reply after 150 ms is
     * taken by a coil write and missed by a register write (100 ms). */
    m_nOutTime_max = 100;
    sim->delay_replies(0, "write_single_coil", std::chrono::milliseconds(150));
    EXPECT_EQ(1, kx_write_single_coil(h(), at(kRtu, 0), 1)); /* port not open: refused, but answered */
    sim->delay_replies(0, "write_single_register", std::chrono::milliseconds(150));
    EXPECT_EQ(-2, kx_write_single_register(h(), at(kRtu, 0), 1));
}

TEST(ModbusDecoding, Rs485Table) {
    KeyValue kv[3] = {};
    kv[0].type = JSON_INT;
    kv[0].key = "controller_RS485_mode";
    kv[1].type = JSON_INT;
    kv[1].key = "baudrate";
    kv[2].type = JSON_INT;
    kv[2].key = "modbus_timeout";
    EXPECT_EQ(0, parse_rs485(R"({"controller_RS485_mode":1,"baudrate":9600})", kv, 3));
    EXPECT_EQ(9600, kv[1].data.int_value);
    EXPECT_EQ(0, kv[2].data.int_value); /* absent: left as the zeroed table had it */
    EXPECT_EQ(-3, parse_rs485(R"({"controller_RS485_mode":1,"modbus_timeout":5})", kv, 3));
    EXPECT_EQ(-3, parse_rs485("{", kv, 3));
    KeyValue arr = {};
    arr.type = JSON_ARRAY;
    arr.key = "a";
    arr.array_size = 2;
    EXPECT_EQ(-3, parse_rs485(R"({"a":[1,2,3]})", &arr, 1));
    EXPECT_EQ(0, parse_rs485(R"({"a":[1,2]})", &arr, 1));
    EXPECT_EQ(2, arr.data.array_value[1]);
}
