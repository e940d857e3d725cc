# SPDX-License-Identifier: MIT
"""Says what a player gets out of a file, in figures that can be compared, and where one file is worse than another.

Everything is told by the samples themselves. The *master* is the clip before it was cut or damaged; a picture is good if
it equals a picture of the master in every sample, and its number there is its identity. Sound is found in the master's
sound the same way. So wrong pictures, wrong times and sound that has moved show up whatever a file's headers say.
"""

import bisect
import functools
import math
import statistics
from dataclasses import dataclass, field

import numpy as np

from players import Ffmpeg, Gstreamer, Mpv

# Times in Matroska files of either muxer are whole milliseconds.
TIME_TOLERANCE = 0.0021
SOUND_TOLERANCE = 0.0051
DURATION_TOLERANCE = 0.1
CUE_DISTANCE = 1.1  # seconds: the plug-in's cues are not closer, and players start at a cue
SAMPLES_TOLERANCE = 2 * 1152  # a frame at either end: in pieces it is found or not
PIECE = 1024  # samples that are found, or not, together


@functools.cache
def decoded_source(path):
    """What ffmpeg's libraries decode of a film, which several rows may share."""
    return Ffmpeg.whole(path)


@dataclass
class Master:
    times: list
    numbers: dict  # of a picture, by its key
    sound: np.ndarray  # all samples
    frames: list  # of sound: (first sample, seconds)
    sample_rate: int
    grids: dict = None  # the same for the keys of mpv's seeks
    _spectrum: np.ndarray = None
    _places: dict = field(default_factory=dict)  # of samples that were searched for, in octets

    @classmethod
    @functools.cache
    def read(cls, path, grids=True):
        decoded = decoded_source(path)
        numbers = {}
        for number, (_, key) in enumerate(decoded.pictures):
            numbers.setdefault(key, []).append(number)
        # Pictures without times (raw streams) follow each other.
        times = [number / decoded.rate if seconds is None else seconds for number, (seconds, _) in enumerate(decoded.pictures)]
        sound = np.concatenate([samples for _, samples in decoded.sound] or [np.zeros(0, np.float32)])
        begins = np.cumsum([0] + [len(samples) for _, samples in decoded.sound]).tolist()
        frames = [(begin, seconds) for begin, (seconds, _) in zip(begins, decoded.sound)]
        self = cls(times, numbers, sound, frames, decoded.sample_rate)
        if grids:
            self.grids = {}
            for number, (_, key) in enumerate(Mpv.grids(path)):
                self.grids.setdefault(key, []).append(number)
        return self

    def time_of_sample(self, place):
        begin, seconds = self.frames[bisect.bisect(self.frames, (place, math.inf)) - 1]
        return seconds + (place - begin) / self.sample_rate

    def _alike(self, samples, place):
        there = self.sound[max(place, 0) : max(place, 0) + len(samples)]
        if place < 0 or len(there) < len(samples):
            return False
        # Decoders may dither: samples of equal octets are alike, not equal.
        return np.dot(samples, there) > 0.95 * math.sqrt(np.dot(samples, samples)) * math.sqrt(np.dot(there, there))

    def find_sound(self, samples, hint):
        """At which sample of the master's sound these lie; None if they are nowhere, or silent."""
        if not samples.any():
            return None
        if self._alike(samples, hint):
            return hint
        octets = samples.tobytes()
        if octets not in self._places:
            self._places[octets] = self._search(samples)
        return self._places[octets]

    def _search(self, samples):
        size = 1 << (len(self.sound) + len(samples)).bit_length()
        if self._spectrum is None or len(self._spectrum) != size // 2 + 1:
            self._spectrum = np.fft.rfft(self.sound, size)
        place = int(np.argmax(np.fft.irfft(self._spectrum * np.conj(np.fft.rfft(samples, size)), size)))
        return place if self._alike(samples, place) else None


