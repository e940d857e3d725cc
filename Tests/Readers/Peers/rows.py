# SPDX-License-Identifier: MIT
"""The films that qfmux and its peer are compared by: one row each."""

from dataclasses import dataclass, field
from typing import Callable

from sources import PACKET, Film, Sources


@dataclass
class Row:
    name: str
    film: Callable[[Sources], Film]
    exits: int = 0
    says: str = ""  # what qfmux must say, as a pattern
    worse: dict = field(default_factory=dict)  # the lines in which ours is worse, as patterns, each with why


H264 = "-c:v libx264 -preset veryfast -threads 1 -x264-params keyint=25:min-keyint=25:scenecut=0:"
OPEN = H264 + "open-gop=1:bframes=3:b-pyramid=normal:ref=4 "
CLOSED = H264 + "bframes=2:open-gop=0 "
REFRESH = H264.replace("min-keyint=25:", "") + "intra-refresh=1:bframes=0 "
MBAFF = H264 + "interlaced=1:open-gop=1:bframes=2 "
SLICES = H264 + "slices=4:bframes=2 "
MPEG2 = "-c:v mpeg2video -b:v 900k -g 12 -bf 2 "
INTERLACED_MPEG2 = MPEG2 + "-flags +ildct+ilme -top 1 "
MPEG4 = "-c:v mpeg4 -b:v 800k -g 20 -bf 2 "
VP8_HIDDEN = "-threads 1 -c:v libvpx -deadline good -cpu-used 5 -b:v 500k -g 25 -auto-alt-ref 1 -lag-in-frames 16 "
UNEVEN = "-vf \"select='not(eq(mod(n,6),1)+eq(mod(n,6),3)+eq(mod(n,6),4))'\" -fps_mode vfr "
MP2, AC3, MP3 = "-c:a mp2", "-c:a ac3 -b:a 192k", "-c:a libmp3lame"
AAC, DTS = "-c:a aac -b:a 160k -aac_pns 0", "-c:a dca -strict -2 -ac 2"
PCM, VORBIS = "-c:a pcm_s16le", "-c:a libvorbis -q 6"



def open_ts(s):
    return s.drawn("open.ts", OPEN + MP2)


def open_m2ts(s):
    return s.drawn("open.m2ts", OPEN + AC3 + " -mpegts_m2ts_mode 1")


def open_raw(s):
    return s.drawn("open.h264", OPEN + "-an")


def open_mkv(s):
    return s.drawn("open.mkv", OPEN + AC3)


def fragments(s):
    return s.drawn("fragments.mp4", OPEN + AAC + " -movflags frag_keyframe+empty_moov")


def mbaff_ts(s):
    return s.drawn("mbaff.ts", MBAFF + AC3)


def refresh_ts(s):
    return s.drawn("refresh.ts", REFRESH + MP2)


def closed_ts(s):
    return s.drawn("closed.ts", CLOSED + AC3)


def closed_mp4(s):
    return s.drawn("closed.mp4", CLOSED + AAC)


def slices_flv(s):
    return s.drawn("slices.flv", SLICES + AAC)


def fields_ts(s):
    return s.field_pictures("fields.ts", AC3)


def mpeg2_ts(s):
    return s.drawn("mpeg2.ts", MPEG2 + AC3)


def mpeg2_vob(s):
    return s.drawn("mpeg2.vob", INTERLACED_MPEG2 + AC3)


def mpeg4_avi(s):
    return s.drawn("mpeg4.avi", MPEG4 + MP3)


def changing_ts(s):
    first = s.drawn("first.ts", CLOSED + AC3, seconds=1.92)
    other = H264 + "bframes=0:cabac=0:ref=1:8x8dct=0 " + AC3 + " -output_ts_offset 1.92"
    return s.joined("changing.ts", [first, s.drawn("second.ts", other, seconds=1.92, seed=2)])


# A recording that begins anywhere begins with pictures that do not decode, and sound beside them.
KEPT = "frames that were hit are kept: the source's own decode has them, too"
BEGINS = "left out before the first picture"

