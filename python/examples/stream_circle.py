#!/usr/bin/env python3
"""Stream a small horizontal circle with pass-through Cartesian targets, one
every 10 ms, through the raw layer (kx_api.lib and the generated records).
Each target is first solved locally and checked: no joint may need to move
farther than its maximum speed allows in 10 ms, or the arm is stopped instead.

    stream_circle.py [HOST [PORT]]
"""
import math
import time

import kx_api
from _target import Limits, next_target, ready_pose, target, tick

with kx_api.Arm(*target()) as arm:
    limits = Limits(arm)
    arm.movej(ready_pose(arm, limits), speed=30)
    centre, prev = arm.pose(), arm.joints()
    radius, steps, period = 0.03, 200, 0.01
    print(f"streaming a {radius * 1000:.0f} mm circle, {steps} targets {period * 1000:.0f} ms apart")
    setpoint = kx_api.kx_movep_canfd_mode_t()
    setpoint.pose = kx_api.pose_record(centre)
    setpoint.pose.quaternion = kx_api.kx_quat_t(0, 0, 0, 0)  # not a unit quaternion: the Euler angles are sent
    largest, due = 0.0, time.monotonic()
    for i in range(1, steps + 1):
        a = 2 * math.pi * i / steps
        goal = list(centre)
        goal[0] += radius * (math.cos(a) - 1)
        goal[1] += radius * math.sin(a)
        prev, step = next_target(arm, limits, goal, prev, period, i)
        largest = max(largest, step)
        setpoint.pose.position.x, setpoint.pose.position.y = goal[0], goal[1]
        arm.movep_canfd(setpoint)  # kx_movep_canfd(handle, setpoint); raises unless 0
        due = tick(due, period)
    print(f"circle done; largest joint step {largest:.3f} deg; tool at", [round(v, 4) for v in arm.pose()[:3]])
