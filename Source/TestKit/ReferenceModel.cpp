// SPDX-License-Identifier: MIT
#include "ReferenceModel.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <deque>
#include <optional>
#include <string>
#include <utility>

namespace {

using Model::FourCC;
using Model::MakeFourCC;

// Arithmetic that wraps.

std::int64_t Plus(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

std::int64_t Minus(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

std::int64_t Times(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

std::int32_t LowHalf(std::int64_t value) { return static_cast<std::int32_t>(static_cast<std::uint32_t>(value)); }

std::int32_t Times32(std::int32_t a, std::int32_t b) { return LowHalf(std::int64_t{a} * b); }

// In 64 bits the one quotient and the one remainder that 32 bits cannot hold are ordinary numbers.
std::int32_t Quotient32(std::int32_t a, std::int32_t b) { return LowHalf(std::int64_t{a} / b); }
std::int32_t Remainder32(std::int32_t a, std::int32_t b) { return LowHalf(std::int64_t{a} % b); }

std::int64_t Milliseconds(std::int64_t hostTime) { return Plus(hostTime, 5000) / 10000; }

// Strings of octets.

void AddTo(Octets& whole, const Octets& part) { whole.insert(whole.end(), part.begin(), part.end()); }

template <class... Parts>
Octets Join(const Parts&... parts) {
    Octets whole;
    whole.reserve((parts.size() + ...));
    (AddTo(whole, parts), ...);
    return whole;
}

Octets BigEndian(std::uint64_t value, int count) {
    Octets octets(static_cast<std::size_t>(count));
    for (auto octet = octets.rbegin(); octet != octets.rend(); ++octet, value >>= 8) {
        *octet = static_cast<unsigned char>(value);
    }
    return octets;
}

Octets LittleEndian(std::uint64_t value, int count) {
    Octets octets = BigEndian(value, count);
    std::reverse(octets.begin(), octets.end());
    return octets;
}

Octets TextOctets(const std::string& text) { return {text.begin(), text.end()}; }

// EBML.

int OctetsNeeded(std::uint64_t value) {
    int count = 1;
    while (count < 8 && (value >> (8 * count)) != 0) ++count;
    return count;
}

Octets LengthField(std::uint64_t length) {
    int width = 1;
    while (length >= (std::uint64_t{1} << (7 * width)) - 1) ++width;
    return BigEndian(length | (std::uint64_t{1} << (7 * width)), width);
}

Octets Identifier(std::uint32_t id) { return BigEndian(id, OctetsNeeded(id)); }

Octets Element(std::uint32_t id, const Octets& payload) {
    return Join(Identifier(id), LengthField(payload.size()), payload);
}

Octets Unsigned(std::uint32_t id, std::uint64_t value) { return Element(id, BigEndian(value, OctetsNeeded(value))); }

// Negative numbers get one octet more when a certain bit is clear; that it is bit n + 6 is deliberate.
Octets Signed(std::uint32_t id, std::int64_t value) {
    const auto bits = static_cast<std::uint64_t>(value);
    int width = OctetsNeeded(value < 0 ? 0 - bits : bits);
    if (value < 0 && ((bits >> (width + 6)) & 1) == 0) ++width;
    return Element(id, BigEndian(bits, std::min(width, 8)));
}

Octets Float(std::uint32_t id, float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return Element(id, BigEndian(bits, 4));
}

// An empty string or array is left out.
Octets Binary(std::uint32_t id, const Octets& payload) { return payload.empty() ? Octets{} : Element(id, payload); }
Octets Text(std::uint32_t id, const std::string& text) { return Binary(id, TextOctets(text)); }

Octets SeekEntry(std::uint32_t id, std::size_t position) {
    return Element(0x4DBB, Join(Element(0x53AB, Identifier(id)), Unsigned(0x53AC, position)));
}

// Video.

// The place of the first 00 00 00 01 that lies in [from, to), or -1.
int FindStartCode(const unsigned char* octets, int from, int to) {
    for (int i = from; i + 4 <= to; ++i) {
        if (octets[i] == 0 && octets[i + 1] == 0 && octets[i + 2] == 0 && octets[i + 3] == 1) return i;
    }
    return -1;
}

struct Unit {
    int begin;
    int length;
    int type;
};

// Cuts a frame up, writing lengths over the start codes of the kept units. After each kept unit `keep` is told, while
// the octets stand as they are then. `reach` hears of the turns taken.
template <class IsKept, class Keep, class Reach>
int Split(unsigned char* octets, int size, IsKept isKept, Keep keep, Reach reach) {
    int total = 0;
    if (octets == nullptr) return total;
    int current = 0;
    while (current < size) {
        int length = size - current;
        int unit = current;
        const int first = FindStartCode(octets, current, size);
        if (first >= 0) {
            unit = first;
            const int second = FindStartCode(octets, current + 4, size);
            if (second >= 0) length = second - current;
        }
        if (unit > current) reach(unit >= current + length ? "units: only garbage" : "units: garbage first");
        if (first < 0) reach("units: no start code");
        if (length == 4) reach("units: start code after start code");
        if (unit + 4 >= size) {
            reach("units: cut off before the type");
        } else if (!isKept(octets[unit + 4] & 0x1F)) {
            reach("units: dropped by type");
        } else {
            const int type = octets[unit + 4] & 0x1F;
            const Octets field = BigEndian(static_cast<std::uint32_t>(length - 4), 4);
            std::copy(field.begin(), field.end(), octets + unit);
            keep(Unit{current, length, type});
            total += length;
        }
        current += length;
    }
    return total;
}

// The MPEG-1/2 sequence header with its extensions, or nothing.
Octets SequenceHeader(const Octets& data) {
    std::optional<std::size_t> begin;
    for (std::size_t i = 0; i + 3 < data.size(); ++i) {
        if (data[i] != 0 || data[i + 1] != 0 || data[i + 2] != 1) continue;
        const unsigned char code = data[i + 3];
        const auto place = static_cast<std::ptrdiff_t>(i);
        if (code == 0xB3) begin = i;
        if (code == 0xB3 || code == 0xB5) continue;
        if (begin) return {data.begin() + static_cast<std::ptrdiff_t>(*begin), data.begin() + place};
    }
    if (!begin) return {};
    return {data.begin() + static_cast<std::ptrdiff_t>(*begin), data.end()};
}

bool IsAvc(const std::string& codec) { return codec == "V_MPEG4/ISO/AVC"; }
bool IsMpeg(const std::string& codec) { return codec == "V_MPEG1" || codec == "V_MPEG2"; }

std::int64_t FrameEnd(const Model::Frame& frame) {
    return Plus(frame.timestamp, frame.duration < 1 ? 1 : frame.duration);
}

} // namespace

// One frame on its way. Times are milliseconds.
struct ReferenceModel::Block {
    int track;
    Octets frame;
    std::int64_t time;
    std::int64_t stop;
    bool hasReference;
    std::int64_t reference;
    bool key;
};

struct ReferenceModel::Track {
    int number;
    std::string codec;
    Octets beforePrivate; // the children of the track entry that stand before CodecPrivate, and those behind it
    Octets codecPrivate;
    Octets behindPrivate;
    std::deque<Block> queue;
    std::int64_t lastStart = -1;
    std::int64_t writtenTime = 0;
};

struct ReferenceModel::File {
    bool isWebm = false;
    bool discards = false;
    Octets octets;

    std::optional<Track> video;
    std::optional<Track> audio;
    FourCC videoCode = 0;
    bool firstVideoFrame = true;
    bool lossless = false;
    bool videoStarted = false;
    bool audioStarted = false;
    std::int64_t audioDuration = 0;

    bool headerWritten = false;
    bool tracksWritten = false;
    std::size_t segmentPosition = 0;
    std::size_t dataPosition = 0;
    std::size_t infoPosition = 0;
    std::size_t tracksPosition = 0;
    std::int64_t date = 0;
    float duration = 0;

    bool anyBlock = false;
    std::int64_t base = 0;
    std::int64_t clusterTime = 0;
    Octets clusterBlocks;
    int cueTrack = 0;
    std::int64_t cueTrackBlocks = 0;
    std::int64_t lastCuePosition = -1;
    std::int64_t lastCueTime = -1;
    std::int64_t lastBlockTime = 0;
    Octets cuePoints;
    Octets clusterEntries;
    Octets seekEntries;

    void Append(const Octets& what) { AddTo(octets, what); }
    void Overwrite(std::size_t place, const Octets& what) {
        std::copy(what.begin(), what.end(), octets.begin() + static_cast<std::ptrdiff_t>(place));
    }
    std::size_t Here() const { return octets.size() - dataPosition; }
};

ReferenceModel::ReferenceModel(std::vector<int> randValues, std::int64_t secondsSince1970)
    : m_RandValues(std::move(randValues)), m_Now(secondsSince1970) {}

ReferenceModel::~ReferenceModel() = default;

// The calls.

int ReferenceModel::SetMuxParam(const Model::MuxParam* param) {
    m_MuxParam = param != nullptr ? *param : Model::MuxParam{};
    const std::int32_t x = m_MuxParam.displayAspectX;
    const std::int32_t y = m_MuxParam.displayAspectY;
    if (x == 0 || y == 0) {
        Reach("SetMuxParam: a term is 0");
        return x;
    }
    std::int32_t divisor = x;
    std::int32_t rest = y;
    while (rest != 0) divisor = std::exchange(rest, Remainder32(divisor, rest));
    Reach(divisor < 0 ? "SetMuxParam: negative divisor" : "SetMuxParam: positive divisor");
    m_MuxParam.displayAspectX = Quotient32(x, divisor);
    m_MuxParam.displayAspectY = Quotient32(y, divisor);
    return m_MuxParam.displayAspectY;
}

int ReferenceModel::CreateMediaFile(Path path, const Model::EncodeParam* param) {
    m_IsWebm = 0;
    if (path == Path::Null || param == nullptr) {
        Reach("create: null argument");
        return 0;
    }
    const FourCC format = param->formatFourCC;
    if (format == MakeFourCC("WEBM")) {
        Reach("format WEBM");
        m_IsWebm = 1;
    } else if (format == MakeFourCC("MKV ")) {
        Reach("format MKV");
    } else if (format == MakeFourCC("HMKV")) {
        Reach("format HMKV");
    } else if (format == MakeFourCC("MKA ")) {
        Reach("format MKA");
    } else {
        Reach("format unknown");
        return 0;
    }
    if (path == Path::DoesNotOpen) {
        Reach(m_IsWebm != 0 ? "create: WebM does not open" : "create: Matroska does not open");
        return 0;
    }
    if (path == Path::DiscImage) Reach("create: disc image");

    auto file = std::make_unique<File>();
    file->isWebm = m_IsWebm != 0;
    file->discards = path == Path::DiscImage;
    file->videoCode = param->videoParam.fourCC; // of a job without video too: it names the DocType
    file->videoStarted = param->disableVideo != 0;
    file->audioStarted = param->disableAudio != 0;
    if (param->disableVideo == 0) AddVideoTrack(*file, param->videoParam);
    if (param->disableAudio == 0) AddAudioTrack(*file, param->audioParam);
    if (!file->video && !file->audio) Reach("create: no track");
    if (!m_Files.empty()) {
        Reach(m_Files.rbegin()->second->isWebm == file->isWebm ? "two files open, same muxer"
                                                               : "two files open, different muxers");
    }
    m_Files[++m_LastHandle] = std::move(file);
    return m_LastHandle;
}

int ReferenceModel::WriteVideoPacket(int handle, const Model::Frame* frame) {
    File* const file = frame != nullptr ? Find(handle, "misrouted video frame") : nullptr;
    if (file == nullptr) return 0;
    if (!file->video) {
        Reach("video frame without a track");
        return 0;
    }
    unsigned char* const data = frame->data;
    const FourCC code = file->videoCode;
    if (!file->isWebm && std::exchange(file->firstVideoFrame, false)) {
        if (code == MakeFourCC("H264") && data != nullptr && FindStartCode(data, 0, frame->size) >= 0) {
            file->lossless = true;
            Reach("lossless decided");
        }
    }
    const bool unitsOnly =
        code == MakeFourCC("N264") || code == MakeFourCC("A264") || (code == MakeFourCC("I264") && !file->isWebm);
    int result = 0;
    if (unitsOnly) {
        result = WriteUnits(*file, *frame);
    } else if (file->lossless) {
        result = WriteLossless(*file, *frame);
    } else {
        if (!file->isWebm && code == MakeFourCC("H264")) Reach("H264 taken as it stands");
        result =
            Queue(*file, *file->video, data, frame->size, frame->timestamp, FrameEnd(*frame), frame->frameFlags != 0);
    }
    if (result > 0) {
        file->videoStarted = true;
        if (file->audioStarted && file->video->queue.size() >= (file->isWebm ? 1U : 5U)) {
            Reach("drained by a video frame");
            Drain(*file);
        }
    }
    return result;
}

int ReferenceModel::WriteAudioPacket(int handle, const Model::Frame* frame, const int* frameSizes) {
    File* const file = frame != nullptr ? Find(handle, "misrouted audio frame") : nullptr;
    if (file == nullptr) return 0;
    const std::int32_t duration = frame->duration;
    file->audioDuration += duration;
    if (!file->audio) {
        Reach("audio frame without a track");
        return 0;
    }
    int total = 0;
    if (frameSizes != nullptr) {
        const std::int32_t count = frameSizes[0];
        std::int64_t offset = 0;
        Reach(count <= 0 ? "split: count 0 or less" : count == 1 ? "split: count 1" : "split: many");
        for (std::int32_t i = 0; i < count && frame->data != nullptr; ++i) {
            const std::int32_t size = frameSizes[i + 1];
            if (size <= 0) {
                Reach("split: empty entry");
                continue;
            }
            if (frame->size > 0 && offset + size > frame->size) {
                Reach("split: past the end");
                break;
            }
            if (std::int64_t{duration} * i != Times32(duration, i)) Reach("split: the product wraps");
            if (duration / count < 1) Reach("split: duration smaller than the count");
            const std::int64_t start = Plus(frame->timestamp, Quotient32(Times32(duration, i), count));
            const std::int64_t length = std::max(Quotient32(duration, count), 1);
            total += Queue(*file, *file->audio, frame->data + offset, size, start, Plus(start, length), true);
            offset += size;
        }
    } else {
        total = Queue(*file, *file->audio, frame->data, frame->size, frame->timestamp, FrameEnd(*frame), true);
    }
    if (total > 0) {
        file->audioStarted = true;
        if (file->videoStarted && file->audio->queue.size() >= (file->isWebm ? 1U : 5U)) {
            Reach("drained by an audio frame");
            Drain(*file);
        }
    }
    return total;
}

void ReferenceModel::WriteVosData(int handle, const unsigned char* data, int length) {
    File* const file = Find(handle, "misrouted audio set-up data");
    if (file == nullptr) return;
    if (!file->audio || data == nullptr || length <= 0) {
        Reach("audio set-up: nothing given or no track");
        return;
    }
    if (file->audio->codec != "A_AAC" && file->audio->codec != "A_VORBIS") {
        Reach("audio set-up: other codec");
        return;
    }
    const bool late = file->tracksWritten;
    const bool stored = StorePrivate(*file, *file->audio, Octets(data, data + length));
    Reach(!late ? "audio set-up: early" : stored ? "audio set-up: late, accepted" : "audio set-up: late, refused");
}

void ReferenceModel::WritezXPSData(int handle, const unsigned char* pictureSet, int pictureSetLength,
                                   const unsigned char* sequenceSet, int sequenceSetLength) {
    File* const file = Find(handle, "misrouted video set-up data");
    if (file == nullptr) return;
    if (!file->video) {
        Reach("video set-up: no track");
        return;
    }
    Octets picture;
    Octets sequence;
    if (pictureSet != nullptr && pictureSetLength > 0) picture.assign(pictureSet, pictureSet + pictureSetLength);
    if (sequenceSet != nullptr && sequenceSetLength > 0) sequence.assign(sequenceSet, sequenceSet + sequenceSetLength);
    const bool late = file->tracksWritten;
    if (IsMpeg(file->video->codec)) {
        const Octets header = SequenceHeader(sequence);
        if (header.empty()) {
            Reach("MPEG set-up: no sequence header");
            return;
        }
        const bool stored = StorePrivate(*file, *file->video, header);
        Reach(!late ? "MPEG set-up: early" : stored ? "MPEG set-up: late, accepted" : "MPEG set-up: late, refused");
        return;
    }
    if (!IsAvc(file->video->codec)) {
        Reach("video set-up: other codec");
        return;
    }
    // AVCDecoderConfigurationRecord, ISO/IEC 14496-15.
    Octets record{1, 0x42, 0, 0x0D, 0xFF};
    if (sequence.size() > 3) std::copy(sequence.begin() + 1, sequence.begin() + 4, record.begin() + 1);
    if (sequence.empty()) {
        record.push_back(0);
        Reach("H.264 set-up: no sequence set");
    } else {
        if (sequence.size() <= 3) Reach("H.264 set-up: sequence set of 1 to 3 octets");
        record = Join(record, Octets{0xE1}, BigEndian(sequence.size(), 2), sequence);
    }
    if (picture.empty()) {
        record.push_back(0);
        Reach("H.264 set-up: no picture set");
    } else {
        record = Join(record, Octets{1}, BigEndian(picture.size(), 2), picture);
    }
    const bool stored = StorePrivate(*file, *file->video, record);
    Reach(!late ? "H.264 set-up: early" : stored ? "H.264 set-up: late, accepted" : "H.264 set-up: late, refused");
}

Octets ReferenceModel::CloseMediaFile(int handle) {
    const auto found = m_Files.find(handle);
    if (found == m_Files.end()) return {};
    const std::unique_ptr<File> file = std::move(found->second);
    m_Files.erase(found);
    if (file->isWebm != (m_IsWebm != 0))
        Reach(file->isWebm ? "misrouted close of WebM" : "misrouted close of Matroska");
    if ((file->video && !file->video->queue.empty()) || (file->audio && !file->audio->queue.empty())) {
        Reach("drained by the close");
        Drain(*file);
    }
    if (file->anyBlock) {
        Finish(*file);
    } else {
        Reach("file stays empty");
    }
    return file->discards ? Octets{} : file->octets;
}

// The file behind a handle, or null: for no handle, and for a handle of the kind that is not in use now.
ReferenceModel::File* ReferenceModel::Find(int handle, const char* misrouted) {
    const auto found = m_Files.find(handle);
    if (found == m_Files.end()) return nullptr;
    if (found->second->isWebm == (m_IsWebm != 0)) return found->second.get();
    Reach(misrouted);
    Reach(found->second->isWebm ? "misrouted from WebM" : "misrouted from Matroska");
    return nullptr;
}

// Tracks.

void ReferenceModel::AddVideoTrack(File& file, const Model::VideoParam& param) {
    FourCC compression = param.fourCC;
    bool isVideoForWindows = false;
    std::string codec;
    if (param.fourCC == MakeFourCC("MP1V")) {
        codec = "V_MPEG1";
    } else if (param.fourCC == MakeFourCC("MP2V")) {
        codec = "V_MPEG2";
    } else if (param.fourCC == MakeFourCC("MP4V") || param.fourCC == MakeFourCC("Xvid")) {
        codec = "V_MPEG4/ISO/ASP";
    } else if (param.fourCC == MakeFourCC("VP8 ")) {
        codec = "V_VP8";
    } else if (param.fourCC == MakeFourCC("H264") || param.fourCC == MakeFourCC("N264") ||
               param.fourCC == MakeFourCC("A264") || (param.fourCC == MakeFourCC("I264") && !file.isWebm)) {
        codec = "V_MPEG4/ISO/AVC";
    } else {
        codec = "V_MS/VFW/FOURCC";
        isVideoForWindows = true;
        if (param.fourCC == MakeFourCC("havc")) {
            compression = MakeFourCC("X264");
            Reach("codec havc");
        } else {
            Reach(param.fourCC == MakeFourCC("I264") ? "codec I264 in WebM" : "codec other video");
        }
    }
    if (codec == "V_MPEG1") Reach("codec V_MPEG1");
    if (codec == "V_MPEG2") Reach("codec V_MPEG2");
    if (codec == "V_MPEG4/ISO/ASP") Reach("codec V_MPEG4/ISO/ASP");
    if (codec == "V_VP8") Reach(file.isWebm ? "codec V_VP8 in WebM" : "codec V_VP8 in Matroska");
    if (IsAvc(codec)) Reach(file.isWebm ? "codec V_MPEG4/ISO/AVC in WebM" : "codec V_MPEG4/ISO/AVC in Matroska");

    std::uint64_t displayWidth = 0;
    std::uint64_t displayHeight = 0;
    if (!file.isWebm && (m_MuxParam.muxFlags & 1) != 0 && m_MuxParam.displayAspectX > 0 &&
        m_MuxParam.displayAspectY > 0) {
        displayWidth = static_cast<std::uint64_t>(m_MuxParam.displayAspectX);
        displayHeight = static_cast<std::uint64_t>(m_MuxParam.displayAspectY);
        Reach("display aspect written");
    }
    const std::int64_t height = param.height;
    const double frameRate = param.frameRate;
    const double frameDuration = 1000000000.0 / frameRate;
    Octets defaultDuration;
    if (frameDuration >= 0 && frameDuration < 18446744073709551616.0) {
        defaultDuration = Unsigned(0x23E383, static_cast<std::uint64_t>(frameDuration));
    } else {
        Reach("no DefaultDuration");
    }

    Track track;
    track.number = 1;
    track.codec = codec;
    track.beforePrivate =
        Join(Unsigned(0xD7, 1), Unsigned(0x73C5, static_cast<unsigned>(m_RandValues.at(m_NextRand++))),
             Unsigned(0x83, 1), Unsigned(0x6DE7, 1), Unsigned(0x6DF8, 1), Text(0x22B59C, "und"),
             Element(0x86, Join(TextOctets(codec), Octets{0})));
    if (isVideoForWindows) {
        track.codecPrivate =
            Join(LittleEndian(40, 4), LittleEndian(static_cast<std::uint32_t>(param.width), 4),
                 LittleEndian(static_cast<std::uint32_t>(param.height), 4), LittleEndian(1, 2),
                 LittleEndian(static_cast<std::uint32_t>(param.bitCount), 2), LittleEndian(compression, 4), Octets(20));
    }
    track.behindPrivate = Join(
        defaultDuration, Element(0xE0, Join(Unsigned(0xB0, static_cast<std::uint64_t>(std::int64_t{param.width})),
                                            Unsigned(0xBA, static_cast<std::uint64_t>(height < 0 ? -height : height)),
                                            Unsigned(0x54B0, displayWidth), Unsigned(0x54BA, displayHeight),
                                            Float(0x2383E3, static_cast<float>(frameRate)))));
    file.video = std::move(track);
}

void ReferenceModel::AddAudioTrack(File& file, const Model::AudioParam& param) {
    std::string codec = "A_MS/VFW/FOURCC";
    const char* turn = "codec other audio";
    if (param.fourCC == MakeFourCC("MP2A")) codec = turn = "A_MPEG/L2";
    if (param.fourCC == MakeFourCC("MP3 ")) codec = turn = "A_MPEG/L3";
    if (param.fourCC == MakeFourCC("AC3 ")) codec = turn = "A_AC3";
    if (param.fourCC == MakeFourCC("DTS ")) codec = turn = "A_DTS";
    if (param.fourCC == MakeFourCC("PCM ")) codec = turn = "A_PCM/INT/LIT";
    if (param.fourCC == MakeFourCC("AAC ")) codec = turn = "A_AAC";
    if (param.fourCC == MakeFourCC("VBIS")) codec = turn = "A_VORBIS";
    Reach(turn);

    Track track;
    track.number = 2;
    track.codec = codec;
    Octets flags;
    if (file.isWebm) flags = Join(Unsigned(0x88, 1), Unsigned(0x9C, 1));
    track.beforePrivate =
        Join(Unsigned(0xD7, 2), Unsigned(0x73C5, static_cast<unsigned>(m_RandValues.at(m_NextRand++))),
             Unsigned(0x83, 2), flags, Unsigned(0x6DE7, 1), Unsigned(0x6DF8, 1), Text(0x22B59C, "und"),
             Element(0x86, Join(TextOctets(codec), Octets{0})));
    if (codec == "A_MS/VFW/FOURCC") {
        const std::int32_t bitsPerSecond = Times32(Times32(param.channels, param.sampleRate), param.bitsPerSample);
        track.codecPrivate =
            Join(LittleEndian(param.fourCC, 2), LittleEndian(static_cast<std::uint32_t>(param.channels), 2),
                 LittleEndian(static_cast<std::uint32_t>(param.sampleRate), 4),
                 LittleEndian(static_cast<std::uint32_t>(bitsPerSecond / 8), 4), LittleEndian(0, 2),
                 LittleEndian(static_cast<std::uint32_t>(param.bitsPerSample), 2), LittleEndian(18, 2));
    }
    track.behindPrivate =
        Element(0xE1, Join(Float(0xB5, static_cast<float>(param.sampleRate)),
                           Unsigned(0x9F, static_cast<std::uint64_t>(std::int64_t{param.channels})),
                           Unsigned(0x6264, static_cast<std::uint64_t>(std::int64_t{param.bitsPerSample}))));
    file.audio = std::move(track);
}

// CodecPrivate is replaced until it is in the file; after that its size stands and only its head can change.
bool ReferenceModel::StorePrivate(File& file, Track& track, const Octets& data) {
    if (!file.tracksWritten) {
        track.codecPrivate = data;
        return true;
    }
    if (data.size() > track.codecPrivate.size()) return false;
    std::copy(data.begin(), data.end(), track.codecPrivate.begin());
    file.Overwrite(file.tracksPosition, TracksElement(file));
    return true;
}

// Frames.

int ReferenceModel::Queue(File& file, Track& track, const unsigned char* data, std::int64_t size, std::int64_t start,
                          std::int64_t end, bool key) {
    if (data == nullptr || size <= 0) {
        Reach("empty frame");
        return 0;
    }
    Block block{};
    block.track = track.number;
    block.frame.assign(data, data + size);
    block.time = Milliseconds(start);
    block.stop = Milliseconds(end);
    block.key = key;
    if (!file.isWebm && (!key || start == track.lastStart) && track.lastStart >= 0) {
        const std::int64_t distance = Minus(track.lastStart, start);
        block.hasReference = true;
        block.reference = (distance >= 0 ? Plus(distance, 5000) : Minus(distance, 5000)) / 10000;
        if (track.number == 1) {
            Reach(block.reference < 0    ? "reference backward"
                  : block.reference == 0 ? "reference 0"
                                         : "reference forward");
        } else {
            Reach("reference of an audio block");
        }
    }
    track.lastStart = start;
    if (track.codecPrivate.empty()) {
        if (!file.tracksWritten) {
            DerivePrivate(track, block.frame);
        } else if (IsMpeg(track.codec) && !SequenceHeader(block.frame).empty()) {
            Reach("no derivation: the tracks are written");
        }
    }
    if (file.isWebm && !key) Reach("SimpleBlock without the keyframe bit");
    track.queue.push_back(std::move(block));
    if (track.queue.size() > 5) Reach("more than 5 blocks queued");
    return static_cast<int>(size);
}

void ReferenceModel::DerivePrivate(Track& track, const Octets& frame) {
    if (IsMpeg(track.codec)) {
        track.codecPrivate = SequenceHeader(frame);
        Reach(track.codecPrivate.empty()                  ? "MPEG frame without a sequence header"
              : track.codecPrivate.size() == frame.size() ? "MPEG frame is all sequence header"
                                                          : "MPEG sequence header within the frame");
    }
    if (IsAvc(track.codec) || track.codec == "A_AAC") {
        track.codecPrivate = Octets(1024);
        Reach("placeholder of 1024");
    }
    if (track.codec == "A_VORBIS") {
        track.codecPrivate = Octets(10240);
        Reach("placeholder of 10240");
    }
}

int ReferenceModel::WriteUnits(File& file, const Model::Frame& frame) {
    const int total = Split(
        frame.data, frame.size, [](int type) { return type == 1 || type == 5; },
        [&](const Unit& unit) {
            Reach(unit.type == 5 ? "unit: IDR slice" : "unit: slice");
            Queue(file, *file.video, frame.data + unit.begin, unit.length, frame.timestamp, FrameEnd(frame),
                  unit.type == 5);
        },
        [this](const char* turn) { Reach(turn); });
    if (total == 0) Reach("units: none kept");
    return total;
}

int ReferenceModel::WriteLossless(File& file, const Model::Frame& frame) {
    Octets kept;
    const int total = Split(
        frame.data, frame.size, [](int type) { return type == 1 || type == 5 || type == 7 || type == 8 || type == 9; },
        [&](const Unit& unit) {
            const unsigned char* const begin = frame.data + unit.begin;
            kept.insert(kept.end(), begin, begin + unit.length);
        },
        [this](const char* turn) { Reach(turn); });
    Reach(kept.empty() ? "lossless: none kept" : "lossless: block");
    if (!kept.empty()) {
        Queue(file, *file.video, kept.data(), static_cast<std::int64_t>(kept.size()), frame.timestamp, FrameEnd(frame),
              frame.frameFlags != 0);
    }
    return total;
}

// The file.

Octets ReferenceModel::TracksElement(const File& file) const {
    Octets entries;
    for (const std::optional<Track>* track : {&file.video, &file.audio}) {
        if (!*track) continue;
        const Track& it = **track;
        entries =
            Join(entries, Element(0xAE, Join(it.beforePrivate, Binary(0x63A2, it.codecPrivate), it.behindPrivate)));
    }
    return Element(0x1654AE6B, entries);
}

Octets ReferenceModel::InfoElement(const File& file) const {
    return Element(0x1549A966, Join(Unsigned(0x2AD7B1, 1000000), Float(0x4489, file.duration),
                                    Signed(0x4461, file.date), Text(0x4D80, "Tarnwell Matroska Muxer")));
}

void ReferenceModel::WriteHeader(File& file) {
    const std::string docType = file.videoCode == MakeFourCC("VP8 ") ? "webm" : "matroska";
    Octets header;
    if (file.isWebm) {
        Reach(docType == "webm" ? "header: WebM, webm" : "header: WebM, matroska");
        header = Join(Unsigned(0x4286, 1), Unsigned(0x42F7, 1), Unsigned(0x42F2, 4), Unsigned(0x42F3, 8),
                      Text(0x4282, docType), Unsigned(0x4287, 2), Unsigned(0x4285, 2));
    } else {
        Reach(docType == "webm" ? "header: Matroska, webm" : "header: Matroska, matroska");
        header = Join(Text(0x4282, docType), Unsigned(0x4287, 1), Unsigned(0x4285, 1));
    }
    file.Append(Element(0x1A45DFA3, header));
    file.segmentPosition = file.octets.size();
    file.Append({0x18, 0x53, 0x80, 0x67, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    file.dataPosition = file.octets.size();
    file.Append(Element(0xEC, Octets(4096)));
    file.infoPosition = file.octets.size();
    file.seekEntries = SeekEntry(0x1549A966, file.Here());

    std::tm epoch{};
    epoch.tm_mday = 1;
    epoch.tm_year = 101;
    epoch.tm_isdst = 1;
    file.date = std::int64_t{LowHalf(Minus(m_Now, std::mktime(&epoch)))} * 1000000000;
    if (file.date < 0) Reach("clock before 2001");
    if (file.date < -(std::int64_t{1} << 56) && (file.date >> 14 & 1) == 0) Reach("a ninth octet is left out");
    file.Append(InfoElement(file));
    AddTo(file.seekEntries, SeekEntry(0x1654AE6B, file.Here()));
    file.headerWritten = true;
}

void ReferenceModel::WriteCluster(File& file) {
    AddTo(file.clusterEntries, SeekEntry(0x1F43B675, file.Here()));
    file.Append(
        Element(0x1F43B675, Join(Unsigned(0xE7, static_cast<std::uint64_t>(file.clusterTime)), file.clusterBlocks)));
    file.clusterBlocks.clear();
}

void ReferenceModel::Drain(File& file) {
    if (!file.headerWritten) WriteHeader(file);
    for (;;) {
        Track* next = nullptr;
        for (std::optional<Track>* track : {&file.video, &file.audio}) {
            if (!*track || (*track)->queue.empty()) continue;
            if (next == nullptr || (*track)->queue.front().time < next->queue.front().time) next = &**track;
        }
        if (next == nullptr) return;
        if (!file.tracksWritten) {
            file.tracksPosition = file.octets.size();
            file.Append(TracksElement(file));
            file.cueTrack = file.video ? 1 : 2;
            file.tracksWritten = true;
        }
        Block block = std::move(next->queue.front());
        next->queue.pop_front();
        Place(file, *next, std::move(block));
    }
}

// Puts one block into the cluster of its second.
void ReferenceModel::Place(File& file, Track& track, Block block) {
    if (!file.anyBlock) {
        file.anyBlock = true;
        file.base = block.time;
    }
    block.time -= file.base;
    block.stop -= file.base;
    track.writtenTime = Times(block.time, 10000);
    if (track.writtenTime / 10000 != block.time) Reach("written time wraps");
    if (block.time < -32768) {
        Reach("dropped: before -32768");
        return;
    }
    if (block.time < 0) Reach("time before the base");

    // A block at most 1000 ms behind the cluster's time belongs to it.
    const std::int64_t beyond = block.time - file.clusterTime - 1000;
    if (beyond > 0) {
        const std::int64_t spans = (beyond + 999) / 1000;
        Reach(spans == 1 ? "next span" : spans < 1000000 ? "empty spans skipped" : "a million empty spans skipped");
        if (!file.clusterBlocks.empty()) WriteCluster(file);
        file.clusterTime += 1000 * spans;
        file.cueTrackBlocks = 0;
    }
    const std::int64_t relative = block.time - file.clusterTime;
    if (relative < -32768) Reach("relative time truncated");

    if (block.track == file.cueTrack) {
        ++file.cueTrackBlocks;
        const auto here = static_cast<std::int64_t>(file.Here());
        const bool isCandidate = file.isWebm || block.reference == 0;
        if (isCandidate && here == file.lastCuePosition && block.time <= file.lastCueTime + 1000) {
            Reach("cue: one is there already");
        } else if (isCandidate) {
            if (here == file.lastCuePosition) Reach("cue: second one in a cluster");
            if (file.isWebm && !block.key) Reach("cue: WebM, not a keyframe");
            if (!file.isWebm && !block.key) Reach("cue: Matroska, not a keyframe by its flag");
            Reach(block.track == 1 ? "cue: video" : "cue: audio only");
            Octets position = Join(Unsigned(0xF7, static_cast<std::uint64_t>(block.track)),
                                   Unsigned(0xF1, static_cast<std::uint64_t>(here)));
            if (!file.clusterBlocks.empty()) {
                position = Join(position, Unsigned(0x5387, static_cast<std::uint64_t>(file.cueTrackBlocks)));
                Reach(file.cueTrackBlocks > 1 ? "cue: block number above 1" : "cue: block number 1");
            }
            const Octets time = Unsigned(0xB3, static_cast<std::uint64_t>(block.time));
            AddTo(file.cuePoints, Element(0xBB, Join(time, Element(0xB7, position))));
            file.lastCuePosition = here;
            file.lastCueTime = block.time;
        }
    }
    if (file.duration <= static_cast<float>(block.stop)) file.duration = static_cast<float>(block.stop);
    file.lastBlockTime = Times(block.time, 10000);

    const Octets head =
        Join(LengthField(static_cast<std::uint64_t>(block.track)), BigEndian(static_cast<std::uint64_t>(relative), 2));
    if (block.stop < block.time) Reach("stops before it starts");
    static constexpr const char* kLengths[] = {"block length of 1 octet", "block length of 2 octets",
                                               "block length of 3 octets", "block length of 4 octets"};
    Reach(kLengths[LengthField(4 + block.frame.size()).size() - 1]);
    Octets element;
    if (file.isWebm) {
        element = Element(0xA3, Join(head, Octets{static_cast<unsigned char>(block.key ? 0x80 : 0)}, block.frame));
    } else {
        const Octets reference = block.hasReference ? Signed(0xFB, block.reference) : Octets{};
        element = Element(0xA0, Join(reference, Element(0xA1, Join(head, Octets{0}, block.frame))));
    }
    AddTo(file.clusterBlocks, element);
}

void ReferenceModel::Finish(File& file) {
    std::int64_t written = 0;
    if (file.video) written = std::max(written, file.video->writtenTime);
    if (file.audio) written = std::max(written, file.audio->writtenTime);
    if (written > 0) {
        // Rounded twice: that is deliberate.
        const auto hostUnits = static_cast<float>(file.audioDuration);
        file.duration = static_cast<float>(static_cast<double>(hostUnits) / 10000.0);
    } else {
        Reach("duration: of the blocks");
    }

    if (!file.clusterBlocks.empty()) WriteCluster(file);
    if (!file.cuePoints.empty()) {
        AddTo(file.seekEntries, SeekEntry(0x1C53BB6B, file.Here()));
        file.Append(Element(0x1C53BB6B, file.cuePoints));
    } else {
        Reach("no cues");
    }
    if (!file.clusterEntries.empty()) {
        AddTo(file.seekEntries, SeekEntry(0x114D9B74, file.Here()));
        file.Append(Element(0x114D9B74, file.clusterEntries));
    }
    // The unknown size becomes the real one, in the same eight octets.
    file.Overwrite(file.segmentPosition + 5, BigEndian(file.Here(), 7));

    const std::int64_t difference = Minus(file.lastBlockTime, Times(static_cast<std::int64_t>(file.duration), 10000));
    const std::uint64_t distance =
        difference < 0 ? 0 - static_cast<std::uint64_t>(difference) : static_cast<std::uint64_t>(difference);
    if (distance > 10000000) {
        const std::int64_t end = file.lastBlockTime / 10000 + 1;
        file.duration = static_cast<float>(end);
        Reach("duration: of the last block");
    } else {
        Reach("duration: kept");
    }
    file.Overwrite(file.infoPosition, InfoElement(file));

    // Seek head and filler share the 4099 octets; four short entries leave room for thousands of filler octets, whose
    // length takes two.
    const Octets seekHead = Element(0x114D9B74, file.seekEntries);
    const std::size_t filler = 4099 - seekHead.size() - 3;
    file.Overwrite(file.dataPosition, Join(seekHead, Octets{0xEC}, BigEndian(0x4000 | filler, 2), Octets(filler)));
}
