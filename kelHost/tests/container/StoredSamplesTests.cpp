#include "container/StoredSamples.h"

#include "AudioFiles.h"
#include "base/Errors.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <sndfile.h>
#include <string>
#include <vector>

namespace kel::host {

namespace {

std::string ReadAll(StoredSamples& samples) {
    std::string all;
    for (const auto* bytes = &samples.Read(); !bytes->empty(); bytes = &samples.Read()) {
        all.append(bytes->begin(), bytes->end());
    }
    return all;
}

// The bytes of a file with these samples.
std::string StoredSampleBytes(int format, const std::string& samples) {
    const test::TemporaryDirectory directory;
    test::WriteRawAudio(directory / "take", format, 1, 8000, samples);
    StoredSamples stored(directory / "take");
    return ReadAll(stored);
}

// The bytes of a file that is written from integers with these bytes, the lowest first.
std::string PackedBytes(int format, const std::vector<int>& values) {
    const test::TemporaryDirectory directory;
    {
        SF_INFO info{0, 8000, 1, format, 0, 0};
        const test::SoundFile file(directory / "take", SFM_WRITE, info);
        sf_write_int(file.Handle(), values.data(), static_cast<sf_count_t>(values.size()));
    }
    StoredSamples stored(directory / "take");
    return ReadAll(stored).substr(0, 4 * values.size());
}

// Bytes whose order matters, and of values of both signs.
const std::string kBytes("\x01\x82\x03\x84\x05\x86\x07\x88\x09\x8A\x0B\x8C\x0D\x8E\x0F\x90\x11\x92"
                         "\x13\x94\x15\x96\x17\x98",
                         24);

// Reverses each group of bytes.
std::string Swapped(std::string bytes, std::size_t width) {
    for (std::size_t i = 0; i < bytes.size(); i += width) {
        bytes.replace(i, width,
                      {bytes.rend() - static_cast<std::ptrdiff_t>(i + width),
                       bytes.rend() - static_cast<std::ptrdiff_t>(i)});
    }
    return bytes;
}

} // namespace

TEST(StoredSamples, AreTheBytesOfLittleEndianFiles) {
    for (const int encoding : {SF_FORMAT_PCM_U8, SF_FORMAT_PCM_16, SF_FORMAT_PCM_24,
                               SF_FORMAT_PCM_32, SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE}) {
        EXPECT_EQ(StoredSampleBytes(SF_FORMAT_WAV | encoding, kBytes), kBytes) << encoding;
    }
    EXPECT_EQ(StoredSampleBytes(SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, kBytes), kBytes);
}

TEST(StoredSamples, AreLittleEndianWhateverTheFileHas) {
    struct Row {
        int format;
        std::size_t width;
    };
    for (const Row& row :
         {Row{SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 2}, Row{SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 3},
          Row{SF_FORMAT_AIFF | SF_FORMAT_PCM_32, 4}, Row{SF_FORMAT_AU | SF_FORMAT_FLOAT, 4},
          Row{SF_FORMAT_AU | SF_FORMAT_DOUBLE, 8}}) {
        EXPECT_EQ(StoredSampleBytes(row.format, kBytes), Swapped(kBytes, row.width)) << row.width;
    }
}

TEST(StoredSamples, OfPackedFilesAreSignExtendedToWholeBytes) {
    const std::vector<int> values{0x12345678, -0x12345678, 0x7FFFFFFF, -0x7FFFFFFF - 1};
    EXPECT_EQ(PackedBytes(SF_FORMAT_FLAC | SF_FORMAT_PCM_S8, values), "\x12\xED\x7F\x80");
    EXPECT_EQ(PackedBytes(SF_FORMAT_FLAC | SF_FORMAT_PCM_24, values),
              "\x56\x34\x12\xA9\xCB\xED\xFF\xFF\x7F" + std::string("\0\0\x80", 3));
    EXPECT_EQ(PackedBytes(SF_FORMAT_CAF | SF_FORMAT_ALAC_20, values).substr(0, 12),
              "\x45\x23\x01\xBA\xDC\xFE\xFF\xFF\x07" + std::string("\0\0\xF8", 3));
}

TEST(StoredSamples, OfLossyFilesAreFloats) {
    // Zero in both of its representations, and the largest value.
    EXPECT_EQ(StoredSampleBytes(SF_FORMAT_AU | SF_FORMAT_ULAW, "\xFF\x7F\x80"),
              std::string(8, '\0') + test::BytesOf(std::vector<float>{32124.0F / 32768.0F}));
}

TEST(StoredSamples, AreReadToTheEndOfLongFiles) {
    const std::string bytes = test::BytesOf(test::MakeValues(2 * 100001));
    const test::TemporaryDirectory directory;
    test::WriteRawAudio(directory / "take", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 8000, bytes);
    StoredSamples samples(directory / "take");
    EXPECT_EQ(samples.Channels(), 2U);
    EXPECT_EQ(samples.Rate(), 8000U);
    EXPECT_EQ(samples.Frames(), 100001);
    EXPECT_EQ(ReadAll(samples), bytes);
    EXPECT_EQ(samples.FramesRead(), 100001);
}

TEST(StoredSamples, AreMissingInFilesWithoutAudio) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / "notes.txt";
    test::WriteFile(path, "no audio");
    try {
        const StoredSamples samples(path);
        FAIL();
    } catch (const JobError& error) {
        EXPECT_EQ(error.File(), path);
        EXPECT_STREQ(error.what(),
                     "cannot read its samples as stored: libsndfile does not know its format");
    }
}

} // namespace kel::host
