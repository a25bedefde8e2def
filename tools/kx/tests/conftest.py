"""Fixtures of the kx tests: a kx_sim with two arms and a way to run kx."""
import ctypes
import os
import re
import signal
import socket
import subprocess

import pytest

KX = os.environ.get("KX", "kx")


def free_port(kind=socket.SOCK_STREAM):
    with socket.socket(socket.AF_INET, kind) as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def die_with_parent():
    """Children end with the test process, even when that is killed."""
    ctypes.CDLL(None).prctl(1, signal.SIGTERM)  # PR_SET_PDEATHSIG


def start_sim(time_scale):
    """kx_sim with arm 1 AVEN-QS (six-axis force sensor) and arm 2 BRIV-P; returns (process, [addr1, addr2])."""
    proc = subprocess.Popen([os.environ.get("KX_SIM", "kx_sim"), "--arms", "2", "--model", "AVEN,BRIV",
                             "--edition", "QS,P", "--port", "0", "--time-scale", str(time_scale),
                             "--udp-port", str(free_port(socket.SOCK_DGRAM))],
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, preexec_fn=die_with_parent)
    addrs = []
    for _ in range(2):
        m = re.match(r"arm \d listening on ([\d.]+:\d+) ", proc.stdout.readline())
        assert m, "kx_sim did not start"
        addrs.append(m.group(1))
    return proc, addrs


def stop(proc):
    proc.terminate()
    try:
        proc.wait(timeout=10)
    except subprocess.TimeoutExpired:
        proc.kill()


def kx(*args, timeout=60):
    """Runs kx; returns the finished process (stdout and stderr as text)."""
    return subprocess.run([KX, *map(str, args)], capture_output=True, text=True, timeout=timeout)


def split(addr):
    host, port = addr.split(":")
    return host, int(port)
