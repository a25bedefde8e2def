#!/usr/bin/env python3
"""Stream a small horizontal circle with pass-through targets, one every
10 ms, through the raw layer (kx_api.lib and the generated records).

    stream_circle.py [IP PORT]
"""
import math
import time

import kx_api
from _target import ready_pose, target

with kx_api.Arm(*target()) as arm:
    arm.movej(ready_pose(arm.dof), speed=30)
    centre = arm.pose()
    radius, steps = 0.03, 200
    print(f"streaming a {radius * 1000:.0f} mm circle, {steps} targets 10 ms apart")
    setpoint = kx_api.kx_movep_canfd_mode_t()
    setpoint.pose = kx_api.pose_record(centre)
    setpoint.pose.quaternion = kx_api.kx_quat_t(0, 0, 0, 0)  # not a unit quaternion: the Euler angles are sent
    start = time.monotonic()
    for i in range(steps + 1):
        a = 2 * math.pi * i / steps
        setpoint.pose.position.x = centre[0] + radius * (math.cos(a) - 1)
        setpoint.pose.position.y = centre[1] + radius * math.sin(a)
        arm.movep_canfd(setpoint)  # kx_movep_canfd(handle, setpoint); raises unless 0
        time.sleep(max(0.0, start + 0.01 * (i + 1) - time.monotonic()))
    print("circle done; tool at", [round(v, 4) for v in arm.pose()[:3]])
