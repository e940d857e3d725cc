// SPDX-License-Identifier: MIT
// The plug-in as a host sees it: loaded from a file, reached through its exported names alone.
#pragma once

#include "MKVInterface.h"
#include "PluginLibrary.h"

class Plugin {
public:
    // Loads the library and looks every name up. Throws std::runtime_error with the loader's words.
    explicit Plugin(const char* path);

    decltype(&::GetFileFormats) GetFileFormats;
    decltype(&::GetEncoders) GetEncoders;
    decltype(&::GetMultiVersion) GetMultiVersion;
    decltype(&::FindFileFormat) FindFileFormat;
    decltype(&::CreateEncoder) CreateEncoder;
    decltype(&::Encode) Encode;
    decltype(&::DestroyEncoder) DestroyEncoder;
    decltype(&::ReviseAudioParam) ReviseAudioParam;
    decltype(&::SetMuxParam) SetMuxParam;
    decltype(&::CreateMediaFile) CreateMediaFile;
    decltype(&::WriteVideoPacket) WriteVideoPacket;
    decltype(&::WriteAudioPacket) WriteAudioPacket;
    decltype(&::WriteVosData) WriteVosData;
    decltype(&::WritezXPSData) WritezXPSData;
    decltype(&::CloseMediaFile) CloseMediaFile;

    FileFormatInfo* m_pFormatArray;
    EncoderInfo* m_pEncoderArray;
    EncoderEntry* m_pMKVAudioEncoders;
    EncoderEntry* m_pMKVVideoEncoders;
    EncoderEntry* m_pHMKVAudioEncoders;
    EncoderEntry* m_pHMKVVideoEncoders;
    EncoderEntry* m_pWEBMAudioEncoders;
    EncoderEntry* m_pWEBMVideoEncoders;
    MuxParam* m_pMuxParam;
    std::uint32_t* m_pIsWebm;

private:
    QfHost::PluginLibrary m_Library;
};
