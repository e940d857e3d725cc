// SPDX-License-Identifier: MIT
#include "MKVInterface.h"

#include <array>
#include <cerrno>
#include <memory>
#include <new>
#include <typeinfo>

#include "ByteOrder.h"
#include "HostLog.h"
#include "MKVFile.h"
#include "MKVMuxer.h"
#include "WebmMuxer1.h"

namespace {

constexpr FourCC kWebm = MakeFourCC("WEBM");

} // namespace

EncoderEntry MKVAudioEncoders[] = {{MakeFourCC("AAC "), 0}, {MakeFourCC("AC3 "), 0}, {MakeFourCC("MP3 "), 0}, {0, 0}};
EncoderEntry MKVVideoEncoders[] = {{MakeFourCC("I264"), 0},
                                   {MakeFourCC("A264"), 0},
                                   {MakeFourCC("H264"), 0},
                                   {MakeFourCC("Xvid"), 0},
                                   {0, 0},
                                   {0, 0},
                                   {0, 0},
                                   {0, 0}};
EncoderEntry HMKVAudioEncoders[] = {{MakeFourCC("AC3 "), 0}, {0, 0}};
EncoderEntry HMKVVideoEncoders[] = {{MakeFourCC("I264"), 0}, {MakeFourCC("A264"), 0}, {MakeFourCC("havc"), 0}, {0, 0}};
EncoderEntry WEBMAudioEncoders[] = {{MakeFourCC("VBIS"), 0}, {0, 0}};
EncoderEntry WEBMVideoEncoders[] = {{MakeFourCC("VP8 "), 0}, {0, 0}};

FileFormatInfo FormatArray[] = {
    {MakeFourCC("MKV "), L".mkv", L"MKV", L"MKV File", MKVAudioEncoders, MKVVideoEncoders, CreateMediaFile,
     WriteAudioPacket, WriteVideoPacket, CloseMediaFile, WriteVosData, WritezXPSData, nullptr, SetMuxParam},
    {MakeFourCC("HMKV"), L".mkv", L"MKV", L"MKV File", HMKVAudioEncoders, HMKVVideoEncoders, CreateMediaFile,
     WriteAudioPacket, WriteVideoPacket, CloseMediaFile, WriteVosData, WritezXPSData, nullptr, nullptr},
    {MakeFourCC("MKA "), L".mka", L"MKA", L"MKA File", MKVAudioEncoders, nullptr, CreateMediaFile, WriteAudioPacket,
     nullptr, CloseMediaFile, WriteVosData, nullptr, nullptr, nullptr},
    {kWebm, L".webm", L"WEBM", L"WEBM File", WEBMAudioEncoders, WEBMVideoEncoders, CreateMediaFile, WriteAudioPacket,
     WriteVideoPacket, CloseMediaFile, WriteVosData, WritezXPSData, nullptr, nullptr},
    {},
};

EncoderInfo EncoderArray[] = {{}};

MuxParam m_MuxParam{};
std::uint32_t IsWebm = 0;

