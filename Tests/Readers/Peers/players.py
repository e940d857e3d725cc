# SPDX-License-Identifier: MIT
"""Decodes a file with ffmpeg's libraries, GStreamer and mpv, whole and after seeks: what each shows, and when.

A picture is a pair of its time in seconds and a key: pictures with equal keys are equal in every sample (for mpv's
seeks: in a grid of 16 x 16). Every decoder runs in one thread, so that damaged pictures come out the same each time.
"""

import hashlib
import json
import os
import pathlib
import subprocess
import tempfile
from dataclasses import dataclass, field

import av
import numpy as np


@dataclass
class Decoded:
    pictures: list = field(default_factory=list)  # (seconds, key), in the order shown
    sound: list = field(default_factory=list)  # (seconds, samples of the first channel, at any scale)
    sample_rate: int = 0
    rate: float = 25.0  # pictures a second, for those without times
    duration: float = None  # as the header says, seconds; None where nobody asks
    packets_refused: int = 0

    def samples(self):
        return sum(len(samples) for _, samples in self.sound)


def _key_of(frame):
    digest = hashlib.md5(f"{frame.width}x{frame.height}".encode(), usedforsecurity=False)
    for plane in frame.planes:
        rows = np.frombuffer(plane, np.uint8).reshape(plane.height, -1)
        wide = frame.format.name.endswith(("le", "be"))
        digest.update(np.ascontiguousarray(rows[:, : plane.width * (2 if wide else 1)]))
    return digest.hexdigest()


def _first_channel(frame):
    samples = frame.to_ndarray()
    return samples[0, :: 1 if frame.format.is_planar else len(frame.layout.channels)].astype(np.float32)


class Player:
    @classmethod
    def seeks(cls, paths, targets):
        """For each file, for each of its targets: the pictures that are shown."""
        return [cls._seeks(path, each) for path, each in zip(paths, targets)]


class Ffmpeg(Player):
    name = "ffmpeg"
    aim = -0.0015  # seconds from a picture's time to where a seek to it goes: the first picture from there on is shown

    @staticmethod
    def _open(path):
        # Sources are probed to their end: a stream that begins late is a stream.
        container = av.open(str(path), container_options={"probesize": "50000000", "analyzeduration": "60000000"})
        streams = [next(iter(kind), None) for kind in (container.streams.video, container.streams.audio)]
        streams = [stream for stream in streams if stream]
        for stream in streams:
            stream.codec_context.thread_count = 1
        return container, streams

    @classmethod
    def _frames(cls, container, streams, decoded):
        packets = container.demux(streams)
        while True:
            try:
                packet = next(packets, None)
            except av.AVError:
                decoded.packets_refused += 1
                packet = None
            if packet is None:
                return
            try:
                frames = packet.decode()
            except av.AVError:
                decoded.packets_refused += 1
                continue
            for frame in frames:
                yield packet.stream, float(frame.pts * frame.time_base) if frame.pts is not None else None, frame

    @classmethod
    def whole(cls, path):
        decoded = Decoded()
        try:
            container, streams = cls._open(path)
        except av.AVError:  # no file, or none that it knows
            return decoded
        with container:
            decoded.duration = (container.duration or 0) / av.time_base
            decoded.rate = float(next((stream.guessed_rate for stream in streams if stream.type == "video"), None) or 25)
            for stream, seconds, frame in cls._frames(container, streams, decoded):
                if stream.type == "video":
                    decoded.pictures.append((seconds, _key_of(frame)))
                else:
                    decoded.sample_rate = frame.sample_rate
                    decoded.sound.append((seconds, _first_channel(frame)))
        return decoded

    @classmethod
    def _seeks(cls, path, targets):
        """For each target the pictures decoded up to the first one that is not in front of it."""
        shown = []
        try:
            container, streams = cls._open(path)
        except av.AVError:
            return [[] for _ in targets]
        with container:
            video = next((stream for stream in streams if stream.type == "video"), None)
            if video is None:
                return [[] for _ in targets]
            for target in targets:
                pictures = []
                shown.append(pictures)
                try:
                    container.seek(int(target / video.time_base), stream=video, backward=True)
                except av.AVError:
                    continue
                for _, seconds, frame in cls._frames(container, [video], Decoded()):
                    pictures.append((seconds, _key_of(frame)))
                    if seconds is not None and seconds >= target:
                        break
        return shown


