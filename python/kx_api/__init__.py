"""Python binding of libapi_c: command and monitor robot-arm controllers.

Pure Python over ctypes. Two layers:

* the raw layer, generated from the C headers: every record (``kx_pose_t``,
  ``kx_realtime_arm_joint_state_t``, ...) as a ctypes Structure with the C
  layout, every enumeration and constant, and ``lib``, the loaded library with
  every ``kx_`` function's argument and result types set;
* a thin Pythonic layer: :class:`Arm` (a context manager around one
  connection), :class:`KxError` (a non-zero result code with the function
  that returned it), joints and poses as plain lists, and callbacks that stay
  alive while registered.

Example::

    import kx_api
    with kx_api.Arm("127.0.0.1", 8080) as arm:
        q = arm.joints()                  # degrees, one per joint
        q[0] += 10
        arm.movej(q, speed=20)            # blocks until the arm arrives
        print(arm.pose())                 # [x, y, z] metres + [rx, ry, rz] radians

Errors::

    try:
        arm.movej([0, 0, 1000, 0, 0, 0])  # beyond joint 3's range
    except kx_api.KxError as e:           # a non-zero result code
        print(e.function, e.code, e)      # kx_movej 1 kx_movej returned 1: the
                                          # controller refused the motion, ...
    arm.movej([10, 10, 10])               # ValueError: joints: this arm has 6
                                          # joints, got 3 values
    arm.inverse_kinematics(far_away)      # KxError: kx_algo_inverse_kinematics
                                          # returned 1: no solution (out of reach, ...)

A KxError's text is the meaning that the returning function documents for
its code (kx_api.RESULTS), so the same code reads differently from a local
computation and from the controller. Arm() raises KxError -1 when nothing
answers and ValueError for a host name that does not resolve.

Units follow the C interface: joints in degrees, positions in metres, Euler
angles in radians (fixed-axis roll-pitch-yaw), speeds in percent.
"""
import ctypes
import os
import socket
import threading

from . import _ffi as ffi
from ._ffi import *  # noqa: F401,F403  records, enumerations, constants, callback types

__all__ = ["Arm", "KxError", "lib", "ffi", "init", "shutdown", "version", "on_realtime", "on_event",
           "set_log", "as_dict", "State", "pose_record", "pose_list", "RESULTS", "describe"]

# ---- the library -----------------------------------------------------------


def _library_path():
    """KX_API_LIBRARY, else where the build or the install put it, else the
    system's search path."""
    if os.environ.get("KX_API_LIBRARY"):
        return os.environ["KX_API_LIBRARY"]
    try:
        from . import _location
        path = os.path.normpath(os.path.join(os.path.dirname(__file__), _location.LIBRARY))
        if os.path.exists(path):
            return path
    except ImportError:
        pass
    import ctypes.util
    return ctypes.util.find_library("api_c") or "libapi_c.so.1"


def _load():
    dll = ctypes.CDLL(_library_path())
    missing = []
    for name, (restype, argtypes) in ffi.FUNCTIONS.items():
        try:
            fn = getattr(dll, name)
        except AttributeError:
            missing.append(name)
            continue
        fn.restype = restype
        fn.argtypes = argtypes
    if missing:
        raise ImportError(f"{dll._name} lacks functions its headers declare: {', '.join(missing)}")
    return dll


lib = _load()

# ---- errors ----------------------------------------------------------------

# What each function's documentation says its result codes mean, read from
# the headers at build time; MEANINGS covers a code a function leaves unsaid.
RESULTS = dict(ffi.RESULTS)
RESULTS.setdefault("kx_create_robot_arm", {-1: "no connection"})  # it returns a handle, not a code
MEANINGS = {
    1: "refused (the controller's verdict was false)",
    -1: "unknown handle, invalid argument, or the request could not be sent",
    -2: "no reply within the timeout",
    -3: "the reply could not be decoded",
    -4: "operation-specific failure (see the function's documentation)",
    -5: "operation-specific failure (see the function's documentation)",
    -6: "operation-specific failure (see the function's documentation)",
}


