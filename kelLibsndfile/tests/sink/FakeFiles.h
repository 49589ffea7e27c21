/// libsndfile without files: what the sink asks of it is noted and answered from here.
#pragma once

#include "FakeFramework.h"
#include "SinkTestSupport.h"

#include <FakeSndfile.h>

#include <array>
#include <cstddef>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <string>
#include <tuple>
#include <vector>

namespace kel::test {

/// The six fields of an SF_INFO: frames, samplerate, channels, format, sections, seekable.
using SfInfoFields = std::tuple<sf_count_t, int, int, int, int, int>;

inline SfInfoFields FieldsOf(const SF_INFO& info) {
    return {info.frames, info.samplerate, info.channels, info.format, info.sections, info.seekable};
}

/// Answers sf_open, sf_write_raw and sf_close for as long as the test goes on.
class FakeFiles {
public:
    struct Opening {
        std::string path;
        int mode;
        SfInfoFields info;
    };

    struct Writing {
        SNDFILE* file;
        const void* data;
        sf_count_t bytes;

        bool operator==(const Writing& other) const {
            return file == other.file && data == other.data && bytes == other.bytes;
        }
    };

    FakeFiles() {
        StandIn().open = [this](const char* path, int mode, SF_INFO* info) {
            openings.push_back({path, mode, FieldsOf(*info)});
            return File(openings.size() - 1);
        };
        StandIn().write_raw = [this](SNDFILE* file, const void* data, sf_count_t bytes) {
            writings.push_back({file, data, bytes});
            return bytes;
        };
        StandIn().close = [this](SNDFILE* file) {
            closings.push_back(file);
            return 0;
        };
    }
    FakeFiles(const FakeFiles&) = delete;
    FakeFiles& operator=(const FakeFiles&) = delete;

    /// The handle of the file that was opened so many files after the first.
    SNDFILE* File(std::size_t index) { return reinterpret_cast<SNDFILE*>(&m_files.at(index)); }

    std::vector<Opening> openings;
    std::vector<Writing> writings;
    std::vector<SNDFILE*> closings;

private:
    std::array<char, 16> m_files{};
};

/// A test that may answer for libsndfile and for the framework. What it answered goes with it.
class StandInTest : public ::testing::Test {
protected:
    StandInTest() { Forget(); }
    ~StandInTest() override { Forget(); }

private:
    static void Forget() {
        StandIn() = {};
        SndfileCalls().clear();
        FrameworkAnswers() = {};
    }
};

/// A test without files.
class FakeFilesTest : public StandInTest {
protected:
    FakeFiles files;
};

/// A list of calls, n times the same.
inline std::vector<std::string> Times(std::size_t n, const std::string& call) {
    return std::vector<std::string>(n, call);
}

} // namespace kel::test
