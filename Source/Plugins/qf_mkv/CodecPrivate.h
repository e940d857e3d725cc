// SPDX-License-Identifier: MIT
// The headers that decoders need before the first frame, octet by octet. They become a track's CodecPrivate.
#pragma once

#include <string>

#include "ByteOrder.h"
#include "HostRecords.h"

// Whether a CodecID names a kind of video that has such headers.
bool IsMpegVideo(const std::string& codecID); // MPEG-1 and MPEG-2
bool IsAvc(const std::string& codecID);       // H.264, with any suffix

// The 40-octet header of a Video-for-Windows track. The height keeps its sign.
Bytes BitmapInfoHeader(const VideoParam& video, FourCC compression);

// The 18-octet header of an audio track without a codec identifier of its own. Its cbSize is 18, the header's own size,
// deliberately, although nothing follows it.
Bytes WaveFormatEx(const AudioParam& audio);

// AVCDecoderConfigurationRecord (ISO/IEC 14496-15) of at most one picture and one sequence parameter set, NAL units
// without start codes; an empty view counts as absent.
Bytes AvcDecoderConfigurationRecord(ByteView pictureSet, ByteView sequenceSet);
// The record's size in octets.
std::uint64_t AvcRecordSize(ByteView pictureSet, ByteView sequenceSet);

// The MPEG-1/2 sequence header (ISO/IEC 11172-2, 13818-2) in a run of video: from its start code through all extensions
// to the next other start code, or to the end. Empty when there is no sequence header.
ByteView FindSequenceHeader(ByteView video);
