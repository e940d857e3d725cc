// SPDX-License-Identifier: MIT
// The plug-in's interface as Docs/HostGuide.md documents it: positions for both word sizes, exported names and their
// kinds. Deliberately not taken from the plug-in's headers, so that qfcheck also notices a header that moves a field.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "GuardedOctets.h"

namespace Interface {

constexpr std::size_t kPointer = 0; // a width: that of a pointer

struct Field {
    const char* m_Record;
    const char* m_Name;
    std::size_t m_Width;
    std::size_t m_At32; // i386
    std::size_t m_At64; // x86_64

    std::size_t At() const { return sizeof(void*) == 4 ? m_At32 : m_At64; }
    std::size_t Width() const { return m_Width == kPointer ? sizeof(void*) : m_Width; }
};

struct RecordSize {
    const char* m_Record;
    std::size_t m_Size32;
    std::size_t m_Size64;

    std::size_t Size() const { return sizeof(void*) == 4 ? m_Size32 : m_Size64; }
};

inline constexpr Field kFields[] = {
    {"EncodeParam", "videoParam", 6228, 0, 0},
    {"EncodeParam", "audioParam", 6192, 6228, 6228},
    {"EncodeParam", "disableVideo", 4, 12420, 12420},
    {"EncodeParam", "disableAudio", 4, 12424, 12424},
    {"EncodeParam", "formatFourCC", 4, 12428, 12428},
    {"VideoParam", "fourCC", 4, 0, 0},
    {"VideoParam", "width", 4, 4, 4},
    {"VideoParam", "height", 4, 8, 8},
    {"VideoParam", "frameRate", 8, 12, 12},
    {"VideoParam", "bitCount", 4, 44, 44},
    {"AudioParam", "fourCC", 4, 0, 0},
    {"AudioParam", "sampleRate", 4, 4, 4},
    {"AudioParam", "channels", 4, 8, 8},
    {"AudioParam", "bitsPerSample", 4, 24, 24},
    {"MuxParam", "muxFlags", 4, 4, 4},
    {"MuxParam", "displayAspectX", 4, 12, 12},
    {"MuxParam", "displayAspectY", 4, 16, 16},
    {"MEDIA_FRAME", "videoData", kPointer, 12, 12},
    {"MEDIA_FRAME", "videoSize", 4, 16, 20},
    {"MEDIA_FRAME", "audioData", kPointer, 20, 24},
    {"MEDIA_FRAME", "audioSize", 4, 24, 32},
    {"MEDIA_FRAME", "frameFlags", 4, 56, 64},
    {"MEDIA_FRAME", "timestamp", 8, 84, 92},
    {"MEDIA_FRAME", "duration", 4, 100, 108},
    {"FileFormatInfo", "fourCC", 4, 0, 0},
    {"FileFormatInfo", "extension", 40, 4, 4},
    {"FileFormatInfo", "shortName", 256, 44, 44},
    {"FileFormatInfo", "description", 512, 300, 300},
    {"FileFormatInfo", "audioEncoders", kPointer, 812, 812},
    {"FileFormatInfo", "videoEncoders", kPointer, 816, 820},
    {"FileFormatInfo", "CreateMediaFile", kPointer, 820, 828},
    {"FileFormatInfo", "WriteAudioPacket", kPointer, 824, 836},
    {"FileFormatInfo", "WriteVideoPacket", kPointer, 828, 844},
    {"FileFormatInfo", "CloseMediaFile", kPointer, 832, 852},
    {"FileFormatInfo", "WriteVosData", kPointer, 836, 860},
    {"FileFormatInfo", "WritezXPSData", kPointer, 840, 868},
    {"FileFormatInfo", "spare", kPointer, 844, 876},
    {"FileFormatInfo", "SetMuxParam", kPointer, 848, 884},
    {"EncoderEntry", "fourCC", 4, 0, 0},
};

inline constexpr RecordSize kSizes[] = {
    {"EncodeParam", 12432, 12432}, {"VideoParam", 6228, 6228},   {"AudioParam", 6192, 6192}, {"MuxParam", 24, 24},
    {"MEDIA_FRAME", 104, 112},     {"FileFormatInfo", 852, 892}, {"EncoderEntry", 8, 8},
};

// These throw std::logic_error for unknown names: a mistake in a check.
const Field& FieldOf(const std::string& record, const std::string& name);
std::size_t SizeOf(const std::string& record);

struct Export {
    const char* m_Name; // as the loader knows it, decorated where the interface has it decorated
    bool m_IsFunction;  // else data
};

inline constexpr Export kExports[] = {
    {"FormatArray", false},
    {"EncoderArray", false},
    {"MKVAudioEncoders", false},
    {"MKVVideoEncoders", false},
    {"HMKVAudioEncoders", false},
    {"HMKVVideoEncoders", false},
    {"WEBMAudioEncoders", false},
    {"WEBMVideoEncoders", false},
    {"m_MuxParam", false},
    {"IsWebm", false},
    {"GetEncoders", true},
    {"GetFileFormats", true},
    {"GetMultiVersion", true},
    {"_Z14FindFileFormatm", true},
    {"_Z13CreateEncodermPK11EncodeParam", true},
    {"_Z6EncodePvPK11MEDIA_FRAMEPPS0_PPi", true},
    {"_Z14DestroyEncoderPv", true},
    {"_Z16ReviseAudioParamP10AudioParam", true},
    {"_Z11SetMuxParamP8MuxParam", true},
    {"_Z15CreateMediaFilePKwPK11EncodeParam", true},
    {"_Z16WriteVideoPacketPvPK11MEDIA_FRAME", true},
    {"_Z16WriteAudioPacketPvPK11MEDIA_FRAMEPi", true},
    {"_Z12WriteVosDataPvPhi", true},
    {"_Z13WritezXPSDataPvPhiS0_i", true},
    {"_Z14CloseMediaFilePvPFjS_jjjES_", true},
};

// The full name of the exported function with this plain name.
const char* ExportOf(const std::string& function);

// Reads a field of a record that lies anywhere.
template <class Value>
Value Read(const void* record, const std::string& type, const std::string& name) {
    const Field& field = FieldOf(type, name);
    if (field.Width() != sizeof(Value)) throw std::logic_error("the width of " + type + "." + name);
    Value value;
    std::memcpy(&value, static_cast<const unsigned char*>(record) + field.At(), sizeof value);
    return value;
}

// A record of the host, of the least length allowed. The memory behind it is inaccessible.
class Record {
public:
    // Every octet that belongs to the host holds `gap`; the others are zero.
    explicit Record(const std::string& type, unsigned char gap = 0);

    // name: of a field, or of a field in a record within: "videoParam.width".
    template <class Value>
    void Set(const std::string& name, Value value) {
        const auto [at, width] = Find(name);
        if (width != sizeof value) throw std::logic_error("the width of " + m_Type + "." + name);
        std::memcpy(m_Octets->Data() + at, &value, sizeof value);
    }
    template <class Value>
    Value Get(const std::string& name) const {
        const auto [at, width] = Find(name);
        if (width != sizeof(Value)) throw std::logic_error("the width of " + m_Type + "." + name);
        Value value;
        std::memcpy(&value, m_Octets->Data() + at, sizeof value);
        return value;
    }

    const std::string& Type() const { return m_Type; }
    unsigned char* Data() const { return m_Octets->Data(); }
    Octets Copy() const { return m_Octets->Copy(); }

private:
    struct Place {
        std::size_t m_At;
        std::size_t m_Width;
    };
    Place Find(const std::string& name) const;
    void Clear(const std::string& type, std::size_t from);

    std::string m_Type;
    std::unique_ptr<GuardedOctets> m_Octets;
};

} // namespace Interface
