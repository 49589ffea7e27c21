// Everything loaded with RTLD_LOCAL: the framework in a host that is a plug-in itself, and our
// plug-in in that. Exceptions and casts rely on one type information for all of them.

#include "LocalHost.h"

#include <TemporaryDirectory.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <dlfcn.h>
#include <fstream>
#include <string>
#include <vector>

namespace kel::test {
namespace {

constexpr unsigned kFrames = 5000;

// A mono file of 16-bit samples; this program knows neither libsndfile nor the framework.
void WriteWave(const std::string& path) {
    const auto word = [](std::uint32_t value) {
        return std::string{static_cast<char>(value), static_cast<char>(value >> 8U),
                           static_cast<char>(value >> 16U), static_cast<char>(value >> 24U)};
    };
    const std::string samples(kFrames * std::size_t{2}, 'x');
    std::ofstream(path, std::ios::binary)
        << "RIFF" << word(static_cast<std::uint32_t>(36 + samples.size())) << "WAVEfmt " << word(16)
        << std::string("\1\0\1\0", 4) << word(48000) << word(96000) << std::string("\2\0\20\0", 4)
        << "data" << word(static_cast<std::uint32_t>(samples.size())) << samples;
}

TEST(LocalHost, FindsTheFrameworkInNoOtherLibrary) {
    EXPECT_EQ(dlopen("libkelCore.so.0", RTLD_NOW | RTLD_NOLOAD), nullptr)
        << "this program must not know the framework";
}

TEST(LocalHost, CatchesAndCastsAcrossTheBordersOfLibraries) {
    void* const library = dlopen(KEL_TEST_LOCAL_HOST, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto* const run = reinterpret_cast<LocalHostFunction*>(dlsym(library, "RunLocalHost"));
    ASSERT_NE(run, nullptr) << dlerror();
    const TemporaryDirectory directory;
    WriteWave(directory / "in.wav");

    const LocalHostReport report =
        run((directory / "in.wav").c_str(), (directory / "out.wav").c_str());

    EXPECT_STREQ(report.failure, "");
    EXPECT_TRUE(report.errorCaughtByItsType);
    EXPECT_TRUE(report.errorCaughtAsStandardError);
    EXPECT_TRUE(report.castToTheDataSide);
    EXPECT_TRUE(report.foreignInfoRefused);
    EXPECT_TRUE(report.sampleIsAudio);
    EXPECT_EQ(report.frames, kFrames);
}

} // namespace
} // namespace kel::test
