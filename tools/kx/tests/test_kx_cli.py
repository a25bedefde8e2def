"""kx against kx_sim: every command, --json values against the library's own
readings (through the kx_api binding), exit codes, progress on a terminal."""
import contextlib
import ctypes
import json
import os
import pty
import select
import signal
import socket
import subprocess
import time

import pytest

import kx_api
from conftest import KX, free_port, kx, split, start_sim, stop

REFUSED, USAGE, NO_CONNECTION, TIMEOUT = 1, 2, 3, 4


@pytest.fixture(scope="module")
def sim():
    proc, addrs = start_sim(time_scale=5)
    yield addrs
    stop(proc)


@contextlib.contextmanager
def library(addr):
    """The library's own connection (no realtime thread). A controller serves one
    command connection at a time, so it is opened only between kx runs."""
    with kx_api.Arm(*split(addr), mode=kx_api.ffi.KX_DUAL_MODE_E) as arm:
        yield arm


def kx_json(*args):
    r = kx(*args, "--json")
    assert r.returncode == 0, r.stderr
    return json.loads(r.stdout)


def close(a, b, tol=1e-3):
    return len(a) == len(b) and all(abs(x - y) <= tol for x, y in zip(a, b))


def pose6(p):
    return [p[k] for k in ("x", "y", "z", "rx", "ry", "rz")]


def test_readings_equal_the_librarys(sim):
    for addr in sim:
        info, state = kx_json("info", addr), kx_json("state", addr)
        with library(addr) as arm:
            sw, joints, pose = arm.software(), arm.joints(), arm.pose()
            assert info["joints"] == arm.dof
        assert info["product"] == sw["product_version"]
        assert info["model"] + "-" + info["edition"] == sw["product_version"]
        assert info["versions"]["controller"] == sw["ctrl_info"]["version"]
        assert info["versions"]["library"] == kx_api.version()
        assert close(state["joints"], joints)
        assert close(pose6(state["pose"]), pose, 1e-5)
        assert state["errors"] == []

    a1 = sim[0]
    assert kx("io", a1, "set", 2, 1).returncode == 0
    io = kx_json("io", a1, "get")
    assert kx_json("gripper", a1, "pos", 400)["position"] == 400
    got = kx_json("gripper", a1, "state")
    di, do = (ctypes.c_int * 4)(), (ctypes.c_int * 4)()
    g = kx_api.ffi.kx_gripper_state_t()
    with library(a1) as arm:
        arm.get_IO_input(di)
        arm.get_IO_output(do)
        arm.get_gripper_state(ctypes.byref(g))
    assert io == {"inputs": list(di), "outputs": list(do)} and io["outputs"][1] == 1
    assert (got["position"], got["force"], got["error"], got["enabled"]) == (g.actpos, g.current_force, g.error,
                                                                             g.enable_state == 1)
    assert kx_json("gripper", a1, "close")["done"] is True
    assert kx("gripper", a1, "open", "--no-wait").returncode == 0

    def push_port():
        cfg = kx_api.ffi.kx_realtime_push_config_t()
        with library(a1) as arm:
            arm.get_realtime_push(ctypes.byref(cfg))
        return cfg.port, cfg.enable

    # watch: the realtime push of both arms, one JSON object per refresh; the
    # arms get their push configuration back, also when the reader goes away.
    before = push_port()
    r = subprocess.run(f"'{KX}' watch {a1} --json --interval 20 | head -n 1", shell=True, capture_output=True,
                       text=True, timeout=30)
    assert json.loads(r.stdout)["arms"][0]["address"] == a1
    assert push_port() == before
    r = kx("watch", *sim, "--seconds", "0.5", "--interval", "100", "--json")
    assert r.returncode == 0, r.stderr
    snaps = [json.loads(line) for line in r.stdout.splitlines()]
    assert len(snaps) >= 3 and push_port() == before
    for got, addr in zip(snaps[-1]["arms"], sim):
        with library(addr) as arm:
            assert close(got["joints"], arm.joints())
        assert got["online"] and got["status"] == "idle" and got["address"] == addr
        # the figure drawn from the DH parameters ends at the reported tool pose
        assert got["flange"][3::4] == pytest.approx([got["pose"][k] for k in "xyz"], abs=1e-4)


