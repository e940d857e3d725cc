# SPDX-License-Identifier: MIT
"""Loads libqf_host, declares the types of its functions and checks values before conversion to C."""

from __future__ import annotations

import ctypes
import operator
from contextlib import contextmanager
from typing import Any, Iterator, SupportsIndex

from ._errors import error_of

_NAME = "libqf_host.so.1"
NO_TIME = -(2**63)

try:
    lib = ctypes.CDLL(_NAME)
except OSError as error:
    raise ImportError(f"{error}; the package libqf-host1 has it") from error


class Packet(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_uint32),
        ("track", ctypes.c_int32),
        ("data", ctypes.c_void_p),
        ("size", ctypes.c_size_t),
        ("pts", ctypes.c_int64),
        ("dts", ctypes.c_int64),
        ("duration", ctypes.c_int64),
        ("is_key", ctypes.c_int32),
        ("reserved", ctypes.c_int32),
    ]


class FormatInfo(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_uint32),
        ("four_cc", ctypes.c_uint32),
        ("name", ctypes.c_char_p),
        ("extension", ctypes.c_char_p),
        ("description", ctypes.c_char_p),
    ]


class CodecInfo(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_uint32),
        ("four_cc", ctypes.c_uint32),
        ("track", ctypes.c_int32),
        ("is_listed", ctypes.c_int32),
        ("name", ctypes.c_char_p),
        ("codec_id", ctypes.c_char_p),
        ("description", ctypes.c_char_p),
    ]


class _Buffer(ctypes.Structure):
    """CPython's Py_buffer."""

    _fields_ = [
        ("buf", ctypes.c_void_p),
        ("obj", ctypes.c_void_p),
        ("len", ctypes.c_ssize_t),
        ("itemsize", ctypes.c_ssize_t),
        ("readonly", ctypes.c_int),
        ("ndim", ctypes.c_int),
        ("format", ctypes.c_char_p),
        ("shape", ctypes.c_void_p),
        ("strides", ctypes.c_void_p),
        ("suboffsets", ctypes.c_void_p),
        ("internal", ctypes.c_void_p),
    ]


_P = ctypes.c_void_p
_I = ctypes.c_int
_I32 = ctypes.c_int32
_S = ctypes.c_char_p
_Z = ctypes.c_size_t


def _declare(name: str, result: Any, *arguments: Any) -> None:
    function = getattr(lib, name)
    function.restype = result
    function.argtypes = arguments


_declare("qf_host_version", ctypes.c_uint32)
_declare("qf_error_text", _S)
_declare("qf_plugin_open", _I, _S, ctypes.POINTER(_P))
_declare("qf_plugin_close", None, _P)
_declare("qf_plugin_path", _S, _P)
_declare("qf_plugin_version", _S, _P)
_declare("qf_format_count", _Z, _P)
_declare("qf_format_get", _I, _P, _Z, ctypes.POINTER(FormatInfo))
_declare("qf_codec_count", _Z, _P, _Z)
_declare("qf_codec_get", _I, _P, _Z, _Z, ctypes.POINTER(CodecInfo))
_declare("qf_job_new", _I, ctypes.POINTER(_P))
_declare("qf_job_free", None, _P)
_declare("qf_job_set_format", _I, _P, _S)
_declare("qf_job_set_video", _I, _P, _S, _I32, _I32, ctypes.c_double)
_declare("qf_job_set_audio", _I, _P, _S, _I32, _I32, _I32)
_declare("qf_job_set_setup", _I, _P, _I, _P, _Z)
_declare("qf_job_set_framing", _I, _P, _I, _I)
_declare("qf_job_set_time_base", _I, _P, _I, _I32, _I32)
_declare("qf_job_set_display_aspect", _I, _P, _I32, _I32)
_declare("qf_job_set_overwrite", _I, _P, _I)
_declare("qf_job_set_sync", _I, _P, _I)
_declare("qf_job_set_longest_wait", _I, _P, _I32)
_declare("qf_file_open", _I, _P, _S, _P, ctypes.POINTER(_P))
_declare("qf_file_write", _I, _P, ctypes.POINTER(Packet))
_declare("qf_file_end_track", _I, _P, _I)
_declare("qf_file_left_out", ctypes.c_uint64, _P)
_declare("qf_file_close", _I, _P)
_declare("qf_file_discard", None, _P)

_get_buffer = ctypes.pythonapi.PyObject_GetBuffer
_get_buffer.restype = ctypes.c_int
_get_buffer.argtypes = (ctypes.py_object, ctypes.POINTER(_Buffer), ctypes.c_int)
_release_buffer = ctypes.pythonapi.PyBuffer_Release
_release_buffer.restype = None
_release_buffer.argtypes = (ctypes.POINTER(_Buffer),)


def check(code: int) -> None:
    """Raises the exception of a code that is not 0."""
    if code != 0:
        raise error_of(code, lib.qf_error_text().decode("utf-8", "replace"))


@contextmanager
def octets(data: object) -> Iterator[tuple[int | None, int]]:
    """The address and the size of a bytes-like object's data, without a copy."""
    buffer = _Buffer()
    _get_buffer(data, ctypes.byref(buffer), 0)  # raises for other objects and arrays that are not contiguous
    try:
        yield buffer.buf, buffer.len
    finally:
        _release_buffer(ctypes.byref(buffer))


def integer(value: SupportsIndex, name: str, bits: int = 32) -> int:
    """Checks the range, since ctypes would truncate the value."""
    number = operator.index(value)
    if not -(2 ** (bits - 1)) <= number < 2 ** (bits - 1):
        raise OverflowError(f"{name} does not fit into {bits} bits: {number}")
    return number


def text(value: str, name: str) -> bytes:
    """A C string."""
    if not isinstance(value, str):
        raise TypeError(f"{name} is a str, not {type(value).__name__}")
    return without_zeros(value.encode(), name)


def without_zeros(value: bytes, name: str) -> bytes:
    if b"\0" in value:
        raise ValueError(f"{name} has a zero character in it")
    return value


def version() -> str:
    """The version of libqf_host."""
    number: int = lib.qf_host_version()
    return f"{number >> 16}.{number >> 8 & 255}.{number & 255}"
