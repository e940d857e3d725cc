# SPDX-License-Identifier: MIT
"""Converts streams and packets of PyAV, and of compatible objects, for qf_mkv.

This module does not import PyAV: it reads attributes that its streams, codec contexts and packets have.
"""

from __future__ import annotations

from typing import Any, Iterable

from ._file import File
from ._job import AUDIO, Audio, Video

_CODECS = {
    "mpeg1video": "mpeg1",
    "mpeg2video": "mpeg2",
    "libx264": "h264",
    "libvpx": "vp8",
    "libvorbis": "vorbis",
    "libmp3lame": "mp3",
    "mp3float": "mp3",
    "mp2float": "mp2",
    "dca": "dts",
    "pcm_u8": "pcm",
    "pcm_s16le": "pcm",
    "pcm_s24le": "pcm",
    "pcm_s32le": "pcm",
}
_PCM_BITS = {"pcm_u8": 8, "pcm_s16le": 16, "pcm_s24le": 24, "pcm_s32le": 32}


def _codec_name(context: Any) -> str:
    name: str = context.codec.name
    return _CODECS.get(name, name)


def video(source: Any) -> Video:
    """The track for a video stream, or for a codec context that encodes."""
    context = getattr(source, "codec_context", source)
    rate = getattr(source, "average_rate", None) or getattr(context, "framerate", None) or 0
    return Video(
        _codec_name(context),
        context.width,
        context.height,
        rate,
        setup=context.extradata or b"",
        time_base=source.time_base,
    )


def audio(source: Any) -> Audio:
    """The track for an audio stream, or for a codec context that encodes."""
    context = getattr(source, "codec_context", source)
    return Audio(
        _codec_name(context),
        context.sample_rate,
        context.channels,
        _PCM_BITS.get(context.codec.name, 0),
        setup=context.extradata or b"",
        time_base=source.time_base,
    )


def write(file: File, packet: Any, track: int) -> None:
    """Writes a packet, VIDEO or AUDIO, without copying it. Skips the empty packet at a stream's end."""
    if packet.size == 0:
        return
    if track == AUDIO:
        file.write_audio(packet, packet.pts, packet.dts, packet.duration)
    else:
        file.write_video(packet, packet.pts, packet.dts, packet.duration, packet.is_keyframe)


def write_all(file: File, packets: Iterable[Any], track: int) -> None:
    """Writes the packets of an encoder."""
    for packet in packets:
        write(file, packet, track)
