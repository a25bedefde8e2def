/*
 * Read a sensor on the controller's RS485 port over Modbus RTU: open the
 * port as a master, read one holding register and a block of them from the
 * device at address 1, then show what an absent device looks like.
 *
 *   modbus_sensor [HOST [PORT]]
 *
 * The simulator emulates the sensor at device address 1 on every port opened
 * as a master:   kx_sim --port 8080   then   modbus_sensor 127.0.0.1 8080
 */
#include "example_arm.h"

/* The reads, on an RS485 port open as a Modbus master: 0 when each went as expected. */
static int read_sensor(kx_robot_handle* arm, int port) {
    int mode = 0, baud = 0, timeout = 0;
    kx_get_controller_RS485_mode(arm, &mode, &baud, &timeout);
    printf("RS485 port: mode %d, %d baud, Modbus timeout %d\n", mode, baud, timeout);

    /* Give the emulated sensor a reading (a real sensor has its own). */
    kx_peripheral_read_write_params_t reg = {port, 40, 1, 1}; /* port, address, device, num */
    kx_write_single_register(arm, reg, 2317);

    int value = 0;
    int r = kx_read_holding_registers(arm, reg, &value);
    printf("holding register %d of device %d: %d (result %d)\n", reg.address, reg.device, value, r);
    if (r != 0 || value != 2317) return 1;

    int bytes[6] = {0, 0, 0, 0, 0, 0};
    kx_peripheral_read_write_params_t block = {port, 40, 1, 3};
    r = kx_read_multiple_holding_registers(arm, block, bytes);
    printf("registers 40..42 as bytes:");
    for (int i = 0; i < 6; ++i) printf(" %d", bytes[i]);
    printf(" (result %d)\n", r);
    if (r != 0) return 1;

    kx_peripheral_read_write_params_t absent = {port, 40, 7, 1};
    r = kx_read_holding_registers(arm, absent, &value);
    printf("device 7 does not answer: result %d\n", r);
    return r == 1 ? 0 : 1;
}

int main(int argc, char** argv) {
    const example_arm_t ex = example_connect(argc, argv, "[HOST [PORT]]", KX_DUAL_MODE_E);
    kx_robot_handle* arm = ex.handle;

    const int port = 0; /* the controller's own RS485 port */
    int rc = 1;
    if (kx_set_modbus_mode(arm, port, 115200, 100) != 0)
        fprintf(stderr, "the controller did not open its RS485 port as a Modbus master\n");
    else
        rc = read_sensor(arm, port);
    kx_close_modbus_mode(arm, port);
    printf(rc == 0 ? "Modbus read done\n" : "Modbus read failed\n");
    kx_delete_robot_arm(arm);
    kx_destory();
    return rc;
}