class Gstreamer(Player):
    name = "GStreamer"
    aim = 0.005  # the picture that covers this time is shown
    _types = {"U8": "u1", "S16LE": "<i2", "S32LE": "<i4", "F32LE": "<f4", "F64LE": "<f8"}
    _patience = 20  # seconds without anything; then the player counts as stuck

    def __init__(self, path):
        import gi

        # libavcodec's decoders, as in the other players: others may round differently.
        os.environ["GST_PLUGIN_FEATURE_RANK"] = "mpeg2dec:NONE,a52dec:NONE"
        gi.require_version("Gst", "1.0")
        gi.require_version("GstApp", "1.0")
        from gi.repository import Gst, GstApp  # noqa: F401  (GstApp gives appsink its methods)

        Gst.init(None)
        self.gst = Gst
        self.player = Gst.ElementFactory.make("playbin")
        self.player.set_property("uri", pathlib.Path(path).resolve().as_uri())
        self.player.set_property("flags", 3)  # video and audio as they are: no text, no scaling of volume
        self.player.connect("deep-element-added", self._added)
        self.sinks = {}
        for kind, caps in ("video", "video/x-raw"), ("audio", "audio/x-raw,layout=interleaved,format={U8,S16LE,S32LE,F32LE,F64LE}"):
            sink = Gst.ElementFactory.make("appsink")
            sink.set_property("sync", False)
            sink.set_property("caps", Gst.Caps.from_string(caps))
            self.player.set_property(f"{kind}-sink", sink)
            self.sinks[kind] = sink

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.player.set_state(self.gst.State.NULL)

    @staticmethod
    def _added(_bin, _sub, element):
        if element.find_property("max-threads"):
            element.set_property("max-threads", 1)

    def _prerolled(self, state):
        if self.player.set_state(state) == self.gst.StateChangeReturn.FAILURE:
            return False
        return self._settled()

    def _settled(self):
        bus = self.player.get_bus()
        kinds = self.gst.MessageType.ERROR | self.gst.MessageType.ASYNC_DONE
        message = bus.timed_pop_filtered(self._patience * self.gst.SECOND, kinds)
        return message is not None and message.type != self.gst.MessageType.ERROR

    def _pull(self, kind):
        """The next sample's time and octets, None at the end."""
        sample = self.sinks[kind].emit("try-pull-sample", self._patience * self.gst.SECOND)
        if sample is None:
            return None
        buffer = sample.get_buffer()
        seconds = sample.get_segment().to_stream_time(self.gst.Format.TIME, buffer.pts) / self.gst.SECOND
        return seconds, buffer.extract_dup(0, buffer.get_size()), sample.get_caps().get_structure(0)

    @staticmethod
    def _key(octets, form):
        size = f"{form.get_value('width')}x{form.get_value('height')}"
        return hashlib.md5(size.encode() + octets, usedforsecurity=False).hexdigest()

    @classmethod
    def whole(cls, path):
        decoded = Decoded()
        with cls(path) as player:
            if not player._prerolled(player.gst.State.PAUSED):
                return decoded
            player.player.set_state(player.gst.State.PLAYING)
            decoded.duration = player.player.query_duration(player.gst.Format.TIME)[1] / player.gst.SECOND
            ends = {kind: player.player.get_property(f"n-{kind}") == 0 for kind in player.sinks}
            # In turns: each queue holds some seconds, and none is to run full.
            while not all(ends.values()):
                for kind in player.sinks:
                    if ends[kind]:
                        continue
                    sample = player._pull(kind)
                    if sample is None:
                        ends[kind] = True
                    elif kind == "video":
                        decoded.pictures.append((sample[0], cls._key(*sample[1:])))
                    else:
                        seconds, octets, form = sample
                        decoded.sample_rate = form.get_value("rate")
                        samples = np.frombuffer(octets, cls._types[form.get_value("format")])
                        decoded.sound.append((seconds, samples[:: form.get_value("channels")].astype(np.float32)))
        return decoded

    @classmethod
    def _seeks(cls, path, targets):
        """For each target the picture that is shown there."""
        shown = []
        with cls(path) as player:
            gst = player.gst
            if not player._prerolled(gst.State.PAUSED):
                return [[] for _ in targets]
            for target in targets:
                shown.append([])
                flags = gst.SeekFlags.FLUSH | gst.SeekFlags.ACCURATE
                if not player.player.seek_simple(gst.Format.TIME, flags, int(target * gst.SECOND)):
                    continue
                if not player._settled():
                    continue
                sample = player.sinks["video"].emit("try-pull-preroll", 0)
                if sample:
                    buffer = sample.get_buffer()
                    seconds = sample.get_segment().to_stream_time(gst.Format.TIME, buffer.pts) / gst.SECOND
                    octets = buffer.extract_dup(0, buffer.get_size())
                    shown[-1].append((seconds, cls._key(octets, sample.get_caps().get_structure(0))))
        return shown


