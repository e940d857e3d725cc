// SPDX-License-Identifier: MIT
// Sessions of every kind whose calls and files are compared with those of the model, octet for octet.
#include <cstdlib>
#include <ctime>
#include <limits>

#include "Check.h"
#include "OutputFile.h"
#include "Script.h"
#include "SessionPlayer.h"

namespace {

using Model::EncodeParam;
using Script::Calls;
using Script::Frame;
using Script::Job;
using Script::kMs;
using Script::kPicture;
using Script::LengthUnits;
using Script::Units;

constexpr std::int64_t kSecond = 1000 * kMs;
constexpr std::int64_t kHour = 3600 * kSecond;

// ---- jobs

// One second of both kinds of media, with set-up data that most codecs ignore.
RandomSession Short(const EncodeParam& job, bool early = true) {
    Calls calls;
    calls.Create(job);
    const auto setUp = [&calls] {
        calls.AudioSetUp(Hex("12 10 56")).VideoSetUp(Hex("68 EE 3C"), Hex("67 64 00 0A AC"));
        calls.VideoSetUp({}, Hex("99 000001B3 14 00F0 23 000001B5 14 8A 000001B8 00"));
    };
    if (early) setUp();
    for (int i = 0; i < 26; ++i) {
        const unsigned char type = i % 10 == 0 ? 0x65 : 0x41;
        calls.Video(Units({type, type}, 20U + static_cast<unsigned>(i), static_cast<unsigned>(i)), i * kPicture,
                    i % 10 == 0);
        calls.Audio(Frame(10U + static_cast<unsigned>(i) % 4, static_cast<unsigned>(i)), i * kPicture);
    }
    if (!early) setUp();
    return calls.Close().Session();
}

void VideoCodes(Host& host) {
    SessionPlayer player(host);
    for (const char* format : kFormats) {
        for (const char* code : {"H264", "N264", "A264", "I264", "havc", "MP1V", "MP2V", "MP4V", "Xvid", "VP8 ",
                                 "VP9 ", "VP90", "HEVC", "AV01", "X264", "h264", "MJPG", "WVC1", "mp4v", "XVID"}) {
            for (const char* audio : {"AAC ", ""}) {
                player.Play(Short(Job(format, code, audio)), "a job for each video code");
                player.Play(Short(Job(format, code, audio), false), "set-up data behind the frames");
            }
        }
    }
}

void AudioCodes(Host& host) {
    SessionPlayer player(host);
    for (const char* format : kFormats) {
        for (const char* code : {"AAC ", "AC3 ", "MP3 ", "MP2A", "DTS ", "PCM ", "VBIS", "OPUS", "Opus", "FLAC", "fLaC",
                                 "aac ", "EAC3", "WMA2", "\x55"}) {
            for (const char* video : {"VP8 ", ""}) {
                player.Play(Short(Job(format, video, code)), "a job for each audio code");
                player.Play(Short(Job(format, video, code), false), "set-up data behind the frames");
            }
        }
    }
}

void Numbers(Host& host) {
    SessionPlayer player(host);
    constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
    for (const char* format : kFormats) {
        for (const char* code : {"Xvid", "DIB "}) {
            const auto play = [&](const EncodeParam& job) { player.Play(Short(job), "numbers of a job"); };
            for (const std::int32_t size : {1, 127, 128, 255, 256, 720, 1080, 4096, 7680, 65535, 65536, kMost}) {
                EncodeParam job = Job(format, code, "MP3 ");
                job.videoParam.width = size;
                job.videoParam.height = -size;
                play(job);
                job.videoParam.height = size / 2 + 1;
                play(job);
            }
            for (const std::int32_t bits : {0, 1, 8, 16, 24, 32, 48, 65536 + 24, -1}) {
                EncodeParam job = Job(format, code, "MP3 ");
                job.videoParam.bitCount = bits;
                play(job);
            }
            for (const double rate :
                 {1.0,  10.0,  12.5, 15.0,   23.976, 24000.0 / 1001, 24.0, 25.0, 29.97, 30.0, 48.0,
                  50.0, 59.94, 60.0, 119.88, 0.1,    1000.0,         1e9,  2e9,  1e-9,  0.0,  -25.0}) {
                EncodeParam job = Job(format, code, "MP3 ");
                job.videoParam.frameRate = rate;
                play(job);
            }
        }
        for (const char* code : {"AC3 ", "\x55"}) {
            for (const std::int32_t channels : {0, 1, 2, 3, 6, 8, 16, 255, 256, 65538, -1}) {
                for (const std::int32_t bits : {0, 8, 16, 20, 24, 32, -16}) {
                    EncodeParam job = Job(format, "", code);
                    job.audioParam.channels = channels;
                    job.audioParam.bitsPerSample = bits;
                    player.Play(Short(job), "numbers of a job");
                }
            }
            for (const std::int32_t rate :
                 {0, 8000, 11025, 22050, 32000, 44100, 48000, 96000, 192000, 16777217, kMost}) {
                EncodeParam job = Job(format, "", code);
                job.audioParam.sampleRate = rate;
                player.Play(Short(job), "numbers of a job");
            }
        }
    }
}

// A job's video code names the DocType, with video or without.
void DocTypes(Host& host) {
    SessionPlayer player(host);
    for (const char* format : kFormats) {
        for (const char* video : {"VP8 ", "VP80", "vp8 ", "Xvid"}) {
            for (const char* audio : {"VBIS", "AAC ", ""}) {
                EncodeParam job = Job(format, video, audio);
                player.Play(Short(job), "DocType");
                job.disableVideo = 1;
                player.Play(Short(job), "DocType of a job that disables its video");
            }
        }
    }
}

void Options(Host& host) {
    SessionPlayer player(host);
    const EncodeParam first = Job("MKV ", "Xvid", "");
    for (const char* format : kFormats) {
        const EncodeParam second = Job(format, "havc", "");
        Calls calls;
        // A file has the options that hold at its creation.
        calls.Options(1, 1920, 1080).Slot(1).Create(first).Slot(2);
        calls.Options(3, 4, 3).Slot(0).Create(second).Options(0, 5, 4).Slot(1).Video(Frame(9, 1), 0);
        calls.Slot(0)
            .Video(Frame(8, 2), 0)
            .Close()
            .Slot(1)
            .Video(Frame(7, 3), 400000)
            .Close()
            .Create(second)
            .Video(Frame(6, 4), 0);
        calls.Close().Options(1, -16, -9).Create(second).Video(Frame(6, 4), 0).Close();
        calls.Options(0xFFFFFFFD, 720, 576).Create(second).Video(Frame(6, 4), 0).Close();
        calls.Options(2, 16, 9).Create(second).Video(Frame(6, 4), 0).Close();
        calls.Options(1, 0, 9).Create(second).Video(Frame(6, 4), 0).Close();
        calls.Options(1, 2147483647, 2).Create(second).Video(Frame(6, 4), 0).Close();
        player.Play(calls.Session(), "options");
    }
}

// ---- frames

void LargeFrames(Host& host) {
    SessionPlayer player(host);
    for (const char* format : kFormats) {
        for (const char* code : {"Xvid", "VP8 ", "H264", "N264", "I264"}) {
            Calls calls;
            calls.Create(Job(format, code, "MP3 "));
            std::int64_t time = 0;
            for (const std::size_t size :
                 {300U, 16375U, 16376U, 16377U, 16378U, 16379U, 16380U, 16381U, 32768U, 65520U, 65534U, 65535U, 65536U,
                  65537U, 65600U, 131071U, 131072U, 131073U, 250000U}) {
                calls.Video(Units({0x67, 0x65, 0x41}, size / 3, static_cast<unsigned>(size)), time, size % 3 == 0);
                calls.Audio(Frame(size, static_cast<unsigned>(size) + 1), time, 900000);
                time += 90 * kMs;
            }
            player.Play(calls.Close().Session(), "frames of up to 250000 octets");
        }
    }
    for (const char* format : {"MKV ", "WEBM"}) {
        Calls calls;
        calls.Create(Job(format, "VP8 ", ""));
        std::int64_t time = 0;
        for (const std::size_t size : {1000000U, 2097140U, 2097146U, 2097147U, 3000000U, 5U}) {
            calls.Video(Frame(size, static_cast<unsigned>(size)), time, time == 0);
            time += 40 * kMs;
        }
        player.Play(calls.Close().Session(), "frames of up to 3 MB");
    }
}

// Frames of every size at which a length field grows, in one cluster and in many.
void FrameSizes(Host& host) {
    SessionPlayer player(host);
    for (const char* format : kFormats) {
        for (const std::int64_t step : {std::int64_t{1}, 40 * kMs, 700 * kMs}) {
            Calls calls;
            calls.Create(Job(format, "VP8 ", "VBIS"));
            for (unsigned size = 0; size <= 140; ++size) {
                calls.Video(Frame(size, size), size * step, size % 7 == 0).Audio(Frame(140 - size, size), size * step);
            }
            player.Play(calls.Close().Session(), "frames of 0 to 140 octets");
        }
    }
}

void PackedFrames(Host& host) {
    SessionPlayer player(host);
    const Octets frames = Frame(60, 1);
    for (const char* format : kFormats) {
        for (const char* code : {"MP3 ", "AAC ", "PCM "}) {
            Calls calls;
            calls.Create(Job(format, "", code));
            std::int64_t time = 0;
            for (const std::vector<int>& sizes : {std::vector<int>{1, 60},
                                                  {2, 30, 30},
                                                  {3, 20, 20, 20},
                                                  {4, 1, 2, 3, 54},
                                                  {3, 20, 0, 20},
                                                  {2, -5, 60},
                                                  {3, 59, 1, 1},
                                                  {2, 60, 1},
                                                  {2, 61, 1},
                                                  {0},
                                                  {-3},
                                                  {7, 1, 1, 1, 1, 1, 1, 1},
                                                  {1, 7}}) {
                for (const std::int32_t duration : {900000, 1, 2, 0, -700000, 2147483647}) {
                    calls.PackedAudio(frames, time, duration, sizes);
                    time += 30 * kMs;
                }
                // A record without a size of its own relies on its table.
                if (sizes.size() < 2 || sizes[1] > 60 || sizes == std::vector<int>{2, 60, 1} || sizes[1] == 59)
                    continue;
                calls.PackedAudio(frames, time, 600000, sizes, 0);
            }
            player.Play(calls.Close().Session(), "several audio frames in one call");
        }
    }
}

void StartCodeForms(Host& host) {
    SessionPlayer player(host);
    const Octets coded = Units({0x09, 0x67, 0x68, 0x06, 0x65, 0x65}, 12, 3);
    const Octets counted = LengthUnits({0x67, 0x68, 0x65}, 12, 5);
    const Octets shortCodes = Hex("000001 67 64 00 000001 68 EE 000001 65 88 84");
    const Octets mixed = Hex("00000001 67 64 00 000001 68 EE 00000001 65 88 000001 65 89");
    const Octets behindGarbage = Hex("AA BB 00000001 65 88 84 00000001 41 9A");
    const Octets farBehindGarbage = Hex("AA BB CC DD EE 00000001 65 88 84 00000001 41 9A");
    const Octets cutOff = Hex("00000001 65 88 00000001");
    const Octets setsOnly = Units({0x67, 0x68}, 9, 7);
    const std::vector<Octets> forms = {
        coded,  counted,  shortCodes, mixed,     behindGarbage,      farBehindGarbage,
        cutOff, setsOnly, {},         Hex("41"), Hex("00 00 00 01"), Hex("00 00 00 00 01 65 11")};
    for (const char* format : kFormats) {
        for (const char* code : {"H264", "N264", "A264", "I264", "havc", "VP8 "}) {
            // Each form comes first once: the first frame alone decides the form of an H264 file.
            for (const Octets& first : forms) {
                Calls calls;
                calls.Create(Job(format, code, "")).Video(first, 0);
                for (std::size_t i = 0; i < forms.size(); ++i) {
                    calls.Video(forms[i], static_cast<std::int64_t>(i + 1) * 400000, i % 3 == 0);
                }
                player.Play(calls.Close().Session(), "forms of H.264 frames");
            }
        }
        // Two files at once and one behind them, each with a form of its own.
        const EncodeParam job = Job(format, "H264", "");
        for (const bool codedFirst : {true, false}) {
            Calls calls;
            calls.Slot(1).Create(job).Slot(0).Create(job);
            for (int i = 0; i < 8; ++i) {
                calls.Slot(1).Video(codedFirst ? coded : counted, i * kPicture);
                calls.Slot(0).Video(codedFirst ? counted : coded, i * kPicture);
            }
            calls.Slot(1).Close().Create(job).Video(codedFirst ? counted : coded, 0).Video(coded, 400000).Close();
            calls.Slot(0).Close();
            player.Play(calls.Session(), "two files of other forms of H.264");
        }
    }
}

void Keys(Host& host) {
    SessionPlayer player(host);
    for (const char* format : kFormats) {
        for (const char* code : {"Xvid", "VP8 ", "H264"}) {
            for (const int distance : {1, 2, 13, 50, 1000}) {
                RandomSession session;
                Calls calls;
                calls.Create(Job(format, code, "AC3 "));
                for (int i = 0; i < 120; ++i) {
                    // The third picture of three goes first, as reordered codecs have it.
                    const int shown = i % 3 == 0 ? i + 2 : i - 1;
                    calls.Audio(Frame(9, 1), i * kPicture + 1);
                    calls.Video(LengthUnits({0x65}, 8, static_cast<unsigned>(i)), shown * kPicture, i % distance == 0);
                    if (i % 7 == 0)
                        calls.Video(LengthUnits({0x65}, 3, 1), shown * kPicture, i % 2 == 0); // at the same time
                }
                session = calls.Close().Session();
                // Any bit makes a key frame.
                for (HostCall& call : session.calls) call.frame.frameFlags *= 0x80000000U >> (distance % 31);
                player.Play(session, "key frames");
            }
        }
    }
}

// ---- set-up data

void SetUpData(Host& host) {
    SessionPlayer player(host);
    const Octets mpeg = Hex("000001B3 14 00F0 23 FFFF 000001B5 14 8A 000001B8 00");
    for (const char* format : kFormats) {
        for (const auto& codes :
             {std::pair{"H264", "AAC "}, {"A264", "VBIS"}, {"MP1V", "AAC "}, {"MP2V", "VBIS"}, {"Xvid", "MP3 "}}) {
            // Before any frame, while all is queued, and when the header has been written; and again.
            for (const int when : {0, 2, 30}) {
                for (const std::size_t size : {1U, 2U, 3U, 4U, 5U, 1000U, 1013U, 1024U, 1025U, 10240U, 10241U}) {
                    Calls calls;
                    calls.Create(Job(format, codes.first, codes.second));
                    for (int i = 0; i < 60; ++i) {
                        if (i == when || i == when + 20) {
                            const std::size_t part = i == when ? size : size / 2;
                            calls.AudioSetUp(Frame(part, 1)).VideoSetUp(Frame(5, 2), Frame(part, 3));
                            calls.VideoSetUp({}, Frame(part, 4)).VideoSetUp(Frame(part, 5), {});
                            calls.VideoSetUp(Hex("01"), mpeg).VideoSetUp({}, {});
                        }
                        calls.Video(LengthUnits({0x65}, 8, 1), i * kPicture, i % 9 == 0);
                        calls.Audio(Frame(4, 1), i * kPicture);
                    }
                    player.Play(calls.Close().Session(), "set-up data");
                }
            }
        }
    }
}

void MpegHeaders(Host& host) {
    SessionPlayer player(host);
    for (const char* code : {"MP1V", "MP2V"}) {
        for (const char* frame :
             {"000001B3 14 00F0 23 000001B5 14 8A 000001B8 00 00000100 12", "000001B3 14 00F0 23",
              "000001B8 00 000001B3 14", "000001B3 11 000001B3 22 00000100 33",
              "000001B5 11 000001B3 22 000001B5 33 00000101 44", "00000100 12 34 56", "0000000001B3 14 0000000001B8",
              "000001B3", "0001B3", "000001", "000001B3 000001B5 000001B3 000001B2 11"}) {
            for (const char* format : kFormats) {
                for (const bool early : {false, true}) {
                    Calls calls;
                    calls.Create(Job(format, code, ""));
                    if (early) calls.VideoSetUp({}, Hex(frame));
                    calls.Video(Hex(frame), 0).Video(Hex("000001B3 77 00000100 88"), 400000, false);
                    for (int i = 2; i < 9; ++i) calls.Video(Hex("00000100 11"), i * kPicture, false);
                    player.Play(calls.Close().Session(), "MPEG sequence headers");
                }
            }
        }
    }
}

// ---- times

// Both kinds of media in step.
RandomSession Film(const EncodeParam& job, std::int64_t from, std::int64_t step, int frames, int keyDistance = 12) {
    Calls calls;
    calls.Create(job).AudioSetUp(Hex("12 10"));
    for (int i = 0; i < frames; ++i) {
        const std::int64_t time = from + i * step;
        const unsigned char type = i % keyDistance == 0 ? 0x65 : 0x41;
        calls.Video(LengthUnits({type}, 10U + static_cast<unsigned>(i) % 90, static_cast<unsigned>(i)), time,
                    i % keyDistance == 0, static_cast<std::int32_t>(std::min<std::int64_t>(step, 10000000)));
        calls.Audio(Frame(10U + static_cast<unsigned>(i) % 5, static_cast<unsigned>(i)), time,
                    static_cast<std::int32_t>(std::min<std::int64_t>(step, 10000000)));
    }
    return calls.Close().Session();
}

constexpr struct {
    const char* m_Format;
    const char* m_Video;
    const char* m_Audio;
} kFilms[] = {{"MKV ", "H264", "AAC "}, {"HMKV", "havc", "AC3 "}, {"MKA ", "", "MP3 "}, {"WEBM", "VP8 ", "VBIS"},
              {"MKV ", "Xvid", ""},     {"WEBM", "VP8 ", ""},     {"WEBM", "", "VBIS"}};

void Minutes(Host& host) {
    SessionPlayer player(host);
    for (const auto& film : kFilms) {
        player.Play(Film(Job(film.m_Format, film.m_Video, film.m_Audio), 0, 400000, 4000, 250), "160 s of media");
    }
}

// So many clusters that every length and position of the indexes takes more octets.
void Hours(Host& host) {
    SessionPlayer player(host);
    for (const auto& film : kFilms) {
        const EncodeParam job = Job(film.m_Format, film.m_Video, film.m_Audio);
        player.Play(Film(job, 0, 1001 * kMs, 3000, 1), "50 min of media");
        player.Play(Film(job, 0, 30 * kSecond, 3000, 1), "25 h of media");
    }
}

void FarTimes(Host& host) {
    SessionPlayer player(host);
    for (const auto& film : kFilms) {
        const EncodeParam job = Job(film.m_Format, film.m_Video, film.m_Audio);
        for (const std::int64_t from :
             {std::int64_t{4999}, std::int64_t{5000}, 5 * kSecond, 24 * kHour, 1000 * kHour}) {
            player.Play(Film(job, from, 400000, 60), "a file that begins late");
        }
        // 7 min and 430 s, where 32 bits of 100 ns end; a day; 25 and 50 days, where those of ms end; three years.
        for (const std::int64_t jump :
             {214 * kSecond, 430 * kSecond, 24 * kHour, 597 * kHour, 1194 * kHour, 26280 * kHour}) {
            Calls calls;
            calls.Create(job);
            for (int i = 0; i < 40; ++i) {
                const std::int64_t time = i * kPicture + (i >= 20 ? jump : 0) + (i >= 30 ? kSecond : 0);
                calls.Video(LengthUnits({0x65}, 9, 1), time, i % 5 == 0).Audio(Frame(5, 2), time);
            }
            player.Play(calls.Close().Session(), "a gap of " + Text(jump / kSecond) + " s");
        }
    }
}

void NegativeTimes(Host& host) {
    SessionPlayer player(host);
    for (const auto& film : kFilms) {
        const EncodeParam job = Job(film.m_Format, film.m_Video, film.m_Audio);
        for (const std::int64_t from :
             {-2 * kSecond, -5001 + 0 * kSecond, -5000 + 0 * kSecond, -40 * kSecond, -1 + 0 * kSecond}) {
            player.Play(Film(job, from, 400000, 120), "times below zero");
        }
        // Behind the first block: dropped when more than 32768 ms.
        for (const std::int64_t back : {1, 500, 1000, 1001, 32767, 32768, 32769, 60000}) {
            Calls calls;
            calls.Create(job).Video(LengthUnits({0x65}, 9, 1), 0).Audio(Frame(5, 2), 0);
            for (int i = 1; i < 30; ++i) {
                const std::int64_t time = i % 3 == 0 ? -back * kMs - 5000 : i * kPicture;
                calls.Video(LengthUnits({0x41}, 9, 1), time, i % 2 == 0).Audio(Frame(5, 2), time - 1);
            }
            player.Play(calls.Close().Session(), "times before the first block's");
        }
    }
}

// One kind of media behind the other, up to where a block's time no longer fits its 16 bits.
void Lagging(Host& host) {
    SessionPlayer player(host);
    for (const char* format : kFormats) {
        for (const bool videoFirst : {true, false}) {
            for (const std::int64_t lag : {200, 999, 1000, 1001, 5000, 32000, 33000, 40000}) {
                Calls calls;
                calls.Create(Job(format, "VP8 ", "VBIS"));
                for (int i = 0; i < 600; ++i) {
                    const std::int64_t ahead = i * (100 * kMs);
                    const std::int64_t behind = ahead - lag * kMs;
                    if (videoFirst || behind >= 0) {
                        calls.Video(Frame(9, 1), videoFirst ? ahead : behind, i % 9 == 0, 1000000);
                    }
                    if (!videoFirst || behind >= 0) calls.Audio(Frame(5, 2), videoFirst ? behind : ahead, 1000000);
                }
                player.Play(calls.Close().Session(), "one kind of media behind the other");
            }
        }
    }
}

// Blocks on the edges of spans and of milliseconds.
void Edges(Host& host) {
    SessionPlayer player(host);
    for (const auto& film : kFilms) {
        for (const std::int64_t offset : {-10000, -5001, -5000, -4999, -1, 0, 1, 4999, 5000, 5001, 10000}) {
            Calls calls;
            calls.Create(Job(film.m_Format, film.m_Video, film.m_Audio));
            calls.Video(LengthUnits({0x65}, 9, 1), 0).Audio(Frame(5, 2), 0);
            for (int i = 1; i < 40; ++i) {
                const std::int64_t time = i * (500 * kMs) + offset;
                calls.Video(LengthUnits({0x65}, 9, 1), time, i % 4 != 1).Audio(Frame(5, 2), time);
            }
            player.Play(calls.Close().Session(), "times on the edges of clusters");
        }
    }
}

// Thousands of blocks in one cluster.
void SameTime(Host& host) {
    SessionPlayer player(host);
    for (const auto& film : kFilms) {
        player.Play(Film(Job(film.m_Format, film.m_Video, film.m_Audio), 0, 0, 3000), "frames of one time");
    }
}

// The date counts from local midnight, 32 bits of seconds far.
void Dates(Host& host) {
    SessionPlayer player(host);
    for (const char* zone : {"UTC", "EST5EDT,M3.2.0,M11.1.0", "CET-1CEST,M3.5.0,M10.5.0/3", "XXX-13:45", "YYY11:30"}) {
        setenv("TZ", zone, 1);
        tzset();
        for (const std::int64_t clock : {0LL, 978307199LL, 978307200LL, 978307201LL, 1700000000LL, 1720000000LL,
                                         3125790846LL, 3125790848LL, 4000000000LL, 5273274495LL}) {
            for (const char* format : {"MKV ", "WEBM"}) {
                RandomSession session = Film(Job(format, "VP8 ", "VBIS"), 0, 400000, 30);
                session.clock = clock;
                player.Play(session, std::string("time zone ") + zone + ", " + Text(clock) + " s since 1970");
            }
        }
    }
}

void Durations(Host& host) {
    SessionPlayer player(host);
    for (const char* format : kFormats) {
        for (const bool withVideo : {true, false}) {
            for (const bool withAudio : {true, false}) {
                if (!withVideo && !withAudio) continue;
                for (const int frames : {1, 2, 5, 24, 25, 26, 27, 50, 51, 100, 300}) {
                    // The sound's own durations, which may contradict the times.
                    for (const std::int32_t duration : {400000, 0, -1, 200000, 800000, 16777217}) {
                        Calls calls;
                        calls.Create(Job(format, withVideo ? "Xvid" : "", withAudio ? "AC3 " : ""));
                        for (int i = 0; i < frames; ++i) {
                            calls.Video(Frame(6, 1), i * kPicture, i % 12 == 0, duration);
                            calls.Audio(Frame(6, 2), i * kPicture, duration);
                        }
                        player.Play(calls.Close().Session(), "durations");
                    }
                }
            }
        }
    }
}

// ---- order

// Frames of one kind first, and then those of the other.
void Queues(Host& host) {
    SessionPlayer player(host);
    for (const char* format : kFormats) {
        for (const int lead : {0, 1, 4, 5, 6, 30, 2000}) {
            for (const bool videoFirst : {true, false}) {
                Calls calls;
                calls.Create(Job(format, "Xvid", "MP3 "));
                const auto write = [&calls](bool video, int number) {
                    if (video) {
                        calls.Video(Frame(7, static_cast<unsigned>(number)), number * kPicture, number % 12 == 0);
                    } else {
                        calls.Audio(Frame(3, static_cast<unsigned>(number)), number * kPicture);
                    }
                };
                for (int i = 0; i < lead; ++i) write(videoFirst, i);
                for (int i = 0; i < 60; ++i) {
                    write(!videoFirst, i);
                    if (i % 3 == 0) write(videoFirst, lead + i);
                }
                player.Play(calls.Close().Session(), "one kind of media first");
            }
        }
    }
}

void PseudoFiles(Host& host) {
    SessionPlayer player(host);
    for (const char* format : kFormats) {
        for (const char* code : {"H264", "N264", "Xvid"}) {
            Calls calls;
            calls.Create(Job(format, code, "AAC "), Script::Path::DiscImage);
            for (int i = 0; i < 60; ++i) {
                calls.Video(Units({0x67, 0x65}, 9, 1), i * kPicture).Audio(Frame(5, 2), i * kPicture);
                if (i == 30) calls.AudioSetUp(Hex("12 10")).VideoSetUp(Hex("68 01"), Hex("67 01 02 03"));
            }
            calls.Close().Create(Job(format, code, "AAC ")).Video(Units({0x65}, 9, 1), 0).Audio(Frame(5, 2), 0).Close();
            player.Play(calls.Session(), "a path with .iso: and a file behind it");
        }
    }
}

// Sessions made from seeds: half ordinary, half with values and orders that a host may get wrong.
void Seeds(Host& host, std::uint64_t first) {
    SessionPlayer player(host);
    for (std::uint64_t seed = first; seed < first + 250; ++seed) {
        player.Play(MakeRandomSession(seed), "random session " + std::to_string(seed));
    }
}

void Seeds1(Host& host) { Seeds(host, 1); }
void Seeds2(Host& host) { Seeds(host, 251); }
void Seeds3(Host& host) { Seeds(host, 501); }
void Seeds4(Host& host) { Seeds(host, 751); }

} // namespace

