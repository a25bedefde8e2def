/*
 * Where the examples connect: to IP PORT from the command line, or, without
 * them, to one arm of a simulator started inside the program.
 */
#ifndef EXAMPLE_TARGET_H
#define EXAMPLE_TARGET_H

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "kx_interface.h"
#include "simulator.h"

struct ExampleTarget {
    std::unique_ptr<kxsim::Simulator> sim;
    kx_robot_handle* arm = nullptr;

    /* kx_init must have run. Returns false (after a message) when no arm
     * could be connected. A built-in simulator plays `product` (model and
     * edition, e.g. "BRIV-P"). */
    bool connect(int argc, char** argv, double time_scale, const char* product = "AVEN-P") {
        std::string ip;
        int port = 0;
        if (argc >= 3) {
            ip = argv[1];
            port = std::atoi(argv[2]);
        } else {
            kxsim::Options o;
            o.time_scale = time_scale;
            o.push_enabled = false;
            o.arms[0].product_version = product;
            sim = std::make_unique<kxsim::Simulator>(o);
            if (!sim->start()) {
                std::fprintf(stderr, "the simulator did not start\n");
                return false;
            }
            ip = sim->host(0);
            port = sim->port(0);
        }
        arm = kx_create_robot_arm(ip.c_str(), port);
        if (arm == nullptr || arm->id < 0) {
            std::fprintf(stderr, "could not connect to %s:%d\n", ip.c_str(), port);
            return false;
        }
        return true;
    }

    /* Moves the arm to `ready` (degrees, blocking) and reads its state there. */
    bool start_at(const float ready[7], kx_current_arm_state_t& st) {
        return kx_movej(arm, ready, 30, 0, 0, 1) == 0 && kx_get_current_arm_state(arm, &st) == 0;
    }

    /* Releases the library before the simulator goes away. */
    int finish(int rc) {
        kx_destory();
        if (sim) sim->stop();
        return rc;
    }
};

#endif /* EXAMPLE_TARGET_H */
