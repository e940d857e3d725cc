// SPDX-License-Identifier: MIT
#include "Plugin.h"

Plugin::Plugin(const char* path) : m_Library(QfHost::PluginFile(path), QfHost::PluginLibrary::Shared{}) {
    m_Library.Find(GetFileFormats, "GetFileFormats");
    m_Library.Find(GetEncoders, "GetEncoders");
    m_Library.Find(GetMultiVersion, "GetMultiVersion");
    m_Library.Find(FindFileFormat, "_Z14FindFileFormatm");
    m_Library.Find(CreateEncoder, "_Z13CreateEncodermPK11EncodeParam");
    m_Library.Find(Encode, "_Z6EncodePvPK11MEDIA_FRAMEPPS0_PPi");
    m_Library.Find(DestroyEncoder, "_Z14DestroyEncoderPv");
    m_Library.Find(ReviseAudioParam, "_Z16ReviseAudioParamP10AudioParam");
    m_Library.Find(SetMuxParam, "_Z11SetMuxParamP8MuxParam");
    m_Library.Find(CreateMediaFile, "_Z15CreateMediaFilePKwPK11EncodeParam");
    m_Library.Find(WriteVideoPacket, "_Z16WriteVideoPacketPvPK11MEDIA_FRAME");
    m_Library.Find(WriteAudioPacket, "_Z16WriteAudioPacketPvPK11MEDIA_FRAMEPi");
    m_Library.Find(WriteVosData, "_Z12WriteVosDataPvPhi");
    m_Library.Find(WritezXPSData, "_Z13WritezXPSDataPvPhiS0_i");
    m_Library.Find(CloseMediaFile, "_Z14CloseMediaFilePvPFjS_jjjES_");
    m_Library.Find(m_pFormatArray, "FormatArray");
    m_Library.Find(m_pEncoderArray, "EncoderArray");
    m_Library.Find(m_pMKVAudioEncoders, "MKVAudioEncoders");
    m_Library.Find(m_pMKVVideoEncoders, "MKVVideoEncoders");
    m_Library.Find(m_pHMKVAudioEncoders, "HMKVAudioEncoders");
    m_Library.Find(m_pHMKVVideoEncoders, "HMKVVideoEncoders");
    m_Library.Find(m_pWEBMAudioEncoders, "WEBMAudioEncoders");
    m_Library.Find(m_pWEBMVideoEncoders, "WEBMVideoEncoders");
    m_Library.Find(m_pMuxParam, "m_MuxParam");
    m_Library.Find(m_pIsWebm, "IsWebm");
}