def test_moves_jogs_stop_and_clear(sim):
    a1 = sim[0]

    def joints():
        with library(a1) as arm:
            return arm.joints()

    def pose():
        with library(a1) as arm:
            return arm.pose()

    target = [10, -20, 30, 0, 40, 5]
    assert kx_json("movej", a1, *target, "--speed", 60) == {"done": True, "accepted": True}
    assert close(joints(), target, 0.01)

    with library(a1) as arm:
        goal = arm.forward_kinematics([0, -10, 40, 0, 30, 0])
    assert kx_json("movel", a1, *goal) == {"done": True, "accepted": True}
    assert close(pose()[:3], goal[:3], 1e-4)

    before = joints()
    assert kx_json("jog", a1, 1, "+", "--step", 2)["done"] is True
    assert joints()[0] == pytest.approx(before[0] + 2, abs=0.01)
    z = pose()[2]
    assert kx("jog", a1, "z", "-").returncode == 0
    assert pose()[2] == pytest.approx(z - 0.01, abs=1e-4)

    # A slow move that is not waited for, then stopped: the arm ends short of it.
    assert kx_json("movej", a1, 170, 0, 0, 0, 0, 0, "--speed", 2, "--no-wait") == {"done": False, "accepted": True}
    time.sleep(0.3)
    assert kx_json("stop", a1) == {"done": True}
    stopped = joints()
    time.sleep(0.3)
    assert close(joints(), stopped, 0.01) and stopped[0] < 160
    assert kx_json("clear", a1) == {"done": True}

    # Waiting gives up after --timeout with its own exit code (the arm keeps moving).
    r = kx("movej", a1, -170, 0, 0, 0, 0, 0, "--speed", 2, "--timeout", 0.3)
    assert r.returncode == TIMEOUT and "kx stop" in r.stderr
    assert kx("stop", a1).returncode == 0
    assert kx_json("movej", sim[1], *[3] * 7)["done"]  # seven joints on arm 2
    assert kx_json("state", sim[1])["joints"] == pytest.approx([3] * 7, abs=0.01)


def test_programs_and_teaching(sim, tmp_path):
    a1 = sim[0]
    prog = tmp_path / "square.txt"
    prog.write_bytes(b'{"file":6}\r\n{"command":"movej","v":50,"joint":[0,0,0,0,0,0]}\r\n'
                     b'{"command":"movej","v":50,"joint":[5000,0,0,0,0,0]}\r\n')
    up = kx_json("program", a1, "upload", prog, "--id", 12)
    assert up == {"accepted": True, "name": "square", "id": 12, "running": False}
    auto = kx_json("program", a1, "upload", prog)
    assert auto["id"] not in (None, 12)
    listed = kx_json("program", a1, "list")
    progs = {p["id"]: p for p in listed["programs"]}
    assert progs[12]["name"] == "square" and progs[12]["size"] == prog.stat().st_size
    assert auto["id"] in progs and listed["total"] == len(listed["programs"])
    assert kx_json("program", a1, "run", 12) == {"done": True, "id": 12}
    assert kx_json("state", a1)["joints"][0] == pytest.approx(5, abs=0.01)
    assert kx_json("program", a1, "delete", 12) == {"done": True, "id": 12}
    assert kx("program", a1, "delete", 12).returncode == REFUSED

    bad = tmp_path / "bad.txt"
    bad.write_bytes(b'{"file":6}\r\n{"command":"fly"}\r\n')
    r = kx("program", a1, "upload", bad)
    assert r.returncode == REFUSED and "line 2" in r.stderr

    path = tmp_path / "taught.txt"
    got = kx_json("teach", a1, "record", path, "--seconds", 0.4)
    lines = path.read_bytes().splitlines()
    assert got["file"] == str(path) and got["points"] == len(lines) > 0
    assert json.loads(lines[0])["point"] == [round(v * 1000) for v in kx_json("state", a1)["joints"]]


def test_local_kinematics(sim):
    q = [10, -20, 30, 5, 40, 15]
    fk = kx_json("fk", "AVEN", *q, "--edition", "QS")
    # The library's own forward kinematics of the connected AVEN-QS arm (no tool or work frame set).
    with library(sim[0]) as arm:
        assert close(pose6(fk["pose"])[:3], arm.forward_kinematics(q)[:3], 1e-5)
    ik = kx_json("ik", "AVEN-QS", *pose6(fk["pose"]), "--ref", *[v + 3 for v in q])
    assert close(ik["joints"], q, 1e-2)
    assert kx_json("fk", "BRIV", *[0] * 7)["model"] == "BRIV"
    assert kx("ik", "AVEN", 5, 0, 0, 0, 0, 0, "--ref", *[0] * 6).returncode == 6  # out of reach


def test_exit_codes_and_messages(sim):
    a1 = sim[0]
    r = kx("movej", a1, 500, 0, 0, 0, 0, 0)
    assert r.returncode == REFUSED and "refused" in r.stderr and "kx clear" in r.stderr
    assert kx("io", a1, "set", 3, 1).returncode == REFUSED  # an input channel

    nobody = f"127.0.0.1:{free_port()}"
    r = kx("state", nobody)
    assert r.returncode == NO_CONNECTION and "cannot connect" in r.stderr
    with socket.socket() as deaf:  # listens, never answers
        deaf.bind(("127.0.0.1", 0))
        deaf.listen(0)
        r = kx("info", "127.0.0.1:%d" % deaf.getsockname()[1])
        assert r.returncode == TIMEOUT and "did not answer" in r.stderr

    for args in (["fly", a1], ["movej", a1, 1, 2], ["movej", a1, "x", 0, 0, 0, 0, 0], ["state", a1, "--speed", 3],
                 ["state"], ["jog", a1, 1, "up"], ["io", a1, "set", 1, 2], ["gripper", a1, "pos", 0],
                 ["state", "127.0.0.1:99999"], ["teach", a1, "record", "/tmp/x.txt"],
                 ["program", a1, "upload", "/nonexistent/prog.txt"], ["fk", "NOPE", 0]):
        r = kx(*args)
        assert r.returncode == USAGE, args
        assert r.stderr.startswith("kx: ") and "--help" in r.stderr, args

    assert kx("--help").returncode == 0
    for cmd in ("info", "state", "watch", "movej", "movel", "jog", "stop", "clear", "io", "gripper", "program",
                "teach", "fk", "ik", "view"):
        assert f"kx {cmd}" in kx("--help").stdout
        r = kx(cmd, "--help")
        assert r.returncode == 0 and r.stdout.startswith(f"usage: kx {cmd}")


