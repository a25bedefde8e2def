#!/usr/bin/env python3
"""Blocking and non-blocking moves, with the event callback reporting each
completed motion.

    move_with_events.py [HOST [PORT]]
"""
import threading

import kx_api
from _target import Limits, ready_pose, target

arrived = threading.Semaphore(0)


def on_event(event):  # on a library thread: keep it short
    if event["event_type"] == kx_api.KX_CURRENT_TRAJECTORY_STATE_E:
        print(f"  event: arm {event['handle_id']} motion {'arrived' if event['trajectory_state'] else 'was cut short'}")
        arrived.release()


kx_api.on_event(on_event)
with kx_api.Arm(*target()) as arm:
    limits = Limits(arm)
    ready = ready_pose(arm, limits)
    print("blocking movej to ready: returns once the arm has arrived")
    arm.movej(ready, speed=30)
    while arrived.acquire(blocking=False):
        pass
    left = list(ready)
    left[0] += 30 if left[0] + 30 <= limits.max[0] else -30
    print("non-blocking movej 30 degrees round: returns once accepted")
    arm.movej(left, speed=30, block=False)
    print("  accepted; waiting for the arrival event")
    if not arrived.acquire(timeout=30):
        raise SystemExit("no arrival event")
    goal = arm.pose()
    goal[2] -= 0.05
    print("blocking movel 5 cm down")
    arm.movel(goal, speed=20)
