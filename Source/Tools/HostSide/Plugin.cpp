#include "Plugin.h"

#include <dlfcn.h>
#include <link.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "Surroundings.h"

namespace {

// The loader maps what a library's headers name, and dies of a library that is cut off. What else may be wrong with a
// file it tells by itself.
void NeedWholeLibrary(const char* path) {
    std::ifstream file(path, std::ios::binary);
    ElfW(Ehdr) head = {};
    if (!file.read(reinterpret_cast<char*>(&head), sizeof head)) return;
    const bool isNative = std::memcmp(head.e_ident, ELFMAG, SELFMAG) == 0 &&
                          head.e_ident[EI_CLASS] == (sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32);
    if (!isNative || head.e_phentsize != sizeof(ElfW(Phdr))) return;
    const std::uintmax_t size = std::filesystem::file_size(path);
    file.seekg(static_cast<std::streamoff>(head.e_phoff));
    for (unsigned i = 0; i < head.e_phnum; ++i) {
        ElfW(Phdr) segment = {};
        if (file.read(reinterpret_cast<char*>(&segment), sizeof segment) && segment.p_offset <= size &&
            segment.p_filesz <= size - segment.p_offset) {
            continue;
        }
        throw std::runtime_error(std::string("cannot load '") + path + "': it is cut off");
    }
}

void* Load(const char* path) {
    NeedRegularFile(path);
    NeedWholeLibrary(path);
    // Made absolute: the loader would look a bare name up in its own folders.
    void* const library = dlopen(std::filesystem::absolute(path).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) throw std::runtime_error(dlerror());
    return library;
}

} // namespace

template <class Target>
void Plugin::Find(Target& target, const char* name) {
    void* const symbol = dlsym(m_pLibrary, name);
    if (symbol == nullptr) throw std::runtime_error(std::string("it is no plug-in of this kind: it lacks ") + name);
    target = reinterpret_cast<Target>(symbol);
}

Plugin::Plugin(const char* path) : m_pLibrary(Load(path)) {
    Find(GetFileFormats, "GetFileFormats");
    Find(GetEncoders, "GetEncoders");
    Find(GetMultiVersion, "GetMultiVersion");
    Find(FindFileFormat, "_Z14FindFileFormatm");
    Find(CreateEncoder, "_Z13CreateEncodermPK11EncodeParam");
    Find(Encode, "_Z6EncodePvPK11MEDIA_FRAMEPPS0_PPi");
    Find(DestroyEncoder, "_Z14DestroyEncoderPv");
    Find(ReviseAudioParam, "_Z16ReviseAudioParamP10AudioParam");
    Find(SetMuxParam, "_Z11SetMuxParamP8MuxParam");
    Find(CreateMediaFile, "_Z15CreateMediaFilePKwPK11EncodeParam");
    Find(WriteVideoPacket, "_Z16WriteVideoPacketPvPK11MEDIA_FRAME");
    Find(WriteAudioPacket, "_Z16WriteAudioPacketPvPK11MEDIA_FRAMEPi");
    Find(WriteVosData, "_Z12WriteVosDataPvPhi");
    Find(WritezXPSData, "_Z13WritezXPSDataPvPhiS0_i");
    Find(CloseMediaFile, "_Z14CloseMediaFilePvPFjS_jjjES_");
    Find(m_pFormatArray, "FormatArray");
    Find(m_pEncoderArray, "EncoderArray");
    Find(m_pMKVAudioEncoders, "MKVAudioEncoders");
    Find(m_pMKVVideoEncoders, "MKVVideoEncoders");
    Find(m_pHMKVAudioEncoders, "HMKVAudioEncoders");
    Find(m_pHMKVVideoEncoders, "HMKVVideoEncoders");
    Find(m_pWEBMAudioEncoders, "WEBMAudioEncoders");
    Find(m_pWEBMVideoEncoders, "WEBMVideoEncoders");
    Find(m_pMuxParam, "m_MuxParam");
    Find(m_pIsWebm, "IsWebm");
}

Plugin::~Plugin() { dlclose(m_pLibrary); }
