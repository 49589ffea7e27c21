// The same thing ten thousand times, or as often as KEL_ENDURANCE_CYCLES says: what is opened is
// closed, what is taken is given back.

#include "AudioFiles.h"

#include <CapturingWriter.h>
#include <OpenDescriptors.h>
#include <Plugin.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <string>

namespace kel::test {
namespace {

int Cycles() {
    const char* count = std::getenv("KEL_ENDURANCE_CYCLES");
    return count != nullptr ? std::stoi(count) : 10000;
}

// Resident memory in kB.
std::size_t ResidentMemory() {
    std::ifstream status("/proc/self/status");
    const std::string key = "VmRSS:";
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, key.size(), key) == 0) {
            return std::stoul(line.substr(key.size()));
        }
    }
    return 0;
}

class ThrowAway final : public ILoggerWriter {
public:
    void Write(LogLevel, const char*, const char*, const char*, const char*, const char*,
               const char*, const char*) override {}
};

// Expects that a cycle leaves nothing behind: after a tenth of them, by which everything has its
// size, neither descriptors nor memory grow any more.
class Endurance : public testing::Test {
protected:
    Endurance() { SetCurrentLoggerWriter(std::make_shared<ThrowAway>()); }
    ~Endurance() override { SetCurrentLoggerWriter(nullptr); }

    template <typename Cycle>
    void ExpectFlat(Cycle cycle) const {
        // A leak of 100 bytes a cycle would be a megabyte.
        constexpr std::size_t kMostGrowth = 512;
        Repeat(Cycles() / 10, cycle);
        const std::size_t descriptors = OpenDescriptors();
        const std::size_t memory = ResidentMemory();
        Repeat(Cycles(), cycle);
        EXPECT_EQ(OpenDescriptors(), descriptors);
        EXPECT_LE(ResidentMemory(), memory + kMostGrowth);
    }

    const TemporaryDirectory m_directory{DirectoryPlace::Memory};

private:
    template <typename Cycle>
    static void Repeat(int times, Cycle cycle) {
        for (int i = 0; i < times; ++i) {
            cycle();
        }
    }
};

TEST_F(Endurance, OfOpeningReadingAndReleasingFiles) {
    const std::string path = m_directory / "in.wav";
    WriteAudioFile(path, MakeSfInfo(SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 48000),
                   std::vector<float>(2 * 500, 0.25F));
    auto source = MakeSource();
    source->SetInitConfig(MakeSourceSettings());
    const std::wstring widePath = ConvertPlatformStringToWideString(path);
    ExpectFlat([&] {
        source->Open(widePath);
        while (source->GetSample() != nullptr) {
        }
        source->Release();
    });
}

TEST_F(Endurance, OfFilesThatCanNotBeOpened) {
    const std::string path = m_directory / "in.wav";
    WriteFile(path, "This is no audio.");
    auto source = MakeSource();
    source->SetInitConfig(MakeSourceSettings());
    const std::wstring widePath = ConvertPlatformStringToWideString(path);
    ExpectFlat([&] { EXPECT_THROW(source->Open(widePath), KELRuntimeError); });
}

TEST_F(Endurance, OfDefiningPushingAndClosing) {
    auto sink = MakeSink();
    sink->SetInitConfig(MakeSinkSettings());
    const std::wstring path = ConvertPlatformStringToWideString(m_directory / "out.wav");
    const auto input = MakeInput({});
    const auto sample = MakeContainer(std::string(4000, 'x'));
    ExpectFlat([&] {
        sink->Open(path);
        sink->DefineInput(input, "");
        sink->PushSample(sample);
        sink->Close(false);
    });
}

TEST_F(Endurance, OfElementsThatAreMadeAndDropped) {
    ExpectFlat([] {
        EXPECT_NE(MakeSource(), nullptr);
        EXPECT_NE(MakeSink(), nullptr);
    });
}

TEST_F(Endurance, OfThePlugInBeingLoadedUsedAndUnloaded) {
    ExpectFlat([] {
        void* const library = dlopen(PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        reinterpret_cast<void (*)(const char*)>(dlsym(library, "RegisterAll"))("endurance");
        auto source = ImplementElement<ElementFactoryType::AudioSource>("kel.LibsndfileSource",
                                                                        "WAVE", nullptr);
        EXPECT_FALSE(source->IsMediaOpen());
        source.reset();
        EXPECT_EQ(UnregisterFactories("endurance"), 8U);
        dlclose(library);
    });
}

} // namespace
} // namespace kel::test
