// SPDX-License-Identifier: MIT
// What decoders need before the first frame, octet by octet: the headers that become a track's CodecPrivate.
#pragma once

#include <string>

#include "ByteOrder.h"
#include "HostRecords.h"

// The kinds of video that have such headers, by their CodecID.
bool IsMpegVideo(const std::string& codecID); // MPEG-1 and MPEG-2
bool IsAvc(const std::string& codecID);       // H.264, whatever follows its identifier

// The 40-octet header of a Video-for-Windows track. The height keeps its sign.
Bytes BitmapInfoHeader(const VideoParam& video, FourCC compression);

// The 18-octet header of an audio track without a codec identifier of its own. Its cbSize is 18, the header's own size,
// deliberately, although nothing follows it.
Bytes WaveFormatEx(const AudioParam& audio);

// AVCDecoderConfigurationRecord (ISO/IEC 14496-15) of at most one picture and one sequence parameter set, NAL units
// without start codes; an empty view counts as absent.
Bytes AvcDecoderConfigurationRecord(ByteView pictureSet, ByteView sequenceSet);
// Its octets.
std::uint64_t AvcRecordSize(ByteView pictureSet, ByteView sequenceSet);

// The MPEG-1/2 sequence header (ISO/IEC 11172-2, 13818-2) in a run of video: from its start code over all extensions up
// to the next start code that is neither, or to the end. Empty when there is none.
ByteView FindSequenceHeader(ByteView video);
