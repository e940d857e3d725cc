// SPDX-License-Identifier: MIT
// A plug-in, a folder and a file in it that a test reads back.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "EbmlWalker.h"
#include "LibraryFile.h"
#include "SameOctets.h"
#include "TempDirectory.h"

// A key frame of VP8: its first octets.
inline const Octets kPicture = Hex("10 00 00 9D 01 2A");

class LibraryTest : public testing::Test {
protected:
    std::filesystem::path Path(const char* name = "film.mkv") const { return m_Directory / name; }
    FileHandle Open(const JobHandle& job, const char* name = "film.mkv") const {
        FileHandle file = OpenFile(m_Plugin, Path(name), job);
        EXPECT_NE(file, nullptr) << qf_error_text();
        return file;
    }
    // What was closed whole, without a complaint.
    Ebml::File Read(const char* name = "film.mkv") const {
        Ebml::File file(ReadFile(Path(name)));
        EXPECT_EQ(Ebml::Describe(Ebml::Check(file)), "");
        return file;
    }

    TempDirectory m_Directory;
    PluginHandle m_Plugin = OpenPlugin();
};

// The last error's text has these words.
inline testing::AssertionResult ErrorSays(const std::string& words) {
    const std::string text = qf_error_text();
    if (text.find(words) != std::string::npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "'" << text << "' does not say '" << words << "'";
}
