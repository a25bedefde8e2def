#!/usr/bin/env python3
"""Connect to one controller and read its identity and state once.

    connect_and_read.py [HOST [PORT]]
"""
import kx_api
from _target import target

ip, port = target()
print(f"connecting to {ip}:{port}")
with kx_api.Arm(ip, port) as arm:
    print(f"connected: handle {arm.id}, {arm.dof} joints")
    sw = arm.software()
    print(f"product {sw['product_version']}, controller {sw['ctrl_info']['version']} ({sw['ctrl_info']['build_time']})")
    print("joints [deg]:", " ".join(f"{q:.2f}" for q in arm.joints()))
    print("tool [m, rad]:", " ".join(f"{v:.4f}" for v in arm.pose()))
