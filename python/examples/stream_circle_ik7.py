#!/usr/bin/env python3
"""Stream a Cartesian circle through the local inverse kinematics: every
1 mm point is solved from the previous answer and the joints are sent as
pass-through targets every 10 ms. No target may move a joint farther than its
maximum speed allows in 10 ms: the example stops the arm instead and fails.
Made for seven-joint arms (kx_sim --model BRIV); works on six-joint ones too.

    stream_circle_ik7.py [HOST [PORT]]
"""
import math
import time

import kx_api
from _target import Limits, next_target, ready_pose, target, tick

with kx_api.Arm(*target()) as arm:
    limits = Limits(arm)
    arm.movej(ready_pose(arm, limits), speed=30)
    start, q = arm.pose(), arm.joints()
    radius, step, period = 0.05, 0.001, 0.01
    steps = math.ceil(2 * math.pi * radius / step)
    print(f"streaming a {radius * 1000:.0f} mm circle as {steps} joint targets {period * 1000:.0f} ms apart")
    largest, due = 0.0, time.monotonic()
    for i in range(1, steps + 1):
        a = 2 * math.pi * i / steps
        goal = list(start)
        goal[0] += radius * (math.cos(a) - 1)
        goal[1] += radius * math.sin(a)
        q, step = next_target(arm, limits, goal, q, period, i)
        largest = max(largest, step)
        arm.stream_joints(q)
        due = tick(due, period)
    bound = min(limits.speed) * period
    print(f"circle of {steps} points done; largest joint step {largest:.3f} deg (allowed {bound:.3f} deg per 10 ms)")
