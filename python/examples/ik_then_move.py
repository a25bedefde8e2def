#!/usr/bin/env python3
"""Compute joint angles for a Cartesian target locally, then move there.

    ik_then_move.py [HOST [PORT]]
"""
import math

import kx_api
from _target import Limits, ready_pose, target

with kx_api.Arm(*target()) as arm:
    ready = ready_pose(arm, Limits(arm))
    print(f"connected: {arm.dof} joints; moving to ready", [round(v, 2) for v in ready])
    arm.movej(ready, speed=30)
    goal = arm.pose()
    goal[1] += 0.08  # 8 cm sideways, same orientation
    print("solving for the tool at", [round(v, 4) for v in goal[:3]])
    q = arm.inverse_kinematics(goal)
    print("solution [deg]:", [round(v, 2) for v in q])
    arm.movej(q, speed=30)
    miss = math.dist(arm.pose()[:3], goal[:3])
    print(f"tool {miss * 1000:.2f} mm from the target")
    raise SystemExit(0 if miss < 0.001 else 1)
