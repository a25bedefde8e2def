"""Where the Python examples connect: IP PORT from the command line, else
127.0.0.1:8080, where kx_sim listens by default."""
import sys


def target():
    if len(sys.argv) >= 3:
        return sys.argv[1], int(sys.argv[2])
    return "127.0.0.1", 8080


def ready_pose(dof):
    """A comfortable configuration away from singularities, in degrees."""
    return [0, 20, 70, 0, 90, 0] if dof == 6 else [0, 30, 0, 60, 0, 60, 20]
