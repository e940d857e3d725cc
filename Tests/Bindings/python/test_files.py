# SPDX-License-Identifier: MIT
"""Files written by the examples and by hand, read back by other people's readers."""
import array
import gc
import pathlib
import threading
from fractions import Fraction

import av
import numpy as np
import pytest
import qf_mkv
from conftest import SOURCE
from qf_mkv import AUDIO, VIDEO

PICTURE = bytes.fromhex("1000009d012a4001b400")


def test_the_example_lists_formats(run_example):
    lines = run_example("list-formats").splitlines()
    assert [line.split()[0] for line in lines] == ["mkv", "hmkv", "mka", "webm"]
    assert lines[3].split() == ["webm", ".webm", "vp8", "vorbis"]


@pytest.mark.parametrize("clip, film", [("h264-aac.mp4", "a.mkv"), ("vp8-vorbis.webm", "a.webm")])
def test_the_example_remuxes_every_frame(run_example, packets, frames, tmp_path, clip, film):
    run_example("remux", SOURCE / "Samples" / clip, tmp_path / film)
    assert packets(tmp_path / film) == packets(SOURCE / "Samples" / clip)
    assert frames(tmp_path / film)["video"] == frames(SOURCE / "Samples" / clip)["video"]
    run_example("remux", tmp_path / film, tmp_path / "again.mkv")
    assert packets(tmp_path / "again.mkv") == packets(tmp_path / film)


def test_the_example_draws_a_film(run_example, frames, tmp_path):
    run_example("draw-film", tmp_path / "film.mkv")
    found = frames(tmp_path / "film.mkv")
    assert found["video"] == 100
    assert found["audio"] >= 188
    lines = (SOURCE / "Source/Bindings/python/examples/draw-film").read_text().splitlines()
    assert sum(bool(line.strip()) for line in lines[3:]) <= 25


def test_a_plugin_describes_itself():
    plugin = qf_mkv.Plugin()
    assert plugin.version == "5,0,0,14"
    assert pathlib.Path(plugin.path).name == "qf_mkv.so"
    mkv = plugin.formats[0]
    assert (mkv.name, mkv.extension, mkv.codecs[0].codec_id) == ("mkv", ".mkv", "V_MPEG4/ISO/AVC")
    assert qf_mkv.__version__ == "1.0.0"


@pytest.mark.parametrize(
    "data",
    [
        PICTURE,
        bytearray(PICTURE),
        memoryview(PICTURE),
        array.array("B", PICTURE),
        np.frombuffer(PICTURE, np.uint8),
        np.frombuffer(PICTURE, np.uint8).reshape(2, 5),
    ],
    ids=lambda data: type(data).__name__,
)
def test_packets_are_anything_that_lies_in_one_piece(tmp_path, packets, data):
    with qf_mkv.open(tmp_path / "a.webm", video=qf_mkv.Video("vp8", 320, 180, 25)) as film:
        film.write_video(data, 0, key=True)
    assert packets(tmp_path / "a.webm") == {"video": [PICTURE]}


def test_buffers_are_not_copied_and_are_let_go(tmp_path):
    data = bytearray(PICTURE)
    with qf_mkv.open(tmp_path / "a.webm", video=qf_mkv.Video("vp8", 320, 180)) as film:
        film.write_video(data, 0, key=True)
        with pytest.raises(qf_mkv.TimeError):
            film.write_video(data, dts=2**62)
        data.append(0)  # a buffer that is still held cannot grow


def test_times_count_in_the_tracks_unit(tmp_path):
    video = qf_mkv.Video("vp8", 320, 180, Fraction(30000, 1001), time_base=Fraction(1001, 30000))
    audio = qf_mkv.Audio("pcm", 8000, 1, time_base=(1, 8000))
    with qf_mkv.open(tmp_path / "a.mkv", video=video, audio=audio) as film:
        film.write_video(PICTURE, 0, key=True)
        film.write_video(PICTURE, 30)
        film.write_audio(np.zeros(8000, np.int16), 0)
        film.write_audio(np.zeros(80, np.int16))
        film.end_track(VIDEO)
        film.end_track(AUDIO)
        assert film.left_out == 0
    with av.open(str(tmp_path / "a.mkv")) as film:
        assert [float(packet.pts * packet.time_base) for packet in film.demux() if packet.size] == [0, 0, 1.0, 1.001]


def test_a_block_that_raises_keeps_what_was_written(tmp_path, packets):
    with pytest.raises(KeyError, match="mine"):
        with qf_mkv.open(tmp_path / "a.webm", video=qf_mkv.Video("vp8", 320, 180)) as film:
            film.write_video(PICTURE, 0, key=True)
            raise KeyError("mine")
    assert film.closed
    assert packets(tmp_path / "a.webm") == {"video": [PICTURE]}
    with pytest.raises(KeyError):
        with qf_mkv.open(tmp_path / "b.webm", video=qf_mkv.Video("vp8", 320, 180)):
            raise KeyError("and nothing of the empty file")


def test_a_file_that_is_forgotten_is_closed(tmp_path, packets):
    film = qf_mkv.open(tmp_path / "a.webm", video=qf_mkv.Video("vp8", 320, 180))
    film.write_video(PICTURE, 0, key=True)
    del film
    gc.collect()
    assert packets(tmp_path / "a.webm") == {"video": [PICTURE]}


def test_a_file_that_is_discarded_is_gone(tmp_path):
    film = qf_mkv.open(tmp_path / "a.webm", video=qf_mkv.Video("vp8", 320, 180))
    film.discard()
    film.discard()
    film.close()
    assert not (tmp_path / "a.webm").exists()


def test_files_of_all_formats_are_written_by_many_threads(tmp_path):
    def write(number):
        track = {"video": qf_mkv.Video("vp8", 320, 180)} if number % 2 else {"audio": qf_mkv.Audio("ac3", 48000, 2)}
        with qf_mkv.open(tmp_path / f"{number}.{'webm' if number % 2 else 'mka'}", **track) as film:
            for i in range(300):
                (film.write_video if number % 2 else film.write_audio)(bytes([number]) * 1000, i * 400000)

    threads = [threading.Thread(target=write, args=(number,)) for number in range(16)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    sizes = {path.suffix: {other.stat().st_size for other in tmp_path.glob(f"*{path.suffix}")} for path in tmp_path.iterdir()}
    assert {suffix: len(found) for suffix, found in sizes.items()} == {".webm": 1, ".mka": 1}


def test_one_file_is_written_and_closed_by_many_threads(tmp_path):
    film = qf_mkv.open(tmp_path / "a.webm", video=qf_mkv.Video("vp8", 320, 180))
    film.write_video(PICTURE, 0, key=True)

    def write():
        for _ in range(2000):
            try:
                film.write_video(PICTURE)
            except qf_mkv.StateError:
                return

    threads = [threading.Thread(target=write) for _ in range(8)]
    for thread in threads:
        thread.start()
    film.close()
    for thread in threads:
        thread.join()
    assert film.closed
