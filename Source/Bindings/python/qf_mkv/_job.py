# SPDX-License-Identifier: MIT
"""The tracks of a file."""

from __future__ import annotations

import ctypes
import enum
import operator
from dataclasses import dataclass
from fractions import Fraction
from typing import Any, SupportsFloat, SupportsIndex

from ._library import check, integer, lib, octets, text

VIDEO = 1
"""The video track."""
AUDIO = 2
"""The audio track."""

HUNDRED_NANOSECONDS = Fraction(1, 10_000_000)


class Framing(enum.IntEnum):
    """How the units of an H.264 packet are separated."""

    AUTO = 0
    """By lengths when the set-up data is "avcC", else by start codes."""
    START_CODES = 1
    LENGTHS = 2


@dataclass(frozen=True)
class Video:
    """The video track of a file."""

    codec: str
    width: int
    height: int
    frame_rate: SupportsFloat = 0
    """Frames per second; 0 for not known."""
    setup: Any = b""
    """The codec's set-up data, bytes-like: "avcC", parameter sets, sequence headers."""
    time_base: Fraction | tuple[int, int] = HUNDRED_NANOSECONDS
    """The unit of its times, in seconds."""
    framing: Framing = Framing.AUTO
    length_size: int = 0
    """For H.264 with Framing.LENGTHS: bytes of a length, 1 to 4."""
    display_aspect: tuple[int, int] | None = None
    """The aspect ratio of the picture, (16, 9) for example."""


@dataclass(frozen=True)
class Audio:
    """The audio track of a file."""

    codec: str
    sample_rate: int
    channels: int
    bits_per_sample: int = 0
    """For PCM 8, 16, 24 or 32; 0 for 16."""
    setup: Any = b""
    """The codec's set-up data, bytes-like: AudioSpecificConfig, laced Vorbis headers."""
    time_base: Fraction | tuple[int, int] = HUNDRED_NANOSECONDS
    """The unit of its times, in seconds."""


class Job:
    """The library's job, while a file is opened."""

    def __init__(self) -> None:
        self.handle = ctypes.c_void_p()
        check(lib.qf_job_new(ctypes.byref(self.handle)))

    def __enter__(self) -> Job:
        return self

    def __exit__(self, *_: object) -> None:
        lib.qf_job_free(self.handle)
        self.handle = ctypes.c_void_p()

    def set_video(self, video: Video) -> None:
        if not isinstance(video, Video):
            raise TypeError(f"video is a Video, not {type(video).__name__}")
        width, height = integer(video.width, "width"), integer(video.height, "height")
        codec = text(video.codec, "codec")
        check(lib.qf_job_set_video(self.handle, codec, width, height, float(video.frame_rate)))
        framing, length_size = integer(video.framing, "framing"), integer(video.length_size, "length_size")
        check(lib.qf_job_set_framing(self.handle, framing, length_size))
        if video.display_aspect is not None:
            x, y = (integer(term, "display_aspect") for term in video.display_aspect)
            check(lib.qf_job_set_display_aspect(self.handle, x, y))
        self._set_common(VIDEO, video)

    def set_audio(self, audio: Audio) -> None:
        if not isinstance(audio, Audio):
            raise TypeError(f"audio is an Audio, not {type(audio).__name__}")
        codec = text(audio.codec, "codec")
        numbers = [
            integer(audio.sample_rate, "sample_rate"),
            integer(audio.channels, "channels"),
            integer(audio.bits_per_sample, "bits_per_sample"),
        ]
        check(lib.qf_job_set_audio(self.handle, codec, *numbers))
        self._set_common(AUDIO, audio)

    def _set_common(self, track: int, stream: Video | Audio) -> None:
        base = stream.time_base
        numerator, denominator = base if isinstance(base, tuple) else (base.numerator, base.denominator)
        numerator, denominator = integer(numerator, "time_base"), integer(denominator, "time_base")
        check(lib.qf_job_set_time_base(self.handle, track, numerator, denominator))
        with octets(stream.setup) as (address, size):
            check(lib.qf_job_set_setup(self.handle, track, address, size))

    def set_rest(self, format: str | None, overwrite: bool, sync: bool, longest_wait: SupportsIndex) -> None:
        if format is not None:
            check(lib.qf_job_set_format(self.handle, text(format, "format")))
        check(lib.qf_job_set_overwrite(self.handle, operator.truth(overwrite)))
        check(lib.qf_job_set_sync(self.handle, operator.truth(sync)))
        check(lib.qf_job_set_longest_wait(self.handle, integer(longest_wait, "longest_wait")))
