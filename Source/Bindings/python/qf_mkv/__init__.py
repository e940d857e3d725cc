# SPDX-License-Identifier: MIT
"""Writes Matroska and WebM files through the qf_mkv plug-in: compressed frames in, files out.

    import qf_mkv

    with qf_mkv.open("film.mkv", video=qf_mkv.Video("h264", 1280, 720, 25),
                     audio=qf_mkv.Audio("aac", 48000, 2, setup=config)) as film:
        film.write_video(data, pts=0, dts=0, key=True)
        film.write_audio(data, pts=0)

libqf_host does all the work, and exceptions carry its texts. Several threads can write different files at the same
time; the interpreter lock is released meanwhile.
"""

from ._errors import (
    ArgumentError,
    DataError,
    EmptyError,
    Error,
    ExistsError,
    FormatError,
    InternalError,
    NoMemoryError,
    OpenError,
    PluginError,
    StateError,
    TimeError,
    WriteError,
)
from ._file import File, open
from ._job import AUDIO, VIDEO, Audio, Framing, Video
from ._library import version
from ._plugin import Codec, Format, Plugin

__version__ = version()

__all__ = [
    "AUDIO",
    "VIDEO",
    "ArgumentError",
    "Audio",
    "Codec",
    "DataError",
    "EmptyError",
    "Error",
    "ExistsError",
    "File",
    "Format",
    "FormatError",
    "Framing",
    "InternalError",
    "NoMemoryError",
    "OpenError",
    "Plugin",
    "PluginError",
    "StateError",
    "TimeError",
    "Video",
    "WriteError",
    "open",
    "version",
]