namespace {

const FileFormatInfo* FindRecord(unsigned long format) {
    for (const FileFormatInfo* record = FormatArray; record->fourCC != 0; ++record) {
        if (record->fourCC == format) return record;
    }
    return nullptr;
}

// Euclid's loop on signed remainders, which give the result its sign.
std::int32_t GreatestCommonDivisor(std::int32_t x, std::int32_t y) {
    while (y != 0) {
        const std::int32_t remainder = WrappingRemainder(x, y);
        x = y;
        y = remainder;
    }
    return x;
}

void LogUnknownFormat(FourCC format) {
    char text[5] = {};
    for (int i = 0; i < 4; ++i, format /= 256) text[i] = static_cast<char>(format % 256);
    std::array<wchar_t, kTextCapacity + 1> wide{};
    UTF8toW(text, -1, wide.data(), kTextCapacity, false);
    HostLog::Get().TWLogEx(L"qf_mkv.dll: Can't find the file format[%s].", wide.data());
}

bool Create(MKVMuxer& muxer, const wchar_t* path, const EncodeParam* param) {
    return muxer.CreateMediaFile(path, param, &m_MuxParam) != 0;
}

bool Create(WebmMuxer1& muxer, const wchar_t* path, const EncodeParam* param) {
    return muxer.CreateMediaFile(path, param) != 0;
}

template <class Muxer>
void* CreateWith(std::uint32_t isWebm, const wchar_t* path, const EncodeParam* param) {
    IsWebm = isWebm; // first: other files of that kind may be open
    std::unique_ptr<Muxer> muxer;
    try {
        muxer.reset(new (std::nothrow) Muxer);
    } catch (const std::bad_alloc&) {
        // There may be no memory for its members either.
    }
    if (muxer == nullptr) {
        HostLog::Get().TWLog(L"qf_mkv.dll: Not enough memory to create avi writer.");
        return nullptr;
    }
    if (!Create(*muxer, path, param)) {
        const int why = errno;
        muxer.reset();
        HostLog::Get().TWLogEx(L"qf_mkv.dll: Create media file[%s] failed", path);
        errno = why;
        return nullptr;
    }
    return static_cast<IStream*>(muxer.release());
}

// Calls the operation with the handle's muxer if it is of the kind that IsWebm names, else returns 0.
template <class Operation>
int Routed(void* handle, Operation operation) {
    auto* const stream = static_cast<IStream*>(handle);
    if (stream == nullptr) return 0;
    if (IsWebm != 0) return typeid(*stream) == typeid(WebmMuxer1) ? operation(static_cast<WebmMuxer1&>(*stream)) : 0;
    return typeid(*stream) == typeid(MKVMuxer) ? operation(static_cast<MKVMuxer&>(*stream)) : 0;
}

} // namespace

FileFormatInfo* GetFileFormats() {
    HostLog::Get().TWLogEx(L"qf_mkv.dll: Return file formats...");
    return FormatArray;
}

int FindFileFormat(unsigned long format) { return FindRecord(format) != nullptr ? 1 : 0; }

EncoderInfo* GetEncoders() { return EncoderArray; }

void* CreateEncoder(unsigned long, const EncodeParam*) { return nullptr; }

int Encode(void*, const MEDIA_FRAME*, MEDIA_FRAME**, int**) { return 0; }

void DestroyEncoder(void*) {}

int ReviseAudioParam(AudioParam*) { return 1; }

int SetMuxParam(MuxParam* param) {
    m_MuxParam = {};
    if (param != nullptr) m_MuxParam = *param;
    std::int32_t& x = m_MuxParam.displayAspectX;
    std::int32_t& y = m_MuxParam.displayAspectY;
    if (x == 0 || y == 0) return x;
    const std::int32_t divisor = GreatestCommonDivisor(x, y);
    x = WrappingDivide(x, divisor);
    y = WrappingDivide(y, divisor);
    return y;
}

void* CreateMediaFile(const wchar_t* path, const EncodeParam* param) {
    IsWebm = 0;
    if (path == nullptr || param == nullptr) return nullptr;
    const FileFormatInfo* const record = FindRecord(param->formatFourCC);
    if (record == nullptr) {
        LogUnknownFormat(param->formatFourCC);
        return nullptr;
    }
    return record->fourCC == kWebm ? CreateWith<WebmMuxer1>(1, path, param) : CreateWith<MKVMuxer>(0, path, param);
}

int WriteVideoPacket(void* handle, const MEDIA_FRAME* frame) {
    return Routed(handle, [=](auto& muxer) { return frame != nullptr ? muxer.WriteVideoPacket(frame) : 0; });
}

int WriteAudioPacket(void* handle, const MEDIA_FRAME* frame, int* frameSizes) {
    return Routed(handle,
                  [=](auto& muxer) { return frame != nullptr ? muxer.WriteAudioPacket(frame, frameSizes) : 0; });
}

void WriteVosData(void* handle, unsigned char* data, int length) {
    Routed(handle, [=](auto& muxer) {
        muxer.WriteVosData(data, length);
        return 0;
    });
}

void WritezXPSData(void* handle, unsigned char* pictureSet, int pictureSetLength, unsigned char* sequenceSet,
                   int sequenceSetLength) {
    Routed(handle, [=](auto& muxer) {
        muxer.WritezXPSData(pictureSet, pictureSetLength, sequenceSet, sequenceSetLength);
        return 0;
    });
}

// Closes either kind, regardless of IsWebm: the muxer's own destructor finishes its file.
void CloseMediaFile(void* handle, ProgressCallback, void*) { delete static_cast<IStream*>(handle); }
