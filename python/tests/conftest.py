"""A kx_sim process for the tests: arm 1 AVEN (6 joints), arm 2 BRIV (7 joints)."""
import ctypes
import os
import re
import signal
import socket
import subprocess

import pytest


def free_udp_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def _die_with_parent():
    """The simulator ends with the test process, even when that is killed."""
    ctypes.CDLL(None).prctl(1, signal.SIGTERM)  # PR_SET_PDEATHSIG


@pytest.fixture(scope="session")
def sim():
    """[(host, port), ...] of the simulated arms, in arm order."""
    binary = os.environ.get("KX_SIM", "kx_sim")
    proc = subprocess.Popen([binary, "--arms", "2", "--model", "AVEN,BRIV", "--port", "0", "--time-scale", "5",
                             "--udp-port", str(free_udp_port())], stdout=subprocess.PIPE, text=True,
                            preexec_fn=_die_with_parent)
    arms = []
    for _ in range(2):
        m = re.match(r"arm \d listening on ([\d.]+):(\d+) ", proc.stdout.readline())
        assert m, "kx_sim did not start"
        arms.append((m.group(1), int(m.group(2))))
    yield arms
    proc.terminate()
    proc.wait(timeout=10)
