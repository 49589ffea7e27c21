/// libsndfile without files: the calls of an element are recorded and answered by the test.
#pragma once

#include "RecordingParameters.h"
#include "Records.h"

#include <FakeSndfile.h>
#include <Plugin.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <sndfile.h>
#include <string>
#include <tuple>
#include <vector>

namespace kel::test {

using Calls = std::vector<std::string>;

/// The six fields of an SF_INFO: frames, samplerate, channels, format, sections, seekable.
using SfInfoFields = std::tuple<sf_count_t, int, int, int, int, int>;

inline SfInfoFields FieldsOf(const SF_INFO& info) {
    return {info.frames, info.samplerate, info.channels, info.format, info.sections, info.seekable};
}

/// A test that may answer for libsndfile; the real library answers the other calls.
class SndfileTest : public testing::Test {
protected:
    SndfileTest() {
        LoadPlugin();
        Reset();
    }
    ~SndfileTest() override { Reset(); }

    /// Runs an operation, and expects exactly these calls of libsndfile.
    template <typename Operation>
    static void ExpectCalls(const Calls& expected, Operation operation) {
        SndfileCalls().clear();
        operation();
        EXPECT_EQ(SndfileCalls(), expected);
    }

private:
    static void Reset() {
        SndfileAnswers() = {};
        SndfileCalls().clear();
        ParameterCalls().clear();
        FailingParameterCall().clear();
    }
};

/// A test without files. Each file that a source opens is described by `fileInfo`, and has as many
/// frames as a source reads.
class FakeFilesTest : public SndfileTest {
protected:
    struct Opening {
        std::string path;
        int mode;
        SfInfoFields info; ///< as the element passed it
    };

    struct Read {
        SNDFILE* file;
        sf_count_t frames;
    };

    struct Writing {
        SNDFILE* file;
        const void* data;
        sf_count_t bytes;

        bool operator==(const Writing& other) const {
            return file == other.file && data == other.data && bytes == other.bytes;
        }
    };

    FakeFilesTest() {
        SndfileAnswers().open = [this](const char* path, int mode, SF_INFO* passed) {
            openings.push_back({path, mode, FieldsOf(*passed)});
            if (mode == SFM_READ) {
                *passed = fileInfo;
            }
            return File(openings.size() - 1);
        };
        SndfileAnswers().readf_float = [this](SNDFILE* file, float* /*values*/, sf_count_t frames) {
            reads.push_back({file, frames});
            return frames;
        };
        SndfileAnswers().write_raw = [this](SNDFILE* file, const void* data, sf_count_t bytes) {
            writings.push_back({file, data, bytes});
            return bytes;
        };
        SndfileAnswers().error = [](SNDFILE* /*file*/) {
            return 0;
        };
        SndfileAnswers().close = [this](SNDFILE* file) {
            closings.push_back(file);
            return 0;
        };
    }

    /// The handle of a file, by the number of files opened before it.
    SNDFILE* File(std::size_t index = 0) { return reinterpret_cast<SNDFILE*>(&m_files.at(index)); }

    /// Lets each open fail.
    /// @param reason libsndfile's global error text; null for none
    static void RefuseToOpen(const char* reason) {
        SndfileAnswers().open = [](const char*, int, SF_INFO*) -> SNDFILE* {
            return nullptr;
        };
        SndfileAnswers().strerror = [reason](SNDFILE* file) {
            EXPECT_EQ(file, nullptr) << "only the global text explains a failed open";
            return reason;
        };
    }

    SF_INFO fileInfo{1000, 44100, 2, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 1};
    std::vector<Opening> openings;
    std::vector<Read> reads;
    std::vector<Writing> writings;
    std::vector<SNDFILE*> closings;

private:
    std::array<char, 64> m_files{};
};

} // namespace kel::test
