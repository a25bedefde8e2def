/*
 * The C examples' start: the controller's IP and PORT from the command line,
 * the library in dual-thread mode, one connection.
 */
#ifndef EXAMPLE_CONNECT_H
#define EXAMPLE_CONNECT_H

#include <stdio.h>
#include <stdlib.h>

#include "kx_interface.h"

/* The connected arm, or NULL after a message (usage or no connection);
 * the library is then already released. */
static kx_robot_handle* example_connect(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s IP PORT\n", argv[0]);
        return NULL;
    }
    kx_init(KX_DUAL_MODE_E);
    kx_robot_handle* arm = kx_create_robot_arm(argv[1], atoi(argv[2]));
    if (arm == NULL || arm->id < 0) {
        fprintf(stderr, "could not connect to %s:%s\n", argv[1], argv[2]);
        kx_destory();
        return NULL;
    }
    return arm;
}

#endif /* EXAMPLE_CONNECT_H */