def describe(function, code):
    """What result `code` of C `function` means, in that function's words."""
    meaning = RESULTS.get(function, {}).get(code) or MEANINGS.get(code, "unknown result code")
    return meaning[:1].lower() + meaning[1:]


class KxError(Exception):
    """A libapi_c call returned a non-zero result code: .code, .function, and
    a text that says what the code means for that function."""

    def __init__(self, code, function, detail=None):
        self.code = code
        self.function = function
        text = f"{function} returned {code}: {describe(function, code)}"
        super().__init__(f"{text} ({detail})" if detail else text)


def _check(code, function):
    if code != 0:
        raise KxError(code, function)
    return code

# ---- conversions -----------------------------------------------------------


def as_dict(value):
    """A record as plain Python values: dicts, lists, str for char arrays."""
    if isinstance(value, (ctypes.Structure, ctypes.Union)):
        return {name: as_dict(getattr(value, name)) for name, *_ in value._fields_}
    if isinstance(value, bytes):
        return value.split(b"\0", 1)[0].decode(errors="replace")
    if isinstance(value, ctypes.Array):
        if getattr(value, "_type_", None) is ctypes.c_char:
            return value.value.decode(errors="replace")
        return [as_dict(v) for v in value]
    return value


def _joints(values, dof):
    """One value per joint of an arm with `dof` joints, as the C float[7]."""
    values = [float(v) for v in values]
    if len(values) != dof:
        raise ValueError(f"joints: this arm has {dof} joints, got {len(values)} values")
    return (ctypes.c_float * 7)(*values)


def pose_record(pose):
    """[x, y, z, rx, ry, rz] (metres, radians) as a kx_pose_t, with its quaternion."""
    if len(pose) != 6:
        raise ValueError(f"pose: [x, y, z, rx, ry, rz] expected, got {len(pose)} values")
    p = ffi.kx_pose_t()
    p.position = ffi.kx_position_t(*pose[:3])
    p.euler = ffi.kx_euler_t(*pose[3:])
    p.quaternion = lib.kx_algo_euler2quaternion(p.euler)
    return p


def pose_list(p):
    """A kx_pose_t as [x, y, z, rx, ry, rz] (metres, radians)."""
    return [p.position.x, p.position.y, p.position.z, p.euler.rx, p.euler.ry, p.euler.rz]

# ---- process-wide start and callbacks --------------------------------------


_lock = threading.Lock()
_mode = None
_arms = 0
# The library cannot forget a callback once given one, so each kind gets one
# C thunk, registered on first use and alive as long as the process; it calls
# whatever Python function is registered now.
_targets = {}
_thunks = []


def init(mode=ffi.KX_TRIPLE_MODE_E):
    """Starts the library once per process in a thread mode (kx_init);
    Arm() calls it when needed. Does nothing when already started."""
    global _mode
    with _lock:
        if _mode is None:
            _check(lib.kx_init(int(mode)), "kx_init")
            _mode = int(mode)


def shutdown():
    """Releases every connection and stops the library's threads (kx_destory)."""
    global _mode
    with _lock:
        if _mode is not None:
            lib.kx_destory()
            _mode = None


def version():
    """The library's version string."""
    return lib.kx_api_version().decode()


def _register(kind, ctype, setter, fn, convert):
    first = kind not in _targets
    _targets[kind] = fn
    if first and fn is not None:
        def thunk(record):
            target = _targets.get(kind)
            if target is not None:
                target(convert(record))
        _thunks.append(ctype(thunk))
        setter(_thunks[-1])
    elif first:
        del _targets[kind]


# Joint count of each connected arm by its address: a datagram names only its sender.
_dof_by_ip = {}


class State:
    """One realtime datagram: arm_ip (which arm), joints (degrees, one per
    joint of that arm; all 7 slots when no Arm of this process is connected
    to arm_ip), pose [x, y, z, rx, ry, rz], err_code (0 when decoded),
    status (the arm's current motion, a kx_udp_arm_current_status_e) and
    record (the whole kx_realtime_arm_joint_state_t; as_dict(state.record)
    for plain values)."""
    __slots__ = ("arm_ip", "joints", "pose", "err_code", "status", "record")

    def __init__(self, record):
        self.record = record
        self.arm_ip = record.arm_ip.decode()
        self.joints = list(record.joint_status.joint_position)[:_dof_by_ip.get(self.arm_ip, 7)]
        self.pose = pose_list(record.waypoint)
        self.err_code = record.errCode
        self.status = record.arm_current_status

    def __repr__(self):
        return f"State(arm_ip={self.arm_ip!r}, joints={self.joints}, pose={self.pose}, err_code={self.err_code})"


