#!/usr/bin/python3
"""The driver against the simulator: a fleet of ten arms from two kx_sim
processes (5 + 5, mixed 6- and 7-joint models), one driver node per arm.

The test starts the simulators itself, so that it can kill and restart one.
Every wait is on a condition with a generous deadline, never a fixed sleep.
"""
import collections
import math
import os
import signal
import socket
import subprocess
import threading
import time
import unittest
import xml.etree.ElementTree as ET

import actionlib
import rospy
import rostest
import tf2_ros
from actionlib_msgs.msg import GoalStatus
from diagnostic_msgs.msg import DiagnosticArray, DiagnosticStatus
from geometry_msgs.msg import PoseStamped, WrenchStamped
from kx_msgs.msg import ArmState, FollowJointTrajectoryAction, FollowJointTrajectoryGoal, FollowJointTrajectoryResult
from kx_msgs.srv import Gripper, MoveJoint, MoveLine, SetDigitalOutput
from sensor_msgs.msg import JointState
from std_srvs.srv import Trigger
from trajectory_msgs.msg import JointTrajectoryPoint

PUSH_HZ = 200.0  # push_cycle_ms 5
SIMS = [  # (port, models, editions): arm K of a simulator is at 127.0.0.K
    (28080, "AVEN,BRIV,CALD,FIRU,DUMO", "P,QS,QA,P,P"),
    (28081, "BRIV,AVEN,ESKA,GOLT,FIRU", "P,P,P,QS,P"),
]
ARMS = ["arm%d" % k for k in range(1, 11)]
DOF = {"AVEN": 6, "BRIV": 7, "CALD": 6, "FIRU": 7, "DUMO": 6, "GOLT": 6, "ESKA": 6}


def wait_for(cond, timeout, what):
    deadline = time.monotonic() + timeout
    while not cond():
        if time.monotonic() > deadline or rospy.is_shutdown():
            raise AssertionError("timed out after %.0f s waiting for %s" % (timeout, what))
        time.sleep(0.02)


def quat_matrix(x, y, z, w):
    return [[1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w), 0],
            [2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w), 0],
            [2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y), 0], [0, 0, 0, 1]]


def origin_matrix(joint):
    o = joint.find("origin")
    xyz = [float(v) for v in o.get("xyz").split()]
    r, p, y = [float(v) for v in o.get("rpy").split()]
    cr, sr, cp, sp, cy, sy = math.cos(r), math.sin(r), math.cos(p), math.sin(p), math.cos(y), math.sin(y)
    return [[cy * cp, cy * sp * sr - sy * cr, cy * sp * cr + sy * sr, xyz[0]],
            [sy * cp, sy * sp * sr + cy * cr, sy * sp * cr - cy * sr, xyz[1]],
            [-sp, cp * sr, cp * cr, xyz[2]], [0, 0, 0, 1]]


def matmul(a, b):
    return [[sum(a[i][k] * b[k][j] for k in range(4)) for j in range(4)] for i in range(4)]


def urdf_tool(urdf, q, tool):
    """The tool link's pose in the root link from the URDF's joints (revolute about z)."""
    by_child = {j.find("child").get("link"): j for j in urdf.findall("joint")}
    chain = []
    link = tool
    while link in by_child:
        chain.append(by_child[link])
        link = by_child[link].find("parent").get("link")
    m = [[float(i == j) for j in range(4)] for i in range(4)]
    for j in reversed(chain):
        m = matmul(m, origin_matrix(j))
        if j.get("type") == "revolute":
            a = q[j.get("name")]
            m = matmul(m, [[math.cos(a), -math.sin(a), 0, 0], [math.sin(a), math.cos(a), 0, 0],
                           [0, 0, 1, 0], [0, 0, 0, 1]])
    return m


