import os
import pathlib

import numpy as np
import pytest

ROOT = pathlib.Path(__file__).parents[2]


def read_ply(name):
    """Points and normals of one of the example's binary files."""
    data = (ROOT / "examples/data" / name).read_bytes()
    header, body = data.split(b"end_header\n", 1)
    count = int(header.split(b"element vertex ")[1].split()[0])
    rows = np.frombuffer(body, "<f4", 6 * count).reshape(count, 6)
    return rows[:, :3], rows[:, 3:]


@pytest.fixture(scope="session")
def hippo():
    return read_ply("hippo1.ply"), read_ply("hippo2.ply")


@pytest.fixture(scope="session")
def tool():
    """The command-line tool of the same build."""
    path = pathlib.Path(os.environ.get("VOALGO_TOOL", ROOT / "build/package/tools/voalgo"))
    assert path.exists(), f"{path} is missing: build the preset 'package' or set VOALGO_TOOL"
    return path
