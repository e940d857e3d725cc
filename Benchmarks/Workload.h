// SPDX-License-Identifier: MIT
// The frames to write: ready in memory, in time order, the same on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Times are counts of 100 ns, as at the plug-in's boundary.
constexpr std::int64_t kSecond = 10000000;

struct Frame {
    unsigned char* m_pData;
    std::uint32_t m_Size;
    bool m_IsVideo;
    bool m_IsKey;
    std::int64_t m_Time;
    std::int32_t m_Duration;
};

// How H.264 frames are divided into units. The plug-in takes different paths, and the frames' first octets differ.
enum class Framing { None, Lengths, StartCodes };

struct WorkloadKind {
    const char* m_Name;
    const char* m_Format; // the format and codec codes of a host; an empty codec: no such stream
    const char* m_VideoCodec;
    const char* m_AudioCodec;
    Framing m_Framing;
    unsigned m_FrameRate; // pictures a second, 0 for none
    unsigned m_KeyInterval;
    unsigned m_KeySize;
    unsigned m_SmallestPicture; // other pictures lie between the two, evenly spread
    unsigned m_LargestPicture;
    unsigned m_AudioSize;
    unsigned m_AudioSamples; // in a frame
    unsigned m_AudioRate;
};

class Workload {
public:
    // Makes the frames of that many seconds, at most as many as the pool holds, which then repeat.
    // Throws std::runtime_error for a name that is not in the table.
    Workload(const std::string& name, unsigned seconds);

    const WorkloadKind& Kind() const { return m_Kind; }

    // The streams' frames merged by time, pictures first. take is called with each.
    template <class Take>
    void Feed(Take take) {
        const std::int64_t end = m_Seconds * kSecond;
        Clock pictureClock = PictureClock();
        Clock soundClock = SoundClock();
        auto picture = m_Pictures.cbegin();
        auto sound = m_Sounds.cbegin();
        for (;;) {
            const std::int64_t pictureTime = pictureClock.m_Time;
            const std::int64_t soundTime = soundClock.m_Time;
            if (pictureTime <= soundTime) {
                if (pictureTime >= end) break;
                pictureClock.Advance();
                if (m_Kind.m_Framing == Framing::StartCodes) WriteStart(*picture);
                take(Frame{picture->m_pData, picture->m_Size, true, picture->m_IsKey, pictureTime,
                           static_cast<std::int32_t>(pictureClock.m_Time - pictureTime)});
                if (++picture == m_Pictures.cend()) picture = m_Pictures.cbegin();
            } else {
                if (soundTime >= end) break;
                soundClock.Advance();
                take(Frame{sound->m_pData, sound->m_Size, false, true, soundTime,
                           static_cast<std::int32_t>(soundClock.m_Time - soundTime)});
                if (++sound == m_Sounds.cend()) sound = m_Sounds.cbegin();
            }
        }
    }

private:
    struct Slot {
        unsigned char* m_pData;
        std::uint32_t m_Size;
        bool m_IsKey;
    };

    // The start times of a stream, its n-th at n * period / rate, exact and without a division for each frame.
    struct Clock {
        std::int64_t m_Step;
        std::int64_t m_StepRest;
        std::int64_t m_Rate;
        std::int64_t m_Time = 0;
        std::int64_t m_Rest = 0;

        void Advance() {
            m_Time += m_Step;
            m_Rest += m_StepRest;
            if (m_Rest >= m_Rate) {
                m_Rest -= m_Rate;
                ++m_Time;
            }
        }
    };

    Clock PictureClock() const;
    Clock SoundClock() const;
    void Generate();
    // The octets in front of a picture's slice. The plug-in overwrites start codes, so they are made anew each time.
    void WriteStart(const Slot& slot) const;

    const WorkloadKind& m_Kind;
    std::int64_t m_Seconds;
    std::vector<unsigned char> m_Pool;
    std::vector<Slot> m_Pictures;
    std::vector<Slot> m_Sounds;
};
