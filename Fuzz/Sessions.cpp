// SPDX-License-Identifier: MIT
// Host sessions against the exported functions of the loaded plug-in. Results, buffers and files must equal those
// of the reference model. Independent checks demand that every file parses, adds up and holds the payload of each track
// once and in order.
#include <cstring>

#include "FuzzTarget.h"
#include "PayloadLedger.h"
#include "SessionComparison.h"
#include "SessionInput.h"

namespace {

// Exports that have nothing to do with files, at any time.
void CallTheOthers(const Plugin& plugin, FourCC code) {
    const bool isFormat = code == MakeFourCC("MKV ") || code == MakeFourCC("HMKV") || code == MakeFourCC("MKA ") ||
                          code == MakeFourCC("WEBM");
    Require(plugin.FindFileFormat(code) == (isFormat ? 1 : 0), "FindFileFormat");
    Require(plugin.GetFileFormats() == plugin.m_pFormatArray, "GetFileFormats");
    Require(plugin.GetEncoders() == plugin.m_pEncoderArray, "GetEncoders");
    Require(plugin.CreateEncoder(code, nullptr) == nullptr, "CreateEncoder");
    Require(plugin.Encode(nullptr, nullptr, nullptr, nullptr) == 0, "Encode");
    plugin.DestroyEncoder(nullptr);
    Require(plugin.ReviseAudioParam(nullptr) == 1, "ReviseAudioParam");
    char version[sizeof "5,0,0,14"];
    Require(plugin.GetMultiVersion(version) == 8 && plugin.GetMultiVersion(nullptr) == 0, "GetMultiVersion");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Plugin plugin(QF_PLUGIN);
    static const TempDirectory directory;
    static PayloadLedger ledger;
    static SessionComparison comparison(plugin, directory, &ledger);
    FourCC code = 0;
    if (size >= sizeof code) std::memcpy(&code, data, sizeof code);
    CallTheOthers(plugin, code);
    FuzzInput input(data, size);
    const std::string mismatch = comparison.Play(MakeSession(input));
    Require(mismatch.empty(), mismatch);
    return 0;
}