def on_realtime(fn):
    """Calls fn(State) for every realtime datagram (in KX_TRIPLE_MODE_E, which
    starts the UDP thread), on the library's dispatch thread in arrival order;
    datagrams that arrive while 1024 calls are pending are dropped. None
    unregisters."""
    _register("realtime", ffi.kx_realtime_arm_state_callback_ptr, lib.kx_realtime_arm_state_call_back, fn, State)


def on_event(fn):
    """Calls fn(event) for every controller event (motion finished, program
    finished), on the library's dispatch thread; event is a dict of the
    kx_event_push_data_t fields. None unregisters."""
    _register("event", ffi.kx_event_callback_ptr, lib.kx_get_arm_event_call_back, fn, as_dict)


_libc = ctypes.CDLL(None)
_libc.vsnprintf.argtypes = [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_char_p, ctypes.c_void_p]


def set_log(fn, level=ffi.LOG_LEVEL_ERROR):
    """Sends the library's log lines of `level` and above to fn(text)."""
    def sink(fmt, args):
        buf = ctypes.create_string_buffer(1024)
        _libc.vsnprintf(buf, len(buf), fmt, args)
        fn(buf.value.decode(errors="replace"))
    _thunks.append(ffi.LogCallback(sink))  # kept: a log line may be on its way
    lib.kx_set_log_call_back(_thunks[-1], int(level))

# ---- one arm ---------------------------------------------------------------


_HANDLE = ctypes.POINTER(ffi.kx_robot_handle)


def _ipv4(host):
    """`host` (an IPv4 address or a host name) as a dotted quad."""
    try:
        return socket.getaddrinfo(host, None, socket.AF_INET, socket.SOCK_STREAM)[0][4][0]
    except socket.gaierror as e:
        raise ValueError(f"cannot resolve {host!r} to an IPv4 address: {e.strerror}") from None


