# SPDX-License-Identifier: MIT
"""A file that is being written."""

from __future__ import annotations

import ctypes
import os
import threading
import weakref
from types import TracebackType
from typing import Any, NoReturn, SupportsIndex

from ._errors import Error, StateError
from ._job import AUDIO, VIDEO, Audio, Job, Video
from ._library import NO_TIME, Packet, check, integer, lib, octets, without_zeros
from ._plugin import Plugin, installed_plugin


def open(
    path: str | bytes | os.PathLike[str] | os.PathLike[bytes],
    *,
    video: Video | None = None,
    audio: Audio | None = None,
    format: str | None = None,
    overwrite: bool = False,
    sync: bool = False,
    longest_wait: SupportsIndex = 0,
    plugin: Plugin | None = None,
) -> File:
    """Creates an empty file.

    format: "mkv", "hmkv", "mka" or "webm"; without it the path's extension decides. overwrite: replace an
    existing file. sync: closing waits until the file is on the disk. longest_wait: milliseconds for which a packet
    waits for the other track at most; 0 for ever.
    """
    name = without_zeros(os.fsencode(path), "path")
    if plugin is None:
        plugin = installed_plugin()
    elif not isinstance(plugin, Plugin):
        raise TypeError(f"plugin is a Plugin, not {type(plugin).__name__}")
    with Job() as job:
        if video is not None:
            job.set_video(video)
        if audio is not None:
            job.set_audio(audio)
        job.set_rest(format, overwrite, sync, longest_wait)
        handle = ctypes.c_void_p()
        check(lib.qf_file_open(plugin._handle, name, job.handle, ctypes.byref(handle)))
    film = File.__new__(File)
    film._path = os.fsdecode(name)
    film._state = _State(handle)
    weakref.finalize(film, film._state.close_quietly)
    return film


class _State:
    """The library's file, until the user or the garbage collector closes it."""

    def __init__(self, handle: ctypes.c_void_p) -> None:
        self.lock = threading.Lock()
        self.handle: ctypes.c_void_p | None = handle

    def take(self) -> ctypes.c_void_p | None:
        handle, self.handle = self.handle, None
        return handle

    def close_quietly(self) -> None:
        with self.lock:
            handle = self.take()
            if handle is not None:
                lib.qf_file_close(handle)


class File:
    """Made by open(). As a context manager it is closed at the end of the block, which raises WriteError when not all
    of it reached the disk. When the block raises, the packets written so far stay in the file."""

    _path: str
    _state: _State

    def __init__(self) -> None:
        raise TypeError("files are made by qf_mkv.open")

    def __reduce__(self) -> NoReturn:
        raise TypeError("a file that is being written cannot be copied")

    @property
    def path(self) -> str:
        return self._path

    def write_video(
        self,
        data: Any,
        pts: SupportsIndex | None = None,
        dts: SupportsIndex | None = None,
        duration: SupportsIndex | None = None,
        key: bool = False,
    ) -> None:
        """Takes one picture, bytes-like. Times are in the track's time base; None means not known."""
        self._write(VIDEO, data, pts, dts, duration, key)

    def write_audio(
        self,
        data: Any,
        pts: SupportsIndex | None = None,
        dts: SupportsIndex | None = None,
        duration: SupportsIndex | None = None,
    ) -> None:
        """Takes sound, bytes-like: one frame, or any number of whole PCM samples."""
        self._write(AUDIO, data, pts, dts, duration, True)

    def end_track(self, track: SupportsIndex) -> None:
        """Ends the VIDEO or AUDIO track: the other track no longer waits for it."""
        number = integer(track, "track")
        with self._state.lock:
            check(lib.qf_file_end_track(self._open_handle(), number))

    @property
    def left_out(self) -> int:
        """The number of pictures before the file's first block that were left out."""
        with self._state.lock:
            count: int = lib.qf_file_left_out(self._open_handle())
            return count

    @property
    def closed(self) -> bool:
        return self._state.handle is None

    def close(self) -> None:
        """Completes the file. Raises WriteError when not all of it reached the disk, EmptyError when nothing was
        written. Closing a closed file does nothing."""
        with self._state.lock:
            handle = self._state.take()
            if handle is not None:
                check(lib.qf_file_close(handle))

    def discard(self) -> None:
        """Closes the file and removes it. On a closed file it does nothing."""
        with self._state.lock:
            handle = self._state.take()
            if handle is not None:
                lib.qf_file_discard(handle)

    def __enter__(self) -> File:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        try:
            self.close()
        except Error:
            if kind is None:
                raise

    def __repr__(self) -> str:
        return f"<qf_mkv.File {self.path!r}{' closed' if self.closed else ''}>"

    def _open_handle(self) -> ctypes.c_void_p:
        if self._state.handle is None:
            raise StateError(f"'{self.path}' is closed")
        return self._state.handle

    def _write(
        self,
        track: int,
        data: Any,
        pts: SupportsIndex | None,
        dts: SupportsIndex | None,
        duration: SupportsIndex | None,
        key: object,
    ) -> None:
        packet = Packet(struct_size=ctypes.sizeof(Packet), track=track)
        packet.pts = NO_TIME if pts is None else integer(pts, "pts", 64)
        packet.dts = NO_TIME if dts is None else integer(dts, "dts", 64)
        packet.duration = 0 if duration is None else integer(duration, "duration", 64)
        packet.is_key = 1 if key else 0
        with octets(data) as (packet.data, packet.size), self._state.lock:
            check(lib.qf_file_write(self._open_handle(), ctypes.byref(packet)))