# Rows of a group are compared in one process and share their films.
GROUPS = {
    "broadcasts": [
        Row("open GOP in TS", open_ts),
        Row("open GOP in TS from a packet on", lambda s: s.cut(open_ts(s), 0.3, packet=PACKET), 1, BEGINS),
        Row("open GOP in TS from any octet on", lambda s: s.cut(open_ts(s), 0.57), 1, BEGINS),
        Row("open GOP in M2TS", open_m2ts),
        Row("open GOP in M2TS from a packet on", lambda s: s.cut(open_m2ts(s), 0.4, packet=192), 1, BEGINS),
        Row("open GOP raw", open_raw),
        Row("open GOP raw from any octet on", lambda s: s.cut(open_raw(s), 0.35), 1, BEGINS),
        Row("MBAFF in TS", mbaff_ts),
        Row("MBAFF in TS from a packet on", lambda s: s.cut(mbaff_ts(s), 0.45, packet=PACKET), 1, BEGINS),
        Row("field pictures in TS", fields_ts),
        Row("field pictures in TS from a packet on", lambda s: s.cut(fields_ts(s), 0.4, packet=PACKET), 1, BEGINS),
        Row("field pictures raw", lambda s: s.field_pictures("", "")),
        Row("intra refresh in TS", refresh_ts),
        Row("intra refresh in TS from a packet on", lambda s: s.cut(refresh_ts(s), 0.33, packet=PACKET), 1, BEGINS),
        Row("four slices in TS", lambda s: s.drawn("slices.ts", SLICES + AC3)),
        Row("parameter sets that change in TS", changing_ts, 1, "damaged",
            {"GStreamer: pictures with wrong times: 1,": "at the joint: what libavformat marks as damaged is kept as it came"}),
        Row("33-bit wrap in TS", lambda s: s.drawn("wrap.ts", CLOSED + AC3 + " -output_ts_offset 95441.5")),
        Row("AAC with ADTS in TS from a packet on",
            lambda s: s.cut(s.drawn("adts.ts", CLOSED + AAC), 0.21, packet=PACKET), 1, BEGINS),
        Row("AAC in LATM in TS", lambda s: s.drawn("latm.ts", CLOSED + AAC + " -mpegts_flags latm"), 2, "aac_latm.*not supported",
            {"^no file": "libavformat has no way from LATM to the AAC that Matroska holds"}),
        Row("DTS in TS", lambda s: s.drawn("dts.ts", CLOSED + DTS)),
        Row("truncated TS", lambda s: s.cut(closed_ts(s), 0, 0.6), 1, "damaged"),  # no length tells
        Row("lost packets in TS", lambda s: s.without_packets(closed_ts(s), 6), 1, "damaged packets",
            {"wrong pictures: 26, not 24": KEPT, "sound with wrong times": KEPT}),
        Row("flipped bits in TS", lambda s: s.flipped(closed_ts(s), 20), 1, "damaged pictures"),
        Row("zeros in TS", lambda s: s.zeroed(closed_ts(s), 0.5, 20000), 1),
    ],
    "files": [
        Row("open GOP in MP4", lambda s: s.drawn("open.mp4", OPEN + AAC)),
        Row("open GOP in Matroska", open_mkv),
        Row("MBAFF in MP4", lambda s: s.drawn("mbaff.mp4", MBAFF + AAC)),
        Row("intra refresh in MP4", lambda s: s.drawn("refresh.mp4", REFRESH + AAC)),
        Row("four slices in FLV", slices_flv),
        Row("uneven pictures in MP4", lambda s: s.drawn("uneven.mp4", UNEVEN + CLOSED + AAC)),
        Row("fragmented MP4", fragments),
        Row("edit list in MP4", lambda s: s.copied("edit.mp4", closed_mp4(s), "", "-ss 1.4"), 1, "edit list is only partly applied"),
        Row("MP3 in Matroska from 1.3 s on",
            lambda s: s.copied("mp3-cut.mkv", s.drawn("mp3.mkv", CLOSED + MP3), "", "-ss 1.3")),
        Row("PCM in MOV", lambda s: s.drawn("pcm.mov", CLOSED + PCM)),
        Row("truncated fragmented MP4", lambda s: s.cut(fragments(s), 0, 0.7), 1),
        Row("truncated MP4", lambda s: s.cut(s.drawn("front.mp4", CLOSED + AAC + " -movflags faststart"), 0, 0.6), 1, "ends after"),
        Row("truncated Matroska", lambda s: s.cut(open_mkv(s), 0, 0.6), 1, "ends after"),
        Row("truncated FLV", lambda s: s.cut(slices_flv(s), 0, 0.7), 1, "ends after"),
        Row("flipped bits in MP4", lambda s: s.flipped(closed_mp4(s), 10)),
        Row("zeros in MP4", lambda s: s.zeroed(closed_mp4(s), 0.5, 3000), 1),
        Row("zeros in Matroska", lambda s: s.zeroed(open_mkv(s), 0.5, 3000), 1),
    ],
    "other codecs": [
        Row("MPEG-2 in TS", mpeg2_ts),
        Row("MPEG-2 in TS from a packet on", lambda s: s.cut(mpeg2_ts(s), 0.37, packet=PACKET), 1, BEGINS),
        Row("interlaced MPEG-2 in VOB", mpeg2_vob),
        Row("interlaced MPEG-2 in VOB from any octet on", lambda s: s.cut(mpeg2_vob(s), 0.43), 1, BEGINS),
        Row("MPEG-1 in MPG", lambda s: s.drawn("mpeg1.mpg", "-c:v mpeg1video -b:v 900k -g 12 -bf 2 " + MP2)),
        Row("MPEG-4 with B frames in AVI", mpeg4_avi),
        Row("MPEG-4 with packed B frames in AVI",
            lambda s: s.packed(s.drawn("packed.avi", "-c:v mpeg4 -b:v 800k -g 20 -bf 1 " + MP3))),
        Row("MPEG-4 in MP4", lambda s: s.drawn("mpeg4.mp4", MPEG4 + AAC)),
        Row("VP8 with hidden pictures", lambda s: s.drawn("vp8.webm", VP8_HIDDEN + VORBIS)),
        Row("truncated AVI", lambda s: s.cut(mpeg4_avi(s), 0, 0.7), 1, "damaged"),
        Row("zeros in VOB", lambda s: s.zeroed(mpeg2_vob(s), 0.5, 5000), 0, "",
            {"mpv: wrong pictures": "a program stream does not tell of gaps: pictures that were hit are kept, as the source shows them"}),
    ],
}
