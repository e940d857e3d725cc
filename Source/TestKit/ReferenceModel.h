// SPDX-License-Identifier: MIT
// The plug-in's rules implemented a second time, in the plainest way: a model that takes the same calls as the exported
// functions, keeps each file as one string of octets and builds every element as a string inside a string.
// It shares nothing with the plug-in, so that a mistake has to be made twice to go unseen.
//
// The caller supplies random numbers and the clock. There are no real paths: the caller chooses what happens to a path.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "ModelRecords.h"

using Octets = std::vector<unsigned char>;

class ReferenceModel {
public:
    // What happens to the path of a new file: DiscImage is one whose last extension begins ".iso:", which opens and
    // discards all output.
    enum class Path { Null, Opens, DoesNotOpen, DiscImage };

    // randValues: what rand gives, call after call; past their end the model throws std::out_of_range.
    ReferenceModel(std::vector<int> randValues, std::int64_t secondsSince1970);
    ~ReferenceModel();
    ReferenceModel(const ReferenceModel&) = delete;
    ReferenceModel& operator=(const ReferenceModel&) = delete;

    void SetTime(std::int64_t secondsSince1970) { m_Now = secondsSince1970; }

    // The exported functions. A handle is a number, 0 for none. Frames are rewritten in place where the plug-in does.
    int SetMuxParam(const Model::MuxParam* param);
    int CreateMediaFile(Path path, const Model::EncodeParam* param);
    int WriteVideoPacket(int handle, const Model::Frame* frame);
    int WriteAudioPacket(int handle, const Model::Frame* frame, const int* frameSizes);
    void WriteVosData(int handle, const unsigned char* data, int length);
    void WritezXPSData(int handle, const unsigned char* pictureSet, int pictureSetLength,
                       const unsigned char* sequenceSet, int sequenceSetLength);
    // Returns the whole file, empty for a DiscImage and a null handle.
    Octets CloseMediaFile(int handle);

    // The exported data.
    const Model::MuxParam& StoredMuxParam() const { return m_MuxParam; }
    std::uint32_t IsWebm() const { return m_IsWebm; }

    // How often each named branch of the rules was taken, over all files of this model.
    const std::map<std::string_view, std::uint64_t>& Reached() const { return m_Reached; }

private:
    struct Block;
    struct Track;
    struct File;

    File* Find(int handle, const char* misrouted);
    void Reach(const char* turn) { ++m_Reached[turn]; }

    void AddVideoTrack(File& file, const Model::VideoParam& param);
    void AddAudioTrack(File& file, const Model::AudioParam& param);
    int Queue(File& file, Track& track, const unsigned char* data, std::int64_t size, std::int64_t start,
              std::int64_t end, bool key);
    void DerivePrivate(Track& track, const Octets& frame);
    int WriteUnits(File& file, const Model::Frame& frame);
    int WriteLossless(File& file, const Model::Frame& frame);
    // Returns whether the data was stored.
    bool StorePrivate(File& file, Track& track, const Octets& data);
    Octets TracksElement(const File& file) const;
    Octets InfoElement(const File& file) const;
    void WriteHeader(File& file);
    void WriteCluster(File& file);
    void Drain(File& file);
    void Place(File& file, Track& track, Block block);
    void Finish(File& file);

    std::vector<int> m_RandValues;
    std::size_t m_NextRand = 0;
    std::int64_t m_Now;
    Model::MuxParam m_MuxParam{};
    std::uint32_t m_IsWebm = 0;
    int m_LastHandle = 0;
    std::map<int, std::unique_ptr<File>> m_Files;
    std::map<std::string_view, std::uint64_t> m_Reached;
};
