"""kx_api against kx_sim: layout, connection, realtime callback, blocking
move, kinematics, errors."""
import ctypes
import gc
import math
import os
import random
import socket
import subprocess
import sys
import threading

import pytest

import kx_api

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "examples"))
import _target  # noqa: E402  the examples' helper


def test_every_record_has_the_c_layout():
    out = subprocess.run([os.environ["KX_LAYOUT_DUMP"]], check=True, capture_output=True, text=True).stdout
    checked = 0
    for line in out.splitlines():
        name, value = line.split()
        record, _, field = name.partition(".")
        cls = getattr(kx_api.ffi, record)
        got = getattr(cls, field).offset if field else ctypes.sizeof(cls)
        assert got == int(value), f"{name}: Python {got}, C {value}"
        checked += 1
    assert checked > 200
    names = {r.__name__ for r in kx_api.ffi.RECORDS}
    assert names >= {"kx_pose_t", "kx_realtime_arm_joint_state_t", "kx_err_t"}
    assert "kx_handle_t" not in names  # internal records stay out, as in the installed headers


def test_connects_reads_and_tells_arms_apart(sim):
    (host1, port1), (host2, port2) = sim
    with kx_api.Arm(host1, port1) as a, kx_api.Arm(host2, port2) as b:
        assert (a.id, a.dof) == (1, 6)
        assert (b.id, b.dof) == (2, 7)
        assert b.software()["product_version"].startswith("BRIV")
        assert len(b.joints()) == 7 and len(b.pose()) == 6
        assert b.info()["arm_dof"] == 7
        limits = (ctypes.c_float * 7)()
        b.get_joint_max_pos(limits)  # any C function taking the handle, by its name
        assert all(v > 0 for v in limits[:7])


def test_realtime_state_reaches_a_python_callback(sim):
    mine, done = {host: [] for host, _ in sim}, threading.Event()

    def on_state(state):
        got = mine.get(state.arm_ip)
        if got is not None and len(got) < 5:
            got.append(state)
            if all(len(v) == 5 for v in mine.values()):
                done.set()

    kx_api.on_realtime(on_state)
    del on_state
    gc.collect()  # the registration keeps the callback alive
    try:
        with kx_api.Arm(*sim[0]) as a, kx_api.Arm(*sim[1]) as b:
            assert done.wait(10)
            dof = {a.ip: a.dof, b.ip: b.dof}
    finally:
        kx_api.on_realtime(None)
    for host, states in mine.items():  # each datagram's joints: one per joint of its arm
        assert all(s.err_code == 0 and len(s.joints) == dof[host] and len(s.pose) == 6 for s in states)
    assert sorted(dof.values()) == [6, 7]
    q = kx_api.as_dict(mine[sim[1][0]][-1].record)["waypoint"]["quaternion"]
    assert math.isclose(q["w"] ** 2 + q["x"] ** 2 + q["y"] ** 2 + q["z"] ** 2, 1.0, abs_tol=1e-3)


@pytest.mark.parametrize("arm", [0, 1])
def test_blocking_move_and_kinematics_round_trip(sim, arm):
    events = []
    kx_api.on_event(events.append)
    try:
        with kx_api.Arm(*sim[arm]) as a:
            limits = _target.Limits(a)
            ready = _target.ready_pose(a, limits)
            # inside every range by a quarter of it, and far from singular configurations
            assert all(lo + (hi - lo) / 4 - 1 <= q <= hi - (hi - lo) / 4 + 1
                       for q, lo, hi in zip(ready, limits.min, limits.max) if hi - lo <= 360)
            fk, rng = a.forward_kinematics, random.Random(7)
            middle = [[rng.uniform(lo + (hi - lo) / 4, hi - (hi - lo) / 4) for lo, hi in zip(limits.min, limits.max)]
                      for _ in range(21)]
            typical = sorted(_target.dexterity(fk, q) for q in middle)[10]
            assert _target.dexterity(fk, ready) > 2 * typical
            a.movej(ready, speed=50)
            target = list(ready)
            target[0] += 15
            a.movej(target, speed=50)  # returns once arrived
            assert a.joints() == pytest.approx(target, abs=0.01)
            assert any(e["event_type"] == kx_api.KX_CURRENT_TRAJECTORY_STATE_E for e in events)

            pose = a.forward_kinematics(target)
            assert_same_pose(pose, a.pose())
            moved = list(pose)
            moved[2] -= 0.05
            q = a.inverse_kinematics(moved, reference=target)
            assert_same_pose(a.forward_kinematics(q), moved)
            a.movel(moved, speed=50)
            assert a.pose()[:3] == pytest.approx(moved[:3], abs=1e-3)
    finally:
        kx_api.on_event(None)


def test_errors_carry_their_code_and_function(sim):
    with kx_api.Arm(*sim[0]) as a:
        with pytest.raises(kx_api.KxError) as e:
            a.movej([0, 0, 1000, 0, 0, 0])  # beyond the joint's limit
        assert (e.value.code, e.value.function) == (1, "kx_movej")
        assert "refused" in str(e.value)
        with pytest.raises(kx_api.KxError) as e:
            a.set_joint_max_speed(99, 10.0)  # no joint 99
        assert (e.value.code, e.value.function) == (1, "kx_set_joint_max_speed")
        with pytest.raises(ValueError):
            a.movel([0, 0, 0])
        before = a.joints()
        for call in (a.movej, a.forward_kinematics, a.stream_joints, lambda q: a.inverse_kinematics(a.pose(), q)):
            with pytest.raises(ValueError, match="this arm has 6 joints, got 3 values"):
                call([10, 10, 10])  # never padded with zeros
            with pytest.raises(ValueError, match="this arm has 6 joints, got 7 values"):
                call(before + [0])
        assert a.joints() == before
        far = a.pose()
        far[0] += 10  # ten metres away
        with pytest.raises(kx_api.KxError) as e:
            a.inverse_kinematics(far)  # a local computation: not the controller's verdict
        assert (e.value.code, e.value.function) == (1, "kx_algo_inverse_kinematics")
        assert "no solution" in str(e.value) and "controller" not in str(e.value)
        assert "timeout" in kx_api.describe("kx_get_joint_max_speed", -2)
        assert kx_api.describe("no_such_function", 1).startswith("refused")
    host, port = sim[0]
    if host == "127.0.0.1":
        with kx_api.Arm("localhost", port) as a:  # a host name, resolved to IPv4
            assert a.ip == "127.0.0.1" and a.dof == 6
    with pytest.raises(ValueError, match="cannot resolve"):
        kx_api.Arm("", port)
    with socket.socket() as s:  # bound, not listening: nothing answers there
        s.bind(("127.0.0.1", 0))
        with pytest.raises(kx_api.KxError) as e:
            kx_api.Arm("127.0.0.1", s.getsockname()[1])
    assert (e.value.code, e.value.function) == (-1, "kx_create_robot_arm")
    kx_api.shutdown()


def assert_same_pose(a, b):
    """Same position, and same Euler angles up to whole turns."""
    assert a[:3] == pytest.approx(b[:3], abs=1e-3)
    for x, y in zip(a[3:], b[3:]):
        assert math.remainder(x - y, 2 * math.pi) == pytest.approx(0, abs=2e-3)