std::vector<Check> ModelChecks() {
    return {
        {"jobs.video-codes", "every video code in every format: CodecID, CodecPrivate, all octets", VideoCodes},
        {"jobs.audio-codes", "every audio code in every format: CodecID, CodecPrivate, all octets", AudioCodes},
        {"jobs.numbers", "sizes, rates, channels and bits of a job reach the file", Numbers},
        {"jobs.doc-type", "the video code names the DocType, even of a job without video", DocTypes},
        {"jobs.options", "a file has the options that held when it was created", Options},
        {"octets.large", "frames of up to 3 MB", LargeFrames},
        {"octets.sizes", "frames of all sizes at which a length field grows", FrameSizes},
        {"octets.packed", "tables of frame sizes, good and bad", PackedFrames},
        {"octets.h264-forms", "the first frame of a file alone decides its H.264 form", StartCodeForms},
        {"octets.keys", "key frames, references and cues", Keys},
        {"octets.set-up", "set-up data of all lengths, early, late and again", SetUpData},
        {"octets.mpeg-headers", "MPEG sequence headers are found in frames and in set-up data", MpegHeaders},
        {"times.minutes", "files of some minutes", Minutes},
        {"times.hours", "files of 50 minutes and of 25 hours: indexes of thousands of clusters", Hours},
        {"times.far", "late beginnings and gaps of minutes, days and years", FarTimes},
        {"times.negative", "times below zero, and before the first block's", NegativeTimes},
        {"times.lagging", "one kind of media behind the other", Lagging},
        {"times.edges", "times on the edges of clusters and milliseconds", Edges},
        {"times.equal", "thousands of frames with the same time", SameTime},
        {"times.date", "the date in several time zones, from 1970 to 2137", Dates},
        {"times.duration", "the Duration with sound and without", Durations},
        {"order.queues", "all frames of one kind before the other kind", Queues},
        {"order.iso", "a path with .iso: changes no result and does not affect the next file", PseudoFiles},
        {"random.1", "random sessions 1 to 250", Seeds1},
        {"random.251", "random sessions 251 to 500", Seeds2},
        {"random.501", "random sessions 501 to 750", Seeds3},
        {"random.751", "random sessions 751 to 1000", Seeds4},
    };
}
