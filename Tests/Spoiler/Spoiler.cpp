// A plug-in that passes everything on to the real one, but spoils the tenth video frame: what a host's own check of its
// file must notice. QF_SPOILER_TABLES makes its table of formats null, empty, or one format bare of all else.
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Plugin.h"

namespace {

const Plugin& Real() {
    static const Plugin plugin(QF_PLUGIN);
    return plugin;
}

int g_Frame = 0;

} // namespace

EncoderEntry MKVAudioEncoders[1];
EncoderEntry MKVVideoEncoders[1];
EncoderEntry HMKVAudioEncoders[1];
EncoderEntry HMKVVideoEncoders[1];
EncoderEntry WEBMAudioEncoders[1];
EncoderEntry WEBMVideoEncoders[1];
FileFormatInfo FormatArray[1];
EncoderInfo EncoderArray[1];
MuxParam m_MuxParam;
std::uint32_t IsWebm;

FileFormatInfo* GetFileFormats() {
    static FileFormatInfo bare[2];
    bare[0].fourCC = MakeFourCC("MKV ");
    const char* const tables = std::getenv("QF_SPOILER_TABLES");
    const std::string word = tables != nullptr ? tables : "";
    if (word == "null") return nullptr;
    if (word == "empty") return FormatArray;
    return word == "bare" ? bare : Real().GetFileFormats();
}
EncoderInfo* GetEncoders() { return Real().GetEncoders(); }
int GetMultiVersion(char* buffer) { return Real().GetMultiVersion(buffer); }
int FindFileFormat(unsigned long format) { return Real().FindFileFormat(format); }
void* CreateEncoder(unsigned long, const EncodeParam*) { return nullptr; }
int Encode(void*, const MEDIA_FRAME*, MEDIA_FRAME**, int**) { return 0; }
void DestroyEncoder(void*) {}
int ReviseAudioParam(AudioParam* param) { return Real().ReviseAudioParam(param); }
int SetMuxParam(MuxParam* param) { return Real().SetMuxParam(param); }

void* CreateMediaFile(const wchar_t* path, const EncodeParam* param) { return Real().CreateMediaFile(path, param); }

int WriteVideoPacket(void* handle, const MEDIA_FRAME* frame) {
    if (++g_Frame != 10) return Real().WriteVideoPacket(handle, frame);
    std::vector<unsigned char> spoiled(frame->videoData, frame->videoData + frame->videoSize);
    spoiled.back() = static_cast<unsigned char>(~spoiled.back());
    MEDIA_FRAME copy = *frame;
    copy.videoData = spoiled.data();
    return Real().WriteVideoPacket(handle, &copy);
}

int WriteAudioPacket(void* handle, const MEDIA_FRAME* frame, int* sizes) {
    return Real().WriteAudioPacket(handle, frame, sizes);
}
void WriteVosData(void* handle, unsigned char* data, int size) { Real().WriteVosData(handle, data, size); }
void WritezXPSData(void* handle, unsigned char* picture, int pictureSize, unsigned char* sequence, int sequenceSize) {
    Real().WritezXPSData(handle, picture, pictureSize, sequence, sequenceSize);
}
void CloseMediaFile(void* handle, ProgressCallback progress, void* argument) {
    Real().CloseMediaFile(handle, progress, argument);
}