@dataclass
class Whole:
    good: int = 0  # pictures of the master, each counted once
    wrong: int = 0  # pictures that are none of the master's
    mistimed: int = 0  # pictures that stand elsewhere among the others than in the master
    samples: int = 0
    good_samples: int = 0
    mistimed_sound: int = 0  # frames of sound, likewise
    drift: float = 0.0  # seconds that sound comes later than in the master, against the pictures
    duration: float = None
    length: float = 0.0  # from the first thing shown to the end of the last
    shift: float = 0.0  # of the pictures' times, against the master's
    numbers: set = field(default_factory=set)

    @classmethod
    def of(cls, decoded, master, begin=None):
        """begin: where sound counts from, in the master; None: sound is not looked for."""
        self = cls(duration=decoded.duration, samples=decoded.samples())
        shifts = []
        last = -1
        for order, (seconds, key) in enumerate(decoded.pictures):
            found = master.numbers.get(key)
            if not found:
                self.wrong += 1
                continue
            # A still picture may be any of several: the next one of them.
            number = next((each for each in found if each > last), found[-1])
            last = number
            self.numbers.add(number)
            shifts.append((order / decoded.rate if seconds is None else seconds) - master.times[number])
        self.good = len(self.numbers)
        if shifts:
            self.shift = statistics.median(shifts)
            self.mistimed = sum(abs(each - self.shift) > TIME_TOLERANCE for each in shifts)
        if begin is not None and len(master.sound):
            self._hear(decoded, master, bool(shifts), begin)
        ends = [seconds for seconds, _ in decoded.pictures if seconds is not None]
        if decoded.sound and decoded.sound[-1][0] is not None:
            ends.append(decoded.sound[-1][0] + len(decoded.sound[-1][1]) / decoded.sample_rate)
        self.length = max(ends, default=0.0)
        return self

    def _hear(self, decoded, master, with_pictures, begin):
        shifts = []
        hint = 0
        pieces = [(seconds + begin / decoded.sample_rate, samples[begin : begin + PIECE])
                  for seconds, samples in decoded.sound for begin in range(0, len(samples), PIECE)]
        for seconds, samples in pieces:
            place = master.find_sound(samples, hint)
            hint = (hint if place is None else place) + len(samples)
            if place is not None:
                in_master = master.time_of_sample(place)
                self.good_samples += len(samples) if in_master >= begin else 0
                shifts.append(seconds - in_master)
        if shifts:
            middle = statistics.median(shifts)
            self.mistimed_sound = sum(abs(each - middle) > SOUND_TOLERANCE for each in shifts)
            self.drift = middle - self.shift if with_pictures else 0.0


@dataclass
class Seek:
    missed: float = math.inf  # seconds between the target and the picture that is shown for it, if it is a good one
    wrong: bool = False  # it is none of the master's
    work: int = 0  # pictures decoded for it

    @classmethod
    def of(cls, shown, numbers, master, target):
        if shown is None:
            return cls()
        key, work = shown
        found = [number for number in numbers.get(key, []) if number < len(master.times)]
        missed = min((abs(master.times[number] - master.times[target]) for number in found), default=math.inf)
        return cls(missed, not found, work)


def targets_among(numbers, count):
    """So many picture numbers, spread evenly, in an order that jumps to and fro."""
    numbers = sorted(numbers)
    if not numbers:
        return []
    spread = [numbers[(2 * step + 1) * len(numbers) // (2 * count)] for step in range(count)]
    return spread[::2] + spread[1::2][::-1]


def seeks(player, paths, wholes, master, targets):
    """Of each file."""
    aims = [[max(0.0, master.times[each] + whole.shift + player.aim) for each in targets] for whole in wholes]
    numbers = master.grids if player is Mpv else master.numbers
    return [[Seek.of(each, numbers, master, target) for each, target in zip(shown, targets)]
            for shown in player.seeks(paths, aims)]


def worse_whole(ours, theirs):
    """The names of all figures in which ours is worse."""
    worse = []
    if ours.good < theirs.good:
        worse.append(f"pictures: {ours.good} of {theirs.good}")
    if ours.wrong > theirs.wrong:
        worse.append(f"wrong pictures: {ours.wrong}, not {theirs.wrong}")
    if ours.mistimed > theirs.mistimed:
        worse.append(f"pictures with wrong times: {ours.mistimed}, not {theirs.mistimed}")
    if ours.good_samples + SAMPLES_TOLERANCE < theirs.good_samples:
        worse.append(f"samples: {ours.good_samples} of {theirs.good_samples}")
    if ours.mistimed_sound > theirs.mistimed_sound:
        worse.append(f"sound with wrong times: {ours.mistimed_sound}, not {theirs.mistimed_sound}")
    if abs(ours.drift) > abs(theirs.drift) + TIME_TOLERANCE:
        worse.append(f"drift: {ours.drift * 1000:.1f} ms, not {theirs.drift * 1000:.1f} ms")
    if None not in (ours.duration, theirs.duration) and (
        abs(ours.duration - ours.length) > abs(theirs.duration - theirs.length) + DURATION_TOLERANCE
    ):
        worse.append(f"duration: {ours.duration:.3f} s for {ours.length:.3f} s, not {theirs.duration:.3f} s for {theirs.length:.3f} s")
    return worse


def worse_seeks(ours, theirs, targets, master):
    worse = []
    picture_time = (max(master.times) - min(master.times)) / max(1, len(master.times) - 1)
    for target, mine, other in zip(targets, ours, theirs):
        place = f"seek to {master.times[target] - master.times[0]:.2f} s"
        if mine.missed > other.missed + picture_time / 2:
            worse.append(f"{place}: {mine.missed:.2f} s off{mine.wrong * ', a wrong picture'}; not {other.missed:.2f} s")
        elif mine.work > other.work + CUE_DISTANCE / picture_time:
            worse.append(f"{place}: {mine.work} pictures decoded, not {other.work}")
    return worse