class Arm(object):
    """What one driver publishes, as seen by a subscriber."""

    def __init__(self, ns, with_pose):
        self.ns = ns
        self.lock = threading.Lock()
        self.count = 0
        self.joints = None
        self.stamps = collections.deque(maxlen=4000)  # reception stamps of the last 20 s
        self.history = []  # (stamp, positions) while recording
        self.recording = False
        self.pose = None
        rospy.Subscriber("/%s/joint_states" % ns, JointState, self._on_joints, queue_size=2000,
                         tcp_nodelay=True)
        if with_pose:
            rospy.Subscriber("/%s/tool_pose" % ns, PoseStamped, self._on_pose, queue_size=10)

    def _on_joints(self, m):
        with self.lock:
            self.count += 1
            self.joints = m
            self.stamps.append(m.header.stamp.to_sec())
            if self.recording:
                self.history.append((m.header.stamp.to_sec(), list(m.position)))

    def published_between(self, t0, t1):
        with self.lock:
            return sum(1 for t in self.stamps if t0 <= t < t1)

    def _on_pose(self, m):
        self.pose = m

    def position(self):
        with self.lock:
            return list(self.joints.position) if self.joints else None

    def srv(self, name, kind):
        full = "/%s/%s" % (self.ns, name)
        rospy.wait_for_service(full, 30)
        return rospy.ServiceProxy(full, kind, persistent=True)