class Mpv(Player):
    name = "mpv"
    aim = Ffmpeg.aim
    _grid = "--vf=@grid:fingerprint=type=gray-hex-16x16"

    # Without its own scripts, which take a third of the time of a short film.
    _bare = ["--load-scripts=no", "--osc=no", "--ytdl=no", "--load-stats-overlay=no", "--load-osd-console=no", "--load-auto-profiles=no"]

    @classmethod
    def _play(cls, words):
        """What it prints; as far as it came when it is stuck, as it is where it waits for a first picture."""
        command = ["mpv", "--no-config", "--msg-level=all=no,fingerprint=info", "--rebase-start-time=no", "--framedrop=no",
                   "--vd-lavc-threads=1", "--ad-lavc-threads=1", *cls._bare, *map(str, words)]
        try:
            return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=20, check=False).stdout
        except subprocess.TimeoutExpired:
            return ""

    @classmethod
    def whole(cls, path):
        """Plays into a file of raw pictures and sound, which is read here."""
        with tempfile.TemporaryDirectory() as folder:
            raw = os.path.join(folder, "raw.nut")
            cls._play([path, f"--o={raw}", "--of=nut", "--ovc=rawvideo", "--oac=pcm_f32le"])
            decoded = Ffmpeg.whole(raw)
            decoded.duration = None  # that of the raw file
            return decoded

    @classmethod
    def grids(cls, path):
        """The keys of all pictures that its seeks may show."""
        lines = cls._play(["--no-audio", "--vo=null", "--untimed", f"{cls._grid}:print=yes", path]).splitlines()
        lines = [line.split() for line in lines if line.startswith("[fingerprint]")]
        return [(float(seconds.rstrip(":")), grid) for _, seconds, grid in lines]

    @classmethod
    def seeks(cls, paths, targets):
        """For each file, for each of its targets: the picture that is shown there."""
        shown = cls._seeks_in_one_start(paths, targets)
        # Where mpv is stuck in one file, the other one has no answers, either.
        if any(len(answers) < len(each) for answers, each in zip(shown, targets)):
            shown = [cls._seeks_in_one_start([path], [each])[0] for path, each in zip(paths, targets)]
        return [answers + [[]] * (len(each) - len(answers)) for answers, each in zip(shown, targets)]

    @classmethod
    def _seeks_in_one_start(cls, paths, targets):
        """As above, as far as mpv came."""
        with tempfile.TemporaryDirectory() as folder:
            report = pathlib.Path(folder) / "report"
            times = "/".join(" ".join(f"{target:.4f}" for target in each) for each in targets)
            # A seek behind the last picture is answered, too.
            cls._play(["--ao=null", "--vo=null", "--pause", "--keep-open=always", cls._grid, f"--script={pathlib.Path(__file__).with_name('seeks.lua')}",
                       f"--script-opts=seeks-report={report},seeks-targets={times}", *paths])
            answers = [json.loads(line) for line in report.read_text().splitlines()] if report.exists() else []
        shown = [[] for _ in paths]
        for answer in answers:
            pictures = answer["pictures"]
            found = [(float(pictures[name]), pictures[name[:-3] + "hex"]) for name in pictures if name.endswith("pts")]
            shown[answer["file"]].append([picture for picture in found if abs(picture[0] - answer.get("time", -9)) < 0.002][:1])
        return shown
