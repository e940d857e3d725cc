# SPDX-License-Identifier: MIT
"""A loaded plug-in."""

from __future__ import annotations

import ctypes
import os
import threading
import weakref
from dataclasses import dataclass
from typing import NoReturn

from ._library import CodecInfo, FormatInfo, check, lib, without_zeros


@dataclass(frozen=True)
class Codec:
    """A codec that a format takes."""

    name: str
    """For Video or Audio: "h264", "aac", ..."""
    track: int
    """VIDEO or AUDIO."""
    codec_id: str
    """The CodecID in the file: "V_MPEG4/ISO/AVC", ..."""
    description: str
    is_listed: bool
    """Whether the plug-in's own list names it."""


@dataclass(frozen=True)
class Format:
    """A format that the plug-in writes."""

    name: str
    extension: str
    description: str
    codecs: tuple[Codec, ...]


def _text(value: bytes) -> str:
    return value.decode("utf-8", "replace")


class Plugin:
    """A plug-in, loaded from its path; without one, the installed plug-in."""

    def __init__(self, path: str | bytes | os.PathLike[str] | os.PathLike[bytes] | None = None) -> None:
        name = None if path is None else without_zeros(os.fsencode(path), "path")
        handle = ctypes.c_void_p()
        check(lib.qf_plugin_open(name, ctypes.byref(handle)))
        self._handle = handle
        # Not at the end of the process, when other threads may still open files.
        weakref.finalize(self, lib.qf_plugin_close, handle).atexit = False
        self.path: str = os.fsdecode(lib.qf_plugin_path(handle))
        self.version: str = _text(lib.qf_plugin_version(handle))
        self.formats: tuple[Format, ...] = tuple(
            self._format(number) for number in range(lib.qf_format_count(handle))
        )

    def _format(self, number: int) -> Format:
        info = FormatInfo(struct_size=ctypes.sizeof(FormatInfo))
        check(lib.qf_format_get(self._handle, number, ctypes.byref(info)))
        codecs = tuple(self._codec(number, codec) for codec in range(lib.qf_codec_count(self._handle, number)))
        return Format(_text(info.name), _text(info.extension), _text(info.description), codecs)

    def _codec(self, number: int, codec: int) -> Codec:
        info = CodecInfo(struct_size=ctypes.sizeof(CodecInfo))
        check(lib.qf_codec_get(self._handle, number, codec, ctypes.byref(info)))
        return Codec(
            _text(info.name), info.track, _text(info.codec_id), _text(info.description), bool(info.is_listed)
        )

    def __reduce__(self) -> NoReturn:
        raise TypeError("a plug-in cannot be copied")

    def __repr__(self) -> str:
        return f"Plugin({self.path!r})"


_lock = threading.Lock()
_installed: Plugin | None = None


def installed_plugin() -> Plugin:
    """The plug-in for all files that name no other."""
    global _installed
    with _lock:
        if _installed is None:
            _installed = Plugin()
        return _installed
