"""What the Python examples share, as the C examples' example_arm.h does:
where to connect ([HOST [PORT]] on the command line: an IPv4 address or a
host name, default 127.0.0.1, and a port, default 8080, where kx_sim listens
unless told otherwise), the arm's joint limits, a ready pose chosen for the arm
at hand, and a guard that keeps streamed targets within what each joint can do.

Exit status: 0 done, 1 a call or one of the example's own checks failed,
2 a bad command line.
"""
import ctypes
import math
import os
import sys
import time

import kx_api


def target(usage="[HOST [PORT]]"):
    """(host, port) from the command line."""
    prog, args = os.path.basename(sys.argv[0]), sys.argv[1:]
    if args and args[0] in ("-h", "--help"):
        print(f"usage: {prog} {usage}")
        sys.exit(0)
    port = 8080
    if len(args) > 1:
        if not args[1].isdigit() or not 1 <= int(args[1]) <= 65535:
            print(f"{prog}: PORT must be a number from 1 to 65535\nusage: {prog} {usage}", file=sys.stderr)
            sys.exit(2)
        port = int(args[1])
    return (args[0] if args else "127.0.0.1"), port


class Limits:
    """Each joint's range (degrees) and maximum speed (degrees per second)."""

    def __init__(self, arm):
        read = {}
        for name in ("min_pos", "max_pos", "max_speed"):
            buf = (ctypes.c_float * 7)()
            getattr(arm, "get_joint_" + name)(buf)  # kx_get_joint_...; raises unless 0
            read[name] = list(buf[:arm.dof])
        self.min, self.max, self.speed = read["min_pos"], read["max_pos"], read["max_speed"]


def _rotation(rx, ry, rz):
    """R = Rz(rz) Ry(ry) Rx(rx), rows."""
    cx, sx, cy, sy, cz, sz = math.cos(rx), math.sin(rx), math.cos(ry), math.sin(ry), math.cos(rz), math.sin(rz)
    return [[cz * cy, cz * sy * sx - sz * cx, cz * sy * cx + sz * sx],
            [sz * cy, sz * sy * sx + cz * cx, sz * sy * cx - cz * sx],
            [-sy, cy * sx, cy * cx]]


def _abs_det(m):
    m = [row[:] for row in m]
    det, n = 1.0, len(m)
    for c in range(n):
        p = max(range(c, n), key=lambda r: abs(m[r][c]))
        if m[p][c] == 0:
            return 0.0
        m[c], m[p] = m[p], m[c]
        det *= m[c][c]
        for r in range(c + 1, n):
            f = m[r][c] / m[c][c]
            for k in range(c, n):
                m[r][k] -= f * m[c][k]
    return abs(det)


def dexterity(fk, q):
    """How far configuration q is from every singular one, from 0 (singular)
    to 1: the Jacobian's |det| over the product of its column lengths (linear
    rows divided by a typical reach of 0.5 m); a seven-joint arm takes the
    smallest value over its six-joint subsets."""
    h, reach = 0.5, 0.5
    rad = math.radians(h)
    p0 = fk(q)
    r0 = _rotation(*p0[3:])
    cols = []
    for j in range(len(q)):
        qj = list(q)
        qj[j] += h
        p1 = fk(qj)
        r1 = _rotation(*p1[3:])
        w = [[sum(r1[r][k] * r0[c][k] for k in range(3)) for c in range(3)] for r in range(3)]
        cols.append([(p1[i] - p0[i]) / rad / reach for i in range(3)] +
                    [(w[2][1] - w[1][2]) / 2 / rad, (w[0][2] - w[2][0]) / 2 / rad, (w[1][0] - w[0][1]) / 2 / rad])
    worst = math.inf
    for drop in (range(7) if len(q) == 7 else [None]):
        sub = [c for j, c in enumerate(cols) if j != drop]
        lengths = math.prod(math.sqrt(sum(v * v for v in c)) for c in sub)
        d = _abs_det([list(row) for row in zip(*sub)]) / lengths if lengths > 0 else 0.0
        worst = min(worst, d)
    return worst


def ready_pose(arm, limits):
    """A ready configuration for this arm, in degrees, chosen as the C
    examples choose it: every joint a quarter of its range or more from either
    end (within +-180), the tool above the base and away from its axis, and of
    those candidates the one farthest from every singular configuration."""
    lo = [max(v, -180.0) for v in limits.min]
    hi = [min(v, 180.0) for v in limits.max]
    mid = [float(round((a + b) / 2)) for a, b in zip(lo, hi)]
    step = [math.floor((b - a) / 8) for a, b in zip(lo, hi)]
    buf = (ctypes.c_float * 7)()

    def fk(q):
        buf[:len(q)] = q
        return kx_api.pose_list(kx_api.lib.kx_algo_forward_kinematics(arm.handle, buf))

    best, ready = -1.0, list(mid)
    inner = arm.dof - 2
    for n in range(5 ** inner):
        c, rest = list(mid), n
        for j in range(1, inner + 1):
            c[j] = mid[j] + (rest % 5 - 2) * step[j]
            rest //= 5
        x, y, z = fk(c)[:3]
        if z < 0.15 or math.hypot(x, y) < 0.2:
            continue
        d = dexterity(fk, c)
        if d > best:
            best, ready = d, c
    if best < 0:
        print("warning: the library's kinematics gives no pose for this arm: using the middle of every joint's "
              "range as the ready pose", file=sys.stderr)
    return ready


def next_target(arm, limits, goal, prev, period_s, index):
    """The next target of a Cartesian stream: (joints for tool pose `goal`,
    solved locally next to `prev`, the previous target; the largest joint
    step), checked by step_guard. Stops the arm and ends the example with
    status 1 when there is no solution or the step is too large."""
    try:
        q = arm.inverse_kinematics(goal, reference=prev)
    except kx_api.KxError as e:
        arm.stop()
        sys.exit(f"STOPPED: target {index} has no joint solution ({e}); the arm is stopped")
    return q, step_guard(arm, limits, prev, q, period_s, index)


def step_guard(arm, limits, prev, nxt, period_s, index):
    """Largest joint step from prev to nxt; when a joint would move farther
    than its maximum speed allows in one period, stops the arm, says which
    joint and both numbers, and ends the example with status 1."""
    for j, (a, b) in enumerate(zip(prev, nxt)):
        bound = limits.speed[j] * period_s
        if abs(b - a) > bound:
            arm.stop()
            sys.exit(f"STOPPED: target {index} would move joint {j + 1} by {abs(b - a):.3f} deg in "
                     f"{period_s * 1000:.0f} ms, more than its {bound:.3f} deg (maximum speed {limits.speed[j]:.1f} "
                     "deg/s); the arm is stopped instead")
    return max(abs(b - a) for a, b in zip(prev, nxt))


def tick(due, period_s):
    """Sleeps until due + period_s (time.monotonic) and returns that time: a
    steady cadence for streamed targets. After a late wake-up the cadence
    restarts from now instead of catching up, so two targets are never closer
    than the period. Start with due = time.monotonic()."""
    due += period_s
    now = time.monotonic()
    if due <= now:
        return now
    time.sleep(due - now)
    return due