# Streamed steps stay within what a joint travels in 1 ms, the shortest period a controller
# measures: a simulator starved of CPU reads a backlog of targets at once, and would take
# them for a sender racing ahead. The pacing itself is checked in core_test.
class FleetTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        rospy.init_node("test_fleet")
        cls.sim_path = rospy.get_param("~kx_sim")
        cls.sims = []
        try:
            for i in range(len(SIMS)):
                cls.sims.append(cls.start_sim(i))
        except BaseException:
            cls.tearDownClass()  # unittest does not, when set-up fails: no simulator outlives the test
            raise
        # tool_pose only where a test reads it: the subscriber's own load stays small.
        cls.arms = {ns: Arm(ns, ns in ("arm1", "arm3", "arm6", "arm9")) for ns in ARMS}
        cls.diag = {}
        cls.diag_stamp = {}
        rospy.Subscriber("/diagnostics", DiagnosticArray, cls.on_diag, queue_size=100)
        cls.tf = tf2_ros.Buffer()
        cls.tf_listener = tf2_ros.TransformListener(cls.tf)
        wait_for(lambda: all(a.count > 0 for a in cls.arms.values()), 90, "joint_states of all ten arms")

    @classmethod
    def tearDownClass(cls):
        for p in cls.sims:
            p.send_signal(signal.SIGTERM)
            p.wait(10)

    @classmethod
    def start_sim(cls, i):
        port, models, editions = SIMS[i]
        # What the simulators refuse, and why, is kept for the checks and for whoever reads the logs.
        log = open(os.path.join(os.environ.get("ROS_HOME", "/tmp"), "kx_sim_%d.log" % port), "ab")
        p = subprocess.Popen([cls.sim_path, "--arms", "5", "--model", models, "--edition", editions,
                              "--port", str(port)], stdout=subprocess.PIPE, stderr=log)
        log.close()
        try:
            for _ in range(5):  # one "listening" line per arm once it serves
                assert b"listening" in p.stdout.readline(), "kx_sim did not start (see %s)" % log.name
        except BaseException:
            p.kill()
            p.wait()
            raise
        return p

    @classmethod
    def on_diag(cls, m):
        for s in m.status:
            cls.diag[s.name] = s
            cls.diag_stamp[s.name] = m.header.stamp.to_sec()

    def refused(self, ns):
        """The driver's count of refused streamed targets, from a report published from now on."""
        name = "kx_driver/" + ns
        t = rospy.Time.now().to_sec()
        wait_for(lambda: self.diag_stamp.get(name, 0) > t, 10, "%s diagnostics" % ns)
        return int({kv.key: kv.value for kv in self.diag[name].values}["refused streamed targets"])

    def assert_sim_took_every_target(self):
        """No simulator refused a streamed target for its speed (its error 0x500A)."""
        for port, _, _ in SIMS:
            with open(os.path.join(os.environ.get("ROS_HOME", "/tmp"), "kx_sim_%d.log" % port)) as f:
                speeding = [line for line in f if "would move" in line]
            self.assertEqual(speeding, [], "kx_sim on port %d refused streamed targets" % port)

    def level(self, ns):
        s = self.diag.get("kx_driver/" + ns)
        return None if s is None else ord(s.level) if isinstance(s.level, bytes) else s.level

    def model(self, ns):
        port, models, _ = SIMS[(int(ns[3:]) - 1) // 5]
        return models.split(",")[(int(ns[3:]) - 1) % 5]

    def move_joint(self, ns, q, speed=50, wait=True):
        r = self.arms[ns].srv("move_joint", MoveJoint)(positions=q, speed=speed, wait=wait)
        self.assertTrue(r.success, "%s move_joint: %s" % (ns, r.message))
        return r

    # ---- tests, run in name order ----

    def test_1_rates_names_description(self):
        # Counted by the drivers' reception stamps, so that this process's own
        # delays do not count against them.
        arms = self.arms.values()
        t0 = rospy.Time.now().to_sec() + 0.5
        window = 4.0
        wait_for(lambda: all(a.stamps and a.stamps[-1] > t0 + window + 0.2 for a in arms), 30, "a 4 s window")
        for a in arms:
            rate = a.published_between(t0, t0 + window) / window
            self.assertGreaterEqual(rate, 0.95 * PUSH_HZ, "%s joint_states at %.1f Hz" % (a.ns, rate))
            dof = DOF[self.model(a.ns)]
            names = ["%s_joint_%d" % (a.ns, i + 1) for i in range(dof)]
            self.assertEqual(list(a.joints.name), names)
            urdf = ET.fromstring(rospy.get_param("/%s/robot_description" % a.ns))
            revolute = [j.get("name") for j in urdf.findall("joint") if j.get("type") == "revolute"]
            self.assertEqual(revolute, names)
        # Only arms with a force sensor publish a wrench: arm2 a six-axis one, arm3 Fz only.
        topics = dict(rospy.get_published_topics())
        self.assertIn("/arm9/wrench", topics)
        self.assertNotIn("/arm1/wrench", topics)
        w = rospy.wait_for_message("/arm2/wrench", WrenchStamped, 10)
        self.assertEqual(w.header.frame_id, "arm2_tool0")
        w = rospy.wait_for_message("/arm3/wrench", WrenchStamped, 10)
        self.assertEqual((w.wrench.force.x, w.wrench.force.y, w.wrench.torque.z), (0.0, 0.0, 0.0))
        state = rospy.wait_for_message("/arm6/arm_state", ArmState, 10)
        self.assertTrue(state.connected)
        self.assertEqual(list(state.joint_names), ["arm6_joint_%d" % (i + 1) for i in range(7)])
        self.assertEqual(len(state.joint_enabled), 7)
        self.assertEqual(state.trajectory_state_name, "idle")
        wait_for(lambda: all(self.level(ns) == DiagnosticStatus.OK for ns in ARMS), 10, "diagnostics OK")

    def test_2_description_and_tf_match_tool_pose(self):
        # Every arm to a pose a third of the way through its joint ranges, read from its URDF.
        urdfs = {ns: ET.fromstring(rospy.get_param("/%s/robot_description" % ns)) for ns in ARMS}
        targets = {}
        for ns, urdf in urdfs.items():
            limits = [j.find("limit") for j in urdf.findall("joint") if j.get("type") == "revolute"]
            targets[ns] = [float(l.get("lower")) + 0.35 * (float(l.get("upper")) - float(l.get("lower")))
                           for l in limits]
            self.move_joint(ns, targets[ns], speed=100, wait=False)
        for ns, q in targets.items():
            arm = self.arms[ns]
            wait_for(lambda: max(abs(a - b) for a, b in zip(arm.position(), q)) < 1e-3, 20, ns + " at its target")
        for ns, q in targets.items():
            # The URDF's own chain (what robot_state_publisher and RViz compute) gives tool_pose.
            pose = rospy.wait_for_message("/%s/tool_pose" % ns, PoseStamped, 5)
            got = urdf_tool(urdfs[ns], dict(zip(["%s_joint_%d" % (ns, i + 1) for i in range(len(q))], q)),
                            "%s_tool0" % ns)
            p = pose.pose.position
            err = math.sqrt((got[0][3] - p.x) ** 2 + (got[1][3] - p.y) ** 2 + (got[2][3] - p.z) ** 2)
            self.assertLess(err, 1e-3, "%s (%s): URDF tool frame %.4f m from tool_pose" % (ns, self.model(ns), err))
            o = pose.pose.orientation
            want = quat_matrix(o.x, o.y, o.z, o.w)
            turn = max(abs(got[r][c] - want[r][c]) for r in range(3) for c in range(3))
            self.assertLess(turn, 1e-3, "%s: URDF tool orientation differs from tool_pose" % ns)
        # tf: robot_state_publisher's tool frame on arm1 (6 joints) and arm6 (7 joints), the
        # driver's own on arm3.
        for ns in ("arm1", "arm6", "arm3"):
            arm = self.arms[ns]
            start = arm.pose.header.stamp
            wait_for(lambda: arm.pose.header.stamp > start, 5, ns + " tool_pose")
            p = arm.pose.pose.position
            t = self.tf.lookup_transform("%s_base_link" % ns, "%s_tool0" % ns, rospy.Time(0), rospy.Duration(5))
            d = t.transform.translation
            err = math.sqrt((p.x - d.x) ** 2 + (p.y - d.y) ** 2 + (p.z - d.z) ** 2)
            self.assertLess(err, 1e-3, "%s: tf tool frame %.4f m from tool_pose" % (ns, err))
            self.assertGreater(math.sqrt(p.x ** 2 + p.y ** 2), 0.05)  # a real pose, not the origin

    def test_3_action_moves_with_feedback_and_rejects_bad_goals(self):
        ns = "arm2"
        arm = self.arms[ns]
        client = actionlib.SimpleActionClient("/%s/follow_joint_trajectory" % ns, FollowJointTrajectoryAction)
        self.assertTrue(client.wait_for_server(rospy.Duration(30)))
        names = ["%s_joint_%d" % (ns, i + 1) for i in range(7)]
        q0 = arm.position()

        def goal(points, joint_names=names):
            g = FollowJointTrajectoryGoal()
            g.trajectory.joint_names = joint_names
            for t, q in points:
                g.trajectory.points.append(JointTrajectoryPoint(positions=q, time_from_start=rospy.Duration(t)))
            return g

        bad = {
            "unknown joint": (goal([(1.0, q0)], names[:-1] + ["elbow"]), FollowJointTrajectoryResult.INVALID_JOINTS),
            "beyond a limit": (goal([(1.0, [q0[0] + 20.0] + q0[1:])]), FollowJointTrajectoryResult.INVALID_GOAL),
            "too fast": (goal([(0.01, [q0[0] + 1.0] + q0[1:])]), FollowJointTrajectoryResult.INVALID_GOAL),
        }
        for why, (g, code) in bad.items():
            client.send_goal(g)
            self.assertTrue(client.wait_for_result(rospy.Duration(10)), why)
            self.assertEqual(client.get_state(), GoalStatus.REJECTED, why)
            self.assertEqual(client.get_result().error_code, code, why)
        self.assertLess(max(abs(a - b) for a, b in zip(arm.position(), q0)), 1e-4, "a rejected goal moved the arm")

        # The goal lists the joints in another order than joint_states.
        q1 = [q + 0.3 for q in q0]
        q2 = [q - 0.1 for q in q0]
        order = list(reversed(range(7)))
        g = goal([(1.0, [q1[i] for i in order]), (2.0, [q2[i] for i in order])], [names[i] for i in order])
        feedback = []
        client.send_goal(g, feedback_cb=feedback.append)
        self.assertTrue(client.wait_for_result(rospy.Duration(30)))
        self.assertEqual(client.get_state(), GoalStatus.SUCCEEDED, client.get_goal_status_text())
        self.assertEqual(client.get_result().error_code, FollowJointTrajectoryResult.SUCCESSFUL)
        self.assertGreater(len(feedback), 10)
        mid = [f for f in feedback if 0.9 < f.desired.time_from_start.to_sec() < 1.1]
        self.assertTrue(mid, "feedback around the first point")
        self.assertEqual(list(mid[0].joint_names), names)
        for f in mid:
            self.assertLess(max(abs(a - b) for a, b in zip(f.desired.positions, q1)), 0.05)
            self.assertLess(max(abs(e) for e in f.error.positions), 0.05)
        wait_for(lambda: max(abs(a - b) for a, b in zip(arm.position(), q2)) < 0.01, 10, "arm2 at the goal")

        # Cancelling stops the arm part-way.
        client.send_goal(goal([(3.0, q0)]))
        wait_for(lambda: abs(arm.position()[0] - q2[0]) > 0.02, 10, "the arm moving")
        client.cancel_goal()
        self.assertTrue(client.wait_for_result(rospy.Duration(10)))
        self.assertEqual(client.get_state(), GoalStatus.PREEMPTED)
        self.assertGreater(abs(arm.position()[0] - q0[0]), 0.02, "the cancelled goal still arrived")

        # So does the stop service, which ends the goal.
        here = arm.position()
        client.send_goal(goal([(3.0, [q + 0.5 for q in here])]))
        wait_for(lambda: abs(arm.position()[0] - here[0]) > 0.02, 10, "the arm moving")
        self.assertTrue(arm.srv("stop", Trigger)().success)
        self.assertTrue(client.wait_for_result(rospy.Duration(10)))
        self.assertEqual(client.get_state(), GoalStatus.ABORTED)
        self.assertEqual(client.get_result().error_code, FollowJointTrajectoryResult.STOPPED)
        self.assertLess(abs(arm.position()[0] - here[0]), 0.4)
        self.assert_sim_took_every_target()  # neither the goals nor their cancel and stop outran a joint

    def test_4_stop_halts_within_100ms(self):
        ns = "arm3"
        arm = self.arms[ns]
        stop = arm.srv("stop", Trigger)
        q0 = arm.position()
        self.move_joint(ns, [q0[0] + 1.2] + q0[1:], speed=10, wait=False)
        wait_for(lambda: abs(arm.position()[0] - q0[0]) > 0.05, 10, "arm3 moving")
        with arm.lock:
            arm.history = []
            arm.recording = True
        requested = rospy.Time.now().to_sec()
        r = stop()
        answered = rospy.Time.now().to_sec()
        self.assertTrue(r.success, r.message)
        wait_for(lambda: arm.history and arm.history[-1][0] > answered + 0.6, 10, "joint_states after the stop")
        with arm.lock:
            arm.recording = False
            history = list(arm.history)
        settled = [q for t, q in history if t >= answered + 0.1]
        self.assertTrue(settled)
        for q in settled:
            self.assertLess(max(abs(a - b) for a, b in zip(q, settled[0])), 1e-6, "still moving 100 ms after stop")
        moving_after = [t for (t, q), (_, q_next) in zip(history, history[1:]) if q != q_next]
        halt = (max(moving_after) if moving_after else requested) - requested
        rospy.loginfo("stop: halted %.1f ms after the request (service answered after %.1f ms)",
                      halt * 1e3, (answered - requested) * 1e3)
        self.assertLess(abs(settled[0][0] - q0[0]), 1.1, "the arm was not stopped part-way")

    def test_5_streaming_commands(self):
        ns = "arm4"
        arm = self.arms[ns]
        q0 = arm.position()
        pub = rospy.Publisher("/%s/joint_command" % ns, JointState, queue_size=100)
        wait_for(lambda: pub.get_num_connections() > 0, 10, "joint_command subscriber")
        rate = rospy.Rate(100)
        for k in range(1, 81):
            pub.publish(JointState(position=[q0[0] + 0.0025 * k] + q0[1:]))
            rate.sleep()
        wait_for(lambda: abs(arm.position()[0] - (q0[0] + 0.2)) < 1e-3, 10, "arm4 following joint_command")
        # A target beyond the speed limits is refused and counted: the arm stays, the controller raises nothing.
        before = arm.position()
        refused = self.refused(ns)
        pub.publish(JointState(position=[before[0] + 1.5] + before[1:]))
        wait_for(lambda: self.refused(ns) == refused + 1, 10, "arm4 counting the refused target")
        self.assertLess(abs(arm.position()[0] - before[0]), 1e-4, "a jump beyond the speed limit was streamed")
        self.assertEqual(list(rospy.wait_for_message("/%s/arm_state" % ns, ArmState, 10).errors), [])

        self.assert_sim_took_every_target()

        # pose_command: the tool follows a Cartesian target 1 mm at a time.
        ns = "arm1"  # moved off its straight pose by test_2
        arm = self.arms[ns]
        pub = rospy.Publisher("/%s/pose_command" % ns, PoseStamped, queue_size=100)
        wait_for(lambda: pub.get_num_connections() > 0, 10, "pose_command subscriber")
        start = arm.pose
        for k in range(1, 21):
            p = PoseStamped()
            p.header.frame_id = "%s_base_link" % ns
            p.pose.position.x = start.pose.position.x
            p.pose.position.y = start.pose.position.y
            p.pose.position.z = start.pose.position.z - 0.001 * k
            p.pose.orientation = start.pose.orientation
            pub.publish(p)
            rate.sleep()
        wait_for(lambda: abs(arm.pose.pose.position.z - (start.pose.position.z - 0.02)) < 5e-4, 10,
                 "arm1 tool following pose_command")
        self.assert_sim_took_every_target()

        # A controller that refuses a target (sent here behind the driver's back, on a connection
        # that replaces the driver's) is reported, and the driver sends no target while the error holds.
        ns = "arm5"
        arm = self.arms[ns]
        states = []
        sub = rospy.Subscriber("/%s/arm_state" % ns, ArmState, states.append, queue_size=100)
        q0 = arm.position()
        jump = [int(round(math.degrees(q) * 1000)) for q in q0]
        jump[0] += 20000 if q0[0] < 0 else -20000  # 20 deg at once
        with socket.create_connection(("127.0.0.5", SIMS[0][0]), 5) as c:
            c.sendall(b'{"command":"movej_canfd","joint":[%s]}\r\n' % ",".join(map(str, jump)).encode())
            wait_for(lambda: states and 0x500A in states[-1].errors, 10, "arm5 arm_state reporting 0x500A")
            wait_for(lambda: self.level(ns) == DiagnosticStatus.ERROR, 10, "arm5 diagnostics ERROR")
            self.assertIn("clear_errors", self.diag["kx_driver/" + ns].message)
            pub = rospy.Publisher("/%s/joint_command" % ns, JointState, queue_size=10)
            wait_for(lambda: pub.get_num_connections() > 0, 10, "joint_command subscriber")
            refused = self.refused(ns)
            pub.publish(JointState(position=[q0[0] + 0.001] + q0[1:]))
            wait_for(lambda: self.refused(ns) == refused + 1, 10, "arm5 refusing targets while the error holds")
            c.sendall(b'{"command":"clear_system_err"}\r\n')
            wait_for(lambda: states and not states[-1].errors, 10, "arm5 arm_state without errors")
            wait_for(lambda: self.level(ns) == DiagnosticStatus.OK, 10, "arm5 diagnostics OK again")
        sub.unregister()

    def test_6_services(self):
        ns = "arm9"  # a six-axis force sensor edition
        arm = self.arms[ns]
        self.move_joint(ns, [0.0, 0.4, 0.9, 0.0, 0.5, 0.0], speed=80)
        for name in ("pause", "resume", "clear_errors"):
            r = arm.srv(name, Trigger)()
            self.assertTrue(r.success, "%s: %s" % (name, r.message))
        r = arm.srv("set_digital_output", SetDigitalOutput)(channel=1, value=True)
        self.assertTrue(r.success, r.message)
        self.assertEqual(r.code, 0)
        r = arm.srv("gripper", Gripper)(position=300, force=0, wait=True)
        self.assertTrue(r.success, r.message)
        r = arm.srv("gripper", Gripper)(position=0, force=200, wait=True)  # close on whatever is there
        self.assertTrue(r.success, r.message)
        r = arm.srv("gripper", Gripper)(position=0, force=0, wait=False)
        self.assertFalse(r.success)
        self.assertNotEqual(r.code, 0)
        start = arm.pose.pose
        target = PoseStamped().pose
        target.position.x, target.position.y = start.position.x, start.position.y
        target.position.z = start.position.z - 0.03
        target.orientation = start.orientation
        r = arm.srv("move_line", MoveLine)(pose=target, speed=50, wait=True)
        self.assertTrue(r.success, r.message)
        wait_for(lambda: abs(arm.pose.pose.position.z - target.position.z) < 1e-3, 10, "arm9 at the move_line target")
        r = arm.srv("move_joint", MoveJoint)(positions=[0.0] * 5, speed=50, wait=True)  # wrong joint count
        self.assertFalse(r.success)
        self.assertEqual(r.code, -1)

    def test_7_survives_controller_restart(self):
        watched = self.arms["arm6"]
        # A goal in flight on arm7 when its controller dies is aborted.
        client = actionlib.SimpleActionClient("/arm7/follow_joint_trajectory", FollowJointTrajectoryAction)
        self.assertTrue(client.wait_for_server(rospy.Duration(30)))
        q0 = self.arms["arm7"].position()
        g = FollowJointTrajectoryGoal()
        g.trajectory.joint_names = ["arm7_joint_%d" % (i + 1) for i in range(len(q0))]
        g.trajectory.points.append(JointTrajectoryPoint(positions=[q + 0.5 for q in q0],
                                                        time_from_start=rospy.Duration(5.0)))
        client.send_goal(g)
        wait_for(lambda: abs(self.arms["arm7"].position()[0] - q0[0]) > 0.01, 10, "arm7 moving")

        states = []
        sub = rospy.Subscriber("/arm6/arm_state", ArmState, states.append, queue_size=100)
        self.sims[1].send_signal(signal.SIGKILL)
        self.sims[1].wait(10)
        self.assertTrue(client.wait_for_result(rospy.Duration(15)))
        self.assertEqual(client.get_state(), GoalStatus.ABORTED)
        self.assertEqual(client.get_result().error_code, FollowJointTrajectoryResult.CONNECTION_LOST)
        wait_for(lambda: self.level("arm6") == DiagnosticStatus.ERROR, 10, "arm6 diagnostics ERROR")
        self.assertEqual(self.level("arm1"), DiagnosticStatus.OK)  # the other simulator's arms carry on

        self.sims[1] = self.start_sim(1)
        n = watched.count
        wait_for(lambda: watched.count > n + 100, 20, "arm6 joint_states after the restart")
        wait_for(lambda: self.level("arm6") == DiagnosticStatus.OK, 10, "arm6 diagnostics OK again")
        sub.unregister()
        self.assertIn(False, [m.connected for m in states])  # arm_state said so while it was away
        self.assertTrue(states[-1].connected)
        self.move_joint("arm6", [0.2] * 7, speed=80)
        wait_for(lambda: abs(watched.position()[0] - 0.2) < 1e-3, 10, "arm6 moving after the restart")


if __name__ == "__main__":
    rostest.rosrun("kx_driver", "fleet", FleetTest)
