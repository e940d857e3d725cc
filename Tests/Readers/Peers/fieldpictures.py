# SPDX-License-Identifier: MIT
"""H.264 in which each field is a picture of its own (ITU-T H.264, field_pic_flag), which no free encoder writes.

Key frames are uncompressed macroblocks, all others repeat the field before but for one macroblock.
"""

WIDE, HIGH = 4, 4  # macroblocks of a field: frames of 64 x 128
GROUP = 25  # frames


class Bits:
    def __init__(self):
        self.text = []

    def u(self, count, value):
        self.text.append(f"{value:0{count}b}" if count else "")
        return self

    def ue(self, value):
        code = f"{value + 1:b}"
        self.text.append("0" * (len(code) - 1) + code)
        return self

    def uncompressed(self, samples):
        """pcm_alignment_zero_bits and a macroblock's samples."""
        whole = "".join(self.text)
        self.text = [whole + "0" * (-len(whole) % 8) + "".join(f"{sample:08b}" for sample in samples)]

    def unit(self, kind):
        """The whole unit with its start code and emulation prevention."""
        whole = "".join(self.text) + "1"
        whole += "0" * (-len(whole) % 8)
        octets = int(whole, 2).to_bytes(len(whole) // 8, "big")
        escaped = bytearray()
        zeros = 0
        for octet in octets:
            if zeros >= 2 and octet <= 3:
                escaped.append(3)
                zeros = 0
            escaped.append(octet)
            zeros = zeros + 1 if octet == 0 else 0
        return b"\0\0\0\1" + bytes([kind]) + bytes(escaped)


def parameter_sets():
    sequence = Bits().u(8, 77).u(8, 0).u(8, 30).ue(0)  # Main profile
    sequence.ue(0).ue(0).ue(4)  # frame_num in 4 bits, order count in 8
    sequence.ue(2).u(1, 0).ue(WIDE - 1).ue(HIGH - 1)
    sequence.u(1, 0).u(1, 0).u(1, 1).u(1, 0)  # fields, not adaptive in a frame; direct_8x8_inference
    sequence.u(1, 1).u(1, 0).u(1, 0).u(1, 0).u(1, 0)  # VUI: no aspect, overscan, signal type, chroma place
    sequence.u(1, 1).u(32, 1).u(32, 50).u(1, 1)  # 50 fields a second, always
    sequence.u(1, 0).u(1, 0).u(1, 0).u(1, 0)
    picture = Bits().ue(0).ue(0).u(1, 0).u(1, 0).ue(0).ue(0).ue(0).u(1, 0).u(2, 0).ue(0).ue(0).ue(0)
    picture.u(1, 1).u(1, 0).u(1, 0)
    return sequence.unit(0x67) + picture.unit(0x68)


def macroblock(frame, place, bottom):
    luma = [(16 + (frame * 7 + place * 31 + x * 3 + y * 5 + bottom * 11) % 220) for y in range(16) for x in range(16)]
    return luma + [(64 + (frame * 5 + place * 9) % 128)] * 64 + [(64 + (frame * 3 + place * 17) % 128)] * 64


def field(frame, bottom):
    number = frame % GROUP
    key = number == 0
    first = key and not bottom
    slice_ = Bits().ue(0).ue(7 if key else 5).ue(0).u(4, number % 16).u(1, 1).u(1, bottom)
    if first:
        slice_.ue(frame // GROUP % 2)
    slice_.u(8, (2 * number + bottom) % 256)
    if not key:
        slice_.u(1, 0).u(1, 0)
    slice_.u(2 if first else 1, 0).ue(0).ue(1)  # no special marking; QP; no deblocking
    if key:
        for place in range(WIDE * HIGH):
            slice_.ue(25)
            slice_.uncompressed(macroblock(frame, place, bottom))
    else:
        changed = frame % (WIDE * HIGH)
        slice_.ue(changed).ue(30)
        slice_.uncompressed(macroblock(frame, changed, bottom))
        if changed < WIDE * HIGH - 1:
            slice_.ue(WIDE * HIGH - 1 - changed)
    return slice_.unit(0x65 if first else 0x61)


def film(frames):
    octets = bytearray()
    for frame in range(frames):
        octets += b"\0\0\0\1\x09\xf0" + (parameter_sets() if frame % GROUP == 0 else b"")
        octets += field(frame, 0) + b"\0\0\0\1\x09\xf0" * 0 + field(frame, 1)
    return bytes(octets)
