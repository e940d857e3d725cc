# SPDX-License-Identifier: MIT
"""Whatever is passed, Python goes on: an exception with the library's words, or Python's own."""
import copy
import ctypes
import itertools
import pickle
import resource
import subprocess
import sys

import numpy as np
import pytest
import qf_mkv

PICTURE = bytes.fromhex("1000009d012a4001b400")


class Liar:
    """Says that it is a number, and is none."""

    def __index__(self):
        raise RuntimeError("no number")

    def __float__(self):
        return float("nan")


ODD = [
    None, True, 0, -1, 1, 2**31, -(2**31) - 1, 2**63, 2**70, -(2**70), 0.5, float("nan"), float("inf"), 1j,
    "", "x", "\0", "\udcff", "x" * 100000, b"", b"\0", bytearray(3), memoryview(b"abc")[::2],
    np.zeros((4, 4))[:, 1], np.float64(1), [], {}, (), (1, 2), (1, 0), object(), object, Liar(), print, Ellipsis,
    sys, range(3), qf_mkv.Framing.AUTO,
]  # fmt: skip


def take(call, *arguments, **named):
    """Whether the call went through. Any exception will do, and any result."""
    try:
        result = call(*arguments, **named)
    except Exception:
        return False
    if isinstance(result, qf_mkv.File):
        result.discard()
    return True


@pytest.mark.parametrize("name", ["codec", "width", "height", "frame_rate", "setup", "time_base", "framing", "length_size", "display_aspect"])
def test_of_a_video_track(tmp_path, name):
    good = dict(codec="h264", width=320, height=180)
    assert take(qf_mkv.open, tmp_path / "good.mkv", video=qf_mkv.Video(**good))
    taken = [
        take(qf_mkv.open, tmp_path / f"{i}.mkv", video=qf_mkv.Video(**{**good, name: value}))
        for i, value in enumerate(ODD)
    ]
    assert not all(taken)


@pytest.mark.parametrize("name", ["codec", "sample_rate", "channels", "bits_per_sample", "setup", "time_base"])
def test_of_an_audio_track(tmp_path, name):
    good = dict(codec="aac", sample_rate=48000, channels=2)
    taken = [
        take(qf_mkv.open, tmp_path / f"{i}.mkv", audio=qf_mkv.Audio(**{**good, name: value}))
        for i, value in enumerate(ODD)
    ]
    assert not all(taken)


@pytest.mark.parametrize("name", ["path", "video", "audio", "format", "overwrite", "sync", "longest_wait", "plugin"])
def test_of_open(tmp_path, monkeypatch, name):
    monkeypatch.chdir(tmp_path)
    for i, value in enumerate(ODD):
        arguments = dict(path=f"{i}.mkv", video=qf_mkv.Video("vp8", 320, 180))
        arguments[name] = value
        if name == "path" and isinstance(value, int):
            continue
        take(qf_mkv.open, arguments.pop("path"), **arguments)


def test_of_a_plugin():
    assert not any(take(qf_mkv.Plugin, value) for value in ODD if value is not None)


def test_of_packets(tmp_path):
    film = qf_mkv.open(tmp_path / "a.mkv", video=qf_mkv.Video("vp8", 320, 180), audio=qf_mkv.Audio("pcm", 48000, 2))
    for value in ODD:
        for write in (film.write_video, film.write_audio):
            take(write, value)
            for name in ("pts", "dts", "duration"):
                take(write, PICTURE, **{name: value})
        take(film.write_video, PICTURE, 0, key=value)
        take(film.end_track, value)
    take(film.close)
    for value in ODD:
        assert not take(film.write_video, value)


def test_of_a_file_that_is_made_by_hand():
    for first, second in itertools.product([*ODD, ctypes.c_void_p(5)], repeat=2):
        assert not take(qf_mkv.File, first, second)
    assert not take(qf_mkv.File)
    assert not take(qf_mkv.File.__new__(qf_mkv.File).close)


def test_of_copies(tmp_path):
    film = qf_mkv.open(tmp_path / "a.mkv", video=qf_mkv.Video("vp8", 320, 180))
    for copied in (film, qf_mkv.Plugin()):
        for way in (copy.copy, copy.deepcopy, pickle.dumps):
            with pytest.raises(TypeError):
                way(copied)
    film.discard()


def test_of_threads_that_outlive_the_program(tmp_path):
    program = """
import sys, threading, qf_mkv
def write():
    film = qf_mkv.open(sys.argv[1], video=qf_mkv.Video("vp8", 320, 180))
    ready.set()
    while True:
        film.write_video(bytes(1000))
ready = threading.Event()
threading.Thread(target=write, daemon=True).start()
ready.wait()
"""
    for number in range(5):
        result = subprocess.run([sys.executable, "-c", program, tmp_path / f"{number}.webm"], capture_output=True, text=True)
        assert result.returncode == 0, result.stderr


def test_texts_are_the_librarys(tmp_path):
    video = qf_mkv.Video("vp8", 320, 180)
    with pytest.raises(qf_mkv.ArgumentError, match="there is no video codec 'h266'"):
        qf_mkv.open(tmp_path / "a.mkv", video=qf_mkv.Video("h266", 320, 180))
    with pytest.raises(qf_mkv.FormatError, match="the format webm does not take H.264"):
        qf_mkv.open(tmp_path / "a.webm", video=qf_mkv.Video("h264", 320, 180))
    with pytest.raises(qf_mkv.PluginError, match="cannot read"):
        qf_mkv.Plugin("/nowhere.so")
    with pytest.raises(FileExistsError, match="it exists"):
        (tmp_path / "there.mkv").write_bytes(b"")
        qf_mkv.open(tmp_path / "there.mkv", video=video)
    with pytest.raises(OSError, match="No such file"):
        qf_mkv.open(tmp_path / "none" / "a.mkv", video=video)
    with pytest.raises(qf_mkv.EmptyError, match="no packet was written"):
        qf_mkv.open(tmp_path / "a.mkv", video=video).close()
    with qf_mkv.open(tmp_path / "b.mkv", video=video) as film:
        with pytest.raises(qf_mkv.ArgumentError, match="no data"):
            film.write_video(b"")
        with pytest.raises(qf_mkv.StateError, match="no audio track"):
            film.write_audio(b"x")
        film.write_video(PICTURE, dts=5)
        with pytest.raises(qf_mkv.TimeError, match="the time 4 lies before"):
            film.write_video(PICTURE, dts=4)
        with pytest.raises(OverflowError, match="64 bits"):
            film.write_video(PICTURE, 2**63)
    with pytest.raises(qf_mkv.StateError, match="is closed"):
        film.write_video(PICTURE)


def test_a_full_disk_is_an_os_error(tmp_path):
    before = resource.getrlimit(resource.RLIMIT_FSIZE)
    film = qf_mkv.open(tmp_path / "a.mkv", video=qf_mkv.Video("vp8", 320, 180))
    film.write_video(bytes(300000), 0, key=True)
    resource.setrlimit(resource.RLIMIT_FSIZE, (100000, before[1]))
    try:
        with pytest.raises(qf_mkv.WriteError, match="is not whole: File too large"):
            film.close()
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, before)
