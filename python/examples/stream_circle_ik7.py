#!/usr/bin/env python3
"""Stream a Cartesian circle through the local inverse kinematics: every
1 mm point is solved from the previous answer and the joints are sent as
pass-through targets every 10 ms. Made for seven-joint arms (kx_sim --model
BRIV); works on six-joint ones too.

    stream_circle_ik7.py [IP PORT]
"""
import ctypes
import math
import time

import kx_api
from _target import ready_pose, target

with kx_api.Arm(*target()) as arm:
    ready = [10, 40, 10, 80, 10, 50, 0] if arm.dof == 7 else ready_pose(arm.dof)
    arm.movej(ready, speed=30)
    start, q = arm.pose(), arm.joints()
    radius, step = 0.05, 0.001
    steps = math.ceil(2 * math.pi * radius / step)
    print(f"streaming a {radius * 1000:.0f} mm circle as {steps} joint targets 10 ms apart")
    joints = (ctypes.c_float * 7)()
    setpoint = kx_api.kx_movej_canfd_mode_t(joint=joints)
    largest, t0 = 0.0, time.monotonic()
    for i in range(1, steps + 1):
        a = 2 * math.pi * i / steps
        goal = list(start)
        goal[0] += radius * (math.cos(a) - 1)
        goal[1] += radius * math.sin(a)
        nxt = arm.inverse_kinematics(goal, reference=q)
        largest = max(largest, max(abs(x - y) for x, y in zip(nxt, q)))
        q = nxt
        joints[:len(q)] = q
        arm.movej_canfd(setpoint)
        time.sleep(max(0.0, t0 + 0.01 * i - time.monotonic()))
    print(f"circle of {steps} points done; largest joint step {largest:.3f} deg")
