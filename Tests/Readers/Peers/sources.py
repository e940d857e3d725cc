# SPDX-License-Identifier: MIT
"""Makes the films that the rows of rows.py name: drawn and encoded by ffmpeg, then cut or damaged here.

Every function returns a film: the file's path and that of its master, the same film before it was cut or damaged. The
files are there after make(), which draws what has the same picture and sound in one start of ffmpeg. What is random comes
from the film's own name, so that each run makes the same octets.
"""

import os
import pathlib
import random
import re
import shlex
import subprocess
from dataclasses import dataclass

import fieldpictures

PICTURE = "-f lavfi -i testsrc2=size={size}:rate={rate}:duration={seconds}"
# Noise is nowhere like itself, so that each sample can be found again.
SOUND = "-f lavfi -i anoisesrc=seed={seed}:sample_rate={hertz}:amplitude=0.3:color=pink:duration={seconds}"
PACKET = 188


@dataclass
class Film:
    path: pathlib.Path
    master: pathlib.Path


class Sources:
    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        self._drawings = {}  # by ffmpeg's inputs: by path, the options of an output
        self._makers = {}  # by path, of files that others are made of first

    def make(self):
        """Makes what was asked for and is not there yet."""
        for inputs, outputs in self._drawings.items():
            parts = {path: self._part(path) for path in outputs if not path.exists()}
            if parts:
                self._run(inputs + "".join(f" {outputs[path]} {part}" for path, part in parts.items()))
            for path, part in parts.items():
                part.rename(path)
        for path, make in self._makers.items():
            if not path.exists():
                make(self._part(path))
                self._part(path).rename(path)

    @staticmethod
    def _part(path):
        return path.with_name(f"part-{os.getpid()}-{path.name}")

    def _made(self, name, make):
        path = self.folder / name
        self._makers[path] = make
        return path

    @staticmethod
    def _run(command):
        subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *shlex.split(command)], check=True)

    def drawn(self, name, options, seconds=4, size="192x128", rate=25, hertz=48000, seed=1):
        """Picture and sound as ffmpeg's options say; -an and -vn leave one out."""
        inputs = f"{PICTURE} {SOUND}".format(size=size, rate=rate, seconds=seconds, hertz=hertz, seed=seed)
        path = self.folder / name
        self._drawings.setdefault(inputs, {})[path] = options
        return Film(path, path)

    def copied(self, name, film, options, before=""):
        """The same octets in another container, or a part of them."""
        path = self._made(name, lambda part: self._run(f"{before} -i {film.path} -map 0 -c copy {options} {part}"))
        return Film(path, film.master)

    def _changed(self, film, word, change):
        name = re.sub(r"(\.\w+)$", rf"-{word}\1", film.path.name)

        def make(part):
            octets = bytearray(film.path.read_bytes())
            part.write_bytes(change(octets, random.Random(name)))

        return Film(self._made(name, make), film.master)

    def cut(self, film, begin, end=1.0, packet=1):
        """From one share of the file to another, at whole packets."""
        place = lambda octets, share: int(len(octets) * share) // packet * packet
        return self._changed(film, f"{begin}-{end}", lambda octets, _: octets[place(octets, begin) : place(octets, end)])

    def flipped(self, film, count):
        """Bits flipped in the middle eight tenths of the file."""
        def change(octets, dice):
            for _ in range(count):
                octets[dice.randrange(len(octets) // 10, len(octets) * 9 // 10)] ^= 1 << dice.randrange(8)
            return octets

        return self._changed(film, f"flipped-{count}", change)

    def zeroed(self, film, begin, size):
        def change(octets, _):
            place = int(len(octets) * begin)
            octets[place : place + size] = bytes(size)
            return octets

        return self._changed(film, "zeroed", change)

    def without_packets(self, film, count):
        """A transport stream of which so many packets were not received, none of its first tenth."""
        def change(octets, dice):
            packets = [octets[place : place + PACKET] for place in range(0, len(octets), PACKET)]
            for _ in range(count):
                del packets[dice.randrange(len(packets) // 10, len(packets))]
            return b"".join(packets)

        return self._changed(film, f"without-{count}", change)

    def joined(self, name, films):
        """Transport streams that follow each other."""
        path = self._made(name, lambda part: part.write_bytes(b"".join(film.path.read_bytes() for film in films)))
        return Film(path, path)

    def _with_sound(self, name, raw, options):
        sound = SOUND.format(hertz=48000, seconds=4, seed=1)
        path = self._made(name, lambda part: self._run(f"-i {raw} {sound} -c:v copy {options} {part}"))
        return Film(path, path)

    def field_pictures(self, name, options):
        raw = self._made("fields.h264", lambda part: part.write_bytes(fieldpictures.film(100)))
        return self._with_sound(name, raw, options) if options else Film(raw, raw)

    def packed(self, film):
        """An AVI of MPEG-4 in which each B picture lies in the chunk of the picture before it, as DivX wrote them."""
        return self._changed(film, "packed", lambda octets, _: packed_avi(bytes(octets)))


def packed_avi(avi):
    def chunks(begin, end):
        while begin + 8 <= end:
            size = int.from_bytes(avi[begin + 4 : begin + 8], "little")
            yield avi[begin : begin + 4], avi[begin + 8 : begin + 8 + size]
            begin += 8 + size + size % 2

    def chunk(name, payload):
        return name + len(payload).to_bytes(4, "little") + payload + bytes(len(payload) % 2)

    movie = avi.index(b"movi") + 4
    size = int.from_bytes(avi[movie - 8 : movie - 4], "little") - 4
    data = [list(each) for each in chunks(movie, movie + size) if each[0] in (b"00dc", b"01wb")]
    pictures = [each for each in data if each[0] == b"00dc"]
    first = pictures[0][1]
    divx = b"\0\0\1\xb2DivX503b1393p"
    pictures[0][1] = first[: first.index(b"\0\0\1\xb2")] + divx + first[first.index(b"\0\0\1\xb6") :]
    # In place of a picture that has moved forward: one that is not coded (vop_coded is 0), at 25 a second.
    repeat = b"\0\0\1\xb6" + int("01" "0" "1" "00000" "1" "0" "01111", 2).to_bytes(2, "big")
    for picture, after in zip(pictures[1:], pictures[2:]):
        if after[1][4] >> 6 == 2:
            picture[1] += after[1]
            after[1] = repeat
    body, index = b"movi", b""
    for name, payload in data:
        key = name == b"01wb" or payload.startswith(b"\0\0\1\xb0")
        index += name + (16 * key).to_bytes(4, "little") + len(body).to_bytes(4, "little") + len(payload).to_bytes(4, "little")
        body += chunk(name, payload)
    head = avi[12 : movie - 12].replace(b"indx", b"JUNK")
    return chunk(b"RIFF", b"AVI " + head + chunk(b"LIST", body) + chunk(b"idx1", index))
