# SPDX-License-Identifier: MIT
"""The library's errors as exceptions, each derived from the closest built-in exception."""

from __future__ import annotations

from typing import ClassVar


class Error(Exception):
    """An error of the library, with the library's text."""

    code: ClassVar[int] = 0


class ArgumentError(Error, ValueError):
    code = 1


class NoMemoryError(Error, MemoryError):
    """The call has changed nothing and may be made again."""

    code = 2


class PluginError(Error, OSError):
    code = 3


class FormatError(Error, ValueError):
    code = 4


class OpenError(Error, OSError):
    code = 5


class ExistsError(Error, FileExistsError):
    code = 6


class WriteError(Error, OSError):
    """Not all of the file reached the disk."""

    code = 7


class DataError(Error, ValueError):
    """A packet or set-up data is not valid for its codec."""

    code = 8


class TimeError(Error, ValueError):
    code = 9


class StateError(Error, ValueError):
    """There is no such track, it has ended, or the file is closed."""

    code = 10


class EmptyError(Error, ValueError):
    """No packet was written: the file is empty."""

    code = 11


class InternalError(Error, RuntimeError):
    code = 12


_KINDS: tuple[type[Error], ...] = (
    ArgumentError,
    NoMemoryError,
    PluginError,
    FormatError,
    OpenError,
    ExistsError,
    WriteError,
    DataError,
    TimeError,
    StateError,
    EmptyError,
    InternalError,
)


def error_of(code: int, text: str) -> Error:
    for kind in _KINDS:
        if kind.code == code:
            return kind(text)
    return InternalError(text)
