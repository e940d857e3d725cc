// SPDX-License-Identifier: MIT
// Whole sessions, and more than one file.
#include <memory>

#include "Check.h"
#include "Trial.h"

namespace {

void Mkv(Host& host) { Trial(host, "MKV ").Run(); }
void Hmkv(Host& host) { Trial(host, "HMKV").Run(); }
void Mka(Host& host) { Trial(host, "MKA ").Run(); }
void Webm(Host& host) { Trial(host, "WEBM").Run(); }

void HostsOwnOctets(Host& host) {
    for (const char* format : kFormats) Trial(host, format, "file", 0xFF).Run();
}

void OneAfterAnother(Host& host) {
    for (const char* format : {"MKV ", "MKV ", "WEBM", "WEBM", "HMKV", "WEBM", "MKA ", "MKV "}) {
        Trial(host, format).Run();
    }
}

void AfterAFailure(Host& host) {
    for (const char* format : kFormats) {
        const Record job = MakeJob(format, "H264", "AAC ");
        host.CreateMediaFile(host.PathOf("none/file").c_str(), &job);
        Trial(host, format).Run();
    }
}

void SideBySide(Host& host) {
    for (const char* format : kFormats) {
        Trial first(host, format, "first");
        first.SetUp();
        Trial second(host, format, "second");
        second.SetUp();
        for (int i = 0; i < Trial::kFrames; ++i) {
            first.Feed(i, i + 1);
            if (i < 40) second.Feed(i, i + 1);
        }
        second.Finish(40);
        first.Finish();
    }
}

// More files, at once and one after the other, than a fixed table would hold.
void Many(Host& host) {
    for (const char* format : kFormats) {
        std::vector<std::unique_ptr<Trial>> trials;
        trials.reserve(70);
        for (int i = 0; i < 70; ++i)
            trials.push_back(std::make_unique<Trial>(host, format, "file" + std::to_string(i)));
        for (const auto& trial : trials) trial->SetUp();
        for (int i = 0; i < 8; ++i) {
            for (const auto& trial : trials) trial->Feed(i, i + 1);
        }
        for (const auto& trial : trials) trial->Finish(8);
    }
    for (int i = 0; i < 200; ++i) {
        Trial trial(host, kFormats[i % 4]);
        trial.SetUp();
        trial.Feed(0, 3);
        trial.Finish(3);
    }
}

} // namespace

std::vector<Check> SessionChecks() {
    return {
        {"session.mkv", "MKV of H.264 and AAC: every element and every frame", Mkv},
        {"session.hmkv", "HMKV of havc and AC-3: every element and every frame", Hmkv},
        {"session.mka", "MKA of MP3: every element and every frame", Mka},
        {"session.webm", "WEBM of VP8 and Vorbis: every element and every frame", Webm},
        {"session.host-octets", "the host's own octets of records change nothing", HostsOwnOctets},
        {"files.one-by-one", "one file after another, of every kind", OneAfterAnother},
        {"files.after-failure", "a file after one that could not be created", AfterAFailure},
        {"files.many", "70 files of one kind open at once, and hundreds one by one", Many},
        {"files.side-by-side", "two files of one kind open at once", SideBySide},
    };
}