class Arm:
    """One connection to a controller (kx_create_robot_arm), closed by close()
    or at the end of a with block. `ip` is an IPv4 address or a host name.
    Starts the library in `mode` when no arm has yet.

    Methods that take joints want exactly one value per joint of this arm
    (self.dof) and raise ValueError otherwise.

    Besides the methods below, every C function taking the handle first is a
    method without its kx_ prefix and handle: arm.set_joint_max_speed(1, 90.0)
    calls kx_set_joint_max_speed(handle, 1, 90.0) and raises KxError unless it
    returns 0."""

    def __init__(self, ip="127.0.0.1", port=8080, mode=ffi.KX_TRIPLE_MODE_E):
        global _arms
        self.ip, self.port = _ipv4(ip), int(port)
        init(mode)
        self._h = lib.kx_create_robot_arm(self.ip.encode(), self.port)
        if not self._h:
            raise KxError(-1, "kx_create_robot_arm", "all five connection slots are taken")
        if self._h.contents.id < 0:
            lib.kx_delete_robot_arm(self._h)
            self._h = None
            raise KxError(-1, "kx_create_robot_arm", f"no controller answers at {self.ip}:{self.port}")
        with _lock:
            _arms += 1
        dof = ctypes.c_int()
        self.call("kx_get_arm_dof", ctypes.byref(dof))
        self.dof = dof.value
        _dof_by_ip[self.ip] = self.dof

    @property
    def handle(self):
        """The C handle (a pointer to kx_robot_handle), for the raw layer."""
        return self._h

    @property
    def id(self):
        return self._h.contents.id

    def close(self):
        """Deletes the connection; the last arm closed shuts the library down."""
        global _arms
        if self._h is None:
            return
        lib.kx_delete_robot_arm(self._h)
        self._h = None
        with _lock:
            _arms -= 1
            last = _arms == 0
        if last:
            shutdown()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __repr__(self):
        return f"Arm({self.ip!r}, {self.port}, id={self.id if self._h else None}, dof={self.dof})"

    def call(self, function, *args):
        """Calls C `function` with the handle first; raises KxError unless it returns 0."""
        if self._h is None:
            raise KxError(-1, function, "the arm is closed")
        return _check(getattr(lib, function)(self._h, *args), function)

    def __getattr__(self, name):
        function = "kx_" + name
        sig = ffi.FUNCTIONS.get(function)
        if sig is None or not sig[1] or sig[1][0] is not _HANDLE:
            raise AttributeError(name)
        if sig[0] is ctypes.c_int:
            return lambda *args: self.call(function, *args)
        return lambda *args: getattr(lib, function)(self._h, *args)

    # ---- reading ----
    def info(self):
        """{'arm_dof', 'arm_model', 'force_type'} of the connection."""
        out = ffi.kx_robot_info_t()
        self.call("kx_get_robot_info", ctypes.byref(out))
        return as_dict(out)

    def software(self):
        """The controller's product and version strings (kx_arm_software_version_t)."""
        out = ffi.kx_arm_software_version_t()
        self.call("kx_get_arm_software_info", ctypes.byref(out))
        return as_dict(out)

    def joints(self):
        """Current joint angles, degrees, one per joint."""
        out = (ctypes.c_float * 7)()
        self.call("kx_get_joint_degree", out)
        return list(out[:self.dof])

    def pose(self):
        """Current tool pose [x, y, z, rx, ry, rz] (metres, radians)."""
        out = ffi.kx_current_arm_state_t()
        self.call("kx_get_current_arm_state", ctypes.byref(out))
        return pose_list(out.pose)

    # ---- moving ----
    def movej(self, joints, speed=20, block=True, radius=0, connect=0):
        """Joint move to `joints` (degrees) at `speed` percent; with block,
        returns when the arm has arrived."""
        self.call("kx_movej", _joints(joints, self.dof), int(speed), int(radius), int(connect), int(bool(block)))

    def movel(self, pose, speed=20, block=True, radius=0, connect=0):
        """Straight-line move of the tool to pose [x, y, z, rx, ry, rz]."""
        self.call("kx_movel", pose_record(pose), int(speed), int(radius), int(connect), int(bool(block)))

    def movej_p(self, pose, speed=20, block=True, radius=0, connect=0):
        """Joint-space move to a tool pose [x, y, z, rx, ry, rz]."""
        self.call("kx_movej_p", pose_record(pose), int(speed), int(radius), int(connect), int(bool(block)))

    def stream_joints(self, joints, follow=False):
        """Sends one streamed joint target (kx_movej_canfd): the arm goes
        there directly, so keep each step within what every joint can move
        in the stream's period."""
        target = _joints(joints, self.dof)
        self.call("kx_movej_canfd", ffi.kx_movej_canfd_mode_t(joint=target, follow=bool(follow)))

    def stop(self):
        """Stops the arm at once (kx_set_arm_stop)."""
        self.call("kx_set_arm_stop")

    # ---- kinematics, local, with the connection's configuration ----
    def forward_kinematics(self, joints):
        """Tool pose [x, y, z, rx, ry, rz] at `joints` (degrees)."""
        return pose_list(lib.kx_algo_forward_kinematics(self._h, _joints(joints, self.dof)))

    def inverse_kinematics(self, pose, reference=None):
        """Joints (degrees) reaching pose [x, y, z, rx, ry, rz], nearest to
        `reference` (default: the current joints)."""
        params = ffi.kx_inverse_kinematics_params_t()
        params.q_in = _joints(self.joints() if reference is None else reference, self.dof)
        params.q_pose = pose_record(pose)
        params.flag = 1  # orientation from the Euler angles
        out = (ctypes.c_float * 7)()
        rc = lib.kx_algo_inverse_kinematics(self._h, params, out)
        if rc != 0:
            raise KxError(rc, "kx_algo_inverse_kinematics")
        return list(out[:self.dof])
