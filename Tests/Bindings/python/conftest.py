# SPDX-License-Identifier: MIT
import os
import pathlib
import subprocess
import sys

import av
import pytest

SOURCE = pathlib.Path(os.environ["QF_SOURCE"])


@pytest.fixture
def run_example():
    def run(name, *arguments):
        path = SOURCE / "Source/Bindings/python/examples" / name
        result = subprocess.run([sys.executable, path, *arguments], capture_output=True, text=True)
        assert (result.returncode, result.stderr) == (0, "")
        return result.stdout

    return run


@pytest.fixture
def frames():
    """How many frames of each kind decode."""

    def count(path):
        found = {}
        with av.open(str(path)) as film:
            for frame in film.decode(*film.streams):
                kind = "video" if isinstance(frame, av.VideoFrame) else "audio"
                found[kind] = found.get(kind, 0) + 1
        return found

    return count


@pytest.fixture
def packets():
    """What each packet of a file holds, by streams."""

    def read(path):
        found = {}
        with av.open(str(path)) as film:
            for packet in film.demux():
                if packet.size:
                    found.setdefault(packet.stream.type, []).append(bytes(packet))
        return found

    return read