def run_on_terminal(*args):
    """Runs kx with its standard output on a pseudo-terminal; returns (exit code, output)."""
    master, slave = pty.openpty()
    proc = subprocess.Popen([KX, *map(str, args)], stdout=slave, stderr=subprocess.PIPE)
    os.close(slave)
    out = b""
    while True:
        ready, _, _ = select.select([master], [], [], 30)
        try:
            chunk = os.read(master, 4096) if ready else b""
        except OSError:
            chunk = b""
        if not chunk:
            break
        out += chunk
    os.close(master)
    return proc.wait(timeout=30), out.decode(errors="replace")


def test_progress_on_a_terminal_only(sim):
    a1 = sim[0]
    code, out = run_on_terminal("movej", a1, 40, 0, 0, 0, 0, 0, "--speed", 5)
    assert code == 0 and "movej [" in out and "%" in out
    piped = kx("movej", a1, 0, 0, 0, 0, 0, 0, "--speed", 5)
    assert piped.returncode == 0 and piped.stdout == ""
    # watch redraws its table in place on a terminal: back up over the header and two arms
    code, out = run_on_terminal("watch", *sim, "--seconds", 0.5, "--interval", 100)
    assert code == 0 and out.count("\033[3A") >= 3 and out.count("ARM ADDRESS") >= 4


def test_view_token_read_only_and_listen_checks(sim):
    # Anything but loopback needs a real token: refused before anything listens.
    r = kx("view", sim[0], "--listen", "10.1.2.3:8000", "--token", "short")
    assert r.returncode == USAGE and "--token" in r.stderr

    port = free_port()
    proc = subprocess.Popen([KX, "view", sim[1], "--listen", f"127.0.0.1:{port}", "--read-only"],
                            stdout=subprocess.PIPE, text=True)
    try:
        assert "serving 1 arm on http://127.0.0.1:" in proc.stdout.readline()
        import urllib.request
        import urllib.error
        page = urllib.request.urlopen(f"http://127.0.0.1:{port}/").read().decode()
        token = page.split('token: "')[1].split('"')[0]
        assert len(token) >= 16
        req = urllib.request.Request(f"http://127.0.0.1:{port}/api/command", method="POST",
                                     data=json.dumps({"token": token, "arm": 1, "action": "stop"}).encode())
        with pytest.raises(urllib.error.HTTPError) as err:
            urllib.request.urlopen(req)
        assert err.value.code == 403 and "read-only" in err.value.read().decode()
        state = json.loads(urllib.request.urlopen(f"http://127.0.0.1:{port}/api/state").read())
        assert state["arms"][0]["dof"] == 7
    finally:
        proc.terminate()
        assert proc.wait(timeout=10) == 0


def test_bash_completion():
    script = os.path.join(os.path.dirname(__file__), "..", "kx-completion.bash")

    def complete(*words):
        line = " ".join(f"'{w}'" for w in words)
        out = subprocess.run(["bash", "-c", f'source "{script}"; COMP_WORDS=({line}); COMP_CWORD={len(words) - 1}; '
                              '_kx; echo "${COMPREPLY[@]}"'], capture_output=True, text=True, check=True)
        return out.stdout.split()

    assert complete("kx", "mov") == ["movej", "movel"]
    assert complete("kx", "program", "127.0.0.1", "") == ["upload", "list", "run", "delete"]
    assert complete("kx", "view", "127.0.0.1", "--r") == ["--read-only"]
    assert "AVEN" in complete("kx", "fk", "")


def test_ctrl_c(sim, tmp_path):
    a1 = sim[0]

    def interrupted(*args):
        proc = subprocess.Popen([KX, *map(str, args)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        time.sleep(0.7)
        proc.send_signal(signal.SIGINT)
        out, err = proc.communicate(timeout=30)
        return proc.returncode, out, err

    # While waiting for a move: the arm is stopped short of its target.
    code, _, err = interrupted("movej", a1, -150, 0, 0, 0, 0, 0, "--speed", 2)
    assert code == 130 and "stopped" in err
    first = kx_json("state", a1)["joints"][0]
    time.sleep(0.3)
    assert kx_json("state", a1)["joints"][0] == pytest.approx(first, abs=0.01) and first > -140
    # While teaching: the recording ends early and is still saved.
    path = tmp_path / "short.txt"
    code, out, _ = interrupted("teach", a1, "record", path, "--seconds", 60, "--json")
    assert code == 0 and json.loads(out)["points"] == len(path.read_bytes().splitlines()) > 0
