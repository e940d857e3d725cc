# SPDX-License-Identifier: MIT
"""Decodes a file with ffmpeg's libraries, GStreamer and mpv, whole and after seeks: what each shows, and when.

A picture has a key: pictures with equal keys are equal in every sample (for mpv's seeks: in a grid of 16 x 16). Every
decoder runs in one thread, so that damaged pictures come out the same each time.
"""

import contextlib
import os
import pathlib
import tempfile
from dataclasses import dataclass, field

import av
import mpv
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
    octets = 2 if frame.format.name.endswith(("le", "be")) else 1  # of a sample
    planes = (np.frombuffer(plane, np.uint8).reshape(plane.height, -1)[:, : plane.width * octets] for plane in frame.planes)
    return hash((frame.width, frame.height, b"".join(plane.tobytes() for plane in planes)))


def _first_channel(frame):
    samples = frame.to_ndarray()
    return samples[0, :: 1 if frame.format.is_planar else len(frame.layout.channels)].astype(np.float32)


class Player:
    @classmethod
    def seeks(cls, paths, targets):
        """For each file, for each of its targets: the key of the picture that is shown and how many were decoded, or None."""
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
        """Shown is the first picture that is not in front of the target."""
        shown = [None] * len(targets)
        try:
            container, streams = cls._open(path)
        except av.AVError:
            return shown
        with container:
            video = next((stream for stream in streams if stream.type == "video"), None)
            if video is None:
                return shown
            for place, target in enumerate(targets):
                try:
                    container.seek(int(target / video.time_base), stream=video, backward=True)
                except av.AVError:
                    continue
                decoded = 0
                for decoded, (_, seconds, frame) in enumerate(cls._frames(container, [video], Decoded()), 1):
                    if seconds is not None and seconds >= target:
                        break
                if decoded:
                    shown[place] = _key_of(frame), decoded
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
        return hash((form.get_value("width"), form.get_value("height"), octets))

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
        shown = [None] * len(targets)
        with cls(path) as player:
            gst = player.gst
            if not player._prerolled(gst.State.PAUSED):
                return shown
            for place, target in enumerate(targets):
                flags = gst.SeekFlags.FLUSH | gst.SeekFlags.ACCURATE
                if not player.player.seek_simple(gst.Format.TIME, flags, int(target * gst.SECOND)):
                    continue
                if not player._settled():
                    continue
                sample = player.sinks["video"].emit("try-pull-preroll", 0)
                if sample:
                    buffer = sample.get_buffer()
                    octets = buffer.extract_dup(0, buffer.get_size())
                    shown[place] = cls._key(octets, sample.get_caps().get_structure(0)), 1
        return shown


class Mpv(Player):
    name = "mpv"
    aim = Ffmpeg.aim
    _grid = "@grid:fingerprint=type=gray-hex-16x16"
    _patience = 20  # seconds for a file or a seek
    # Without its own scripts, which take a third of the time of a short film.
    _bare = dict.fromkeys(("ytdl", "load_scripts", "load_stats_overlay", "load_osd_console", "load_auto_profiles"), "no")

    def __init__(self, **options):
        self.player = mpv.MPV(rebase_start_time="no", framedrop="no", vd_lavc_threads=1, ad_lavc_threads=1, **self._bare, **options)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.player.terminate()

    def _shows(self, *command):
        """Whether mpv shows a picture after the command; not at the file's end, nor where it waits for one in vain."""
        restart, end = mpv.MpvEventID.PLAYBACK_RESTART, mpv.MpvEventID.END_FILE
        seen = self.player.prepare_and_wait_for_event(restart, end, cond=lambda event: event.event_id.value, timeout=self._patience)
        try:
            with seen as which:
                self.player.command(*command)
        except (TimeoutError, SystemError):  # the latter: it refuses the command
            return False
        return which.result() == restart

    def _play(self, path):
        """To the end, or as far as it comes."""
        with contextlib.suppress(TimeoutError):
            with self.player.prepare_and_wait_for_event("end-file", timeout=self._patience):
                self.player.play(str(path))

    @classmethod
    def whole(cls, path):
        """Plays into a file of raw pictures and sound, which is read here."""
        with tempfile.TemporaryDirectory() as folder:
            raw = os.path.join(folder, "raw.nut")
            with cls(o=raw, of="nut", ovc="rawvideo", oac="pcm_f32le") as player:
                player._play(path)
            decoded = Ffmpeg.whole(raw)
            decoded.duration = None  # that of the raw file
            return decoded

    @classmethod
    def grids(cls, path):
        """The keys of all pictures that its seeks may show."""
        with tempfile.TemporaryDirectory() as folder:
            log = pathlib.Path(folder) / "log"
            with cls(aid="no", vo="null", untimed="yes", vf=cls._grid + ":print=yes", log_file=log) as player:
                player._play(path)
            lines = [line.partition("[fingerprint] ")[2].split(": ") for line in log.read_text().splitlines()]
        return [(float(line[0]), line[1]) for line in lines if len(line) == 2]

    @classmethod
    def _seeks(cls, path, targets):
        shown = [None] * len(targets)
        # A seek behind the last picture is answered, too.
        with cls(ao="null", vo="null", pause="yes", keep_open="always", vf=cls._grid) as player:
            if not player._shows("loadfile", str(path)):
                return shown
            for place, target in enumerate(targets):
                if not player._shows("seek", f"{target:.4f}", "absolute+exact"):
                    break
                time = player.player.time_pos
                pictures = getattr(player.player, "vf-metadata/grid") or {}
                for name in pictures:
                    if time is not None and name.endswith("pts") and abs(float(pictures[name]) - time) < 0.002:
                        shown[place] = pictures[name[:-3] + "hex"], 1
                        break
        return shown
