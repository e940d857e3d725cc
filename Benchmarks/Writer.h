// SPDX-License-Identifier: MIT
// The common interface of all writers.
#pragma once

#include <memory>
#include <string>

#include "Workload.h"

class Writer {
public:
    Writer() = default;
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    virtual ~Writer() = default;

    // The frame's octets may change after the call, as a host's buffer does.
    virtual void Write(const Frame& frame) = 0;
    // Completes the file. Returns the number of octets that left the process, those written twice counted twice.
    virtual std::uint64_t Close() = 0;
};

// H.264 sets without start codes, and the AAC configuration: any that readers accept.
constexpr unsigned char kSequenceSet[] = {0x67, 0x42, 0xC0, 0x28, 0xDA, 0x01, 0xE0, 0x08, 0x9F, 0x96, 0x10};
constexpr unsigned char kPictureSet[] = {0x68, 0xCE, 0x3C, 0x80};
constexpr unsigned char kAacConfiguration[] = {0x11, 0x90};
// Vorbis headers as Matroska holds them: octet 2, two sizes, three packets. Their insides are not looked at here.
constexpr unsigned char kVorbisHeaders[] = {0x02, 0x01, 0x01, 0x01, 0x03, 0x05};

// path: empty for a sink that only counts.
using OpenWriter = std::unique_ptr<Writer> (*)(const WorkloadKind& kind, const std::string& path);

std::unique_ptr<Writer> OpenLimit(const WorkloadKind& kind, const std::string& path);
std::unique_ptr<Writer> OpenSearchLimit(const WorkloadKind& kind, const std::string& path);
std::unique_ptr<Writer> OpenPlugin(const WorkloadKind& kind, const std::string& path);

// Peers, built where their libraries are.
std::unique_ptr<Writer> OpenLibwebm(const WorkloadKind& kind, const std::string& path);
std::unique_ptr<Writer> OpenLibavformat(const WorkloadKind& kind, const std::string& path);
std::unique_ptr<Writer> OpenLibavformatCrc(const WorkloadKind& kind, const std::string& path);
std::unique_ptr<Writer> OpenLibmatroska(const WorkloadKind& kind, const std::string& path);
