/// libsndfile without files, and objects of the framework that note each call: what the source asks
/// of either is noted in one list and answered from here.
#pragma once

#include "FakeFramework.h"
#include "SourceTestSupport.h"

#include <FakeSndfile.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <sndfile.h>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace kel::test {

using Calls = std::vector<std::string>;

template <typename Value>
std::string Number(Value value) {
    return std::to_string(static_cast<std::int64_t>(value));
}

/// Notes what is read, and answers from the real settings behind it.
class SettingsDouble final : public IParametersCollectionInstance {
public:
    explicit SettingsDouble(std::shared_ptr<IParametersCollectionInstance> real)
        : m_real(std::move(real)) {}

    void SetIntegerValue(std::string_view name, std::int32_t value) override {
        m_real->SetIntegerValue(name, value);
    }
    void SetStringValue(std::string_view name, std::string_view value) override {
        m_real->SetStringValue(name, value);
    }
    void SetWideStringValue(std::string_view name, const std::wstring& value) override {
        m_real->SetWideStringValue(name, value);
    }
    void SetCollectionValue(std::string_view name,
                            std::shared_ptr<const IParametersCollectionPrototype> value) override {
        m_real->SetCollectionValue(name, std::move(value));
    }
    std::int32_t GetIntegerValue(std::string_view name) const override {
        Note("GetIntegerValue " + std::string(name));
        return m_real->GetIntegerValue(name);
    }
    std::string GetStringValue(std::string_view name) const override {
        Note("GetStringValue " + std::string(name));
        return m_real->GetStringValue(name);
    }
    std::wstring GetWideStringValue(std::string_view name) const override {
        Note("GetWideStringValue " + std::string(name));
        return m_real->GetWideStringValue(name);
    }
    std::shared_ptr<const IParametersCollectionPrototype>
    GetCollectionValue(std::string_view name) const override {
        Note("GetCollectionValue " + std::string(name));
        return m_real->GetCollectionValue(name);
    }

private:
    std::shared_ptr<IParametersCollectionInstance> m_real;
};

/// Notes what is set, and keeps it in the real parameters behind it.
class ParametersDouble final : public IAudioParameters_PCM {
public:
    explicit ParametersDouble(std::shared_ptr<IAudioParameters_PCM> real)
        : m_real(std::move(real)) {}

    void SetSampleRate(std::uint32_t value) override {
        Note("SetSampleRate " + Number(value));
        m_real->SetSampleRate(value);
    }
    void SetEndianness(PCMEndianness value) override {
        Note("SetEndianness " + Number(value));
        m_real->SetEndianness(value);
    }
    void SetMuxing(PCMMuxing value) override {
        Note("SetMuxing " + Number(value));
        m_real->SetMuxing(value);
    }
    void SetPCMType(AudioPCMType value) override {
        Note("SetPCMType " + Number(value));
        m_real->SetPCMType(value);
    }
    void SetSampleSize(std::uint8_t value) override {
        Note("SetSampleSize " + Number(value));
        m_real->SetSampleSize(value);
    }
    void SetBitsDepth(std::uint8_t value) override {
        Note("SetBitsDepth " + Number(value));
        m_real->SetBitsDepth(value);
    }

    ACodecFamily GetCodecFamily() const override { return m_real->GetCodecFamily(); }
    std::uint32_t GetSampleRate() const override { return m_real->GetSampleRate(); }
    PCMEndianness GetEndianness() const override { return m_real->GetEndianness(); }
    PCMMuxing GetMuxing() const override { return m_real->GetMuxing(); }
    AudioPCMType GetPCMType() const override { return m_real->GetPCMType(); }
    std::uint8_t GetSampleSize() const override { return m_real->GetSampleSize(); }
    std::uint8_t GetBitsDepth() const override { return m_real->GetBitsDepth(); }

private:
    std::shared_ptr<IAudioParameters_PCM> m_real;
};

/// A buffer that only says that it reserves, so that any size will do. It has room for a few
/// values, and none before something was reserved.
class BufferDouble final : public IBuffer {
public:
    std::uint8_t* GetData() override {
        Note("GetData");
        return m_reserved ? m_data.data() : nullptr;
    }
    const std::uint8_t* GetData() const override { return m_data.data(); }
    std::uint32_t GetSize() const override { return m_size; }
    void SetSize(std::uint32_t bytes) override {
        Note("SetSize " + Number(bytes));
        m_size = bytes;
    }
    void Reserve(std::uint32_t bytes) override {
        Note("Reserve " + Number(bytes));
        m_reserved = true;
    }

private:
    std::array<std::uint8_t, 64> m_data{};
    bool m_reserved = false;
    std::uint32_t m_size = 0;
};

/// An allocator that has nothing to give.
class EmptyAllocator final : public IMemoryBlockAllocator {
public:
    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t bytes) override {
        Note("Allocate " + Number(bytes));
        throw Failure{"no memory"};
    }
};

/// The six fields of an SF_INFO: frames, samplerate, channels, format, sections, seekable.
using SfInfoFields = std::tuple<sf_count_t, int, int, int, int, int>;

inline SfInfoFields FieldsOf(const SF_INFO& info) {
    return {info.frames, info.samplerate, info.channels, info.format, info.sections, info.seekable};
}

/// A test whose files libsndfile's stand-in makes up: they have the properties in `info` and as
/// many frames as are asked for. What the test answers otherwise goes with it.
class FakeFileTest : public ::testing::Test {
protected:
    struct Opening {
        std::string path;
        int mode;
        SfInfoFields info; // as it was handed over
    };

    struct Read {
        SNDFILE* file;
        float* data;
        sf_count_t frames;
    };

    FakeFileTest() {
        LoadPlugin();
        ResetStandIns();
        StandIn().open = [this](const char* path, int mode, SF_INFO* filled) {
            openings.push_back({path, mode, FieldsOf(*filled)});
            *filled = info;
            return File(openings.size() - 1);
        };
        StandIn().close = [this](SNDFILE* file) {
            closings.push_back(file);
            return 0;
        };
        StandIn().readf_float = [this](SNDFILE* file, float* data, sf_count_t frames) {
            reads.push_back({file, data, frames});
            return frames;
        };
        StandIn().error = [](SNDFILE* /*file*/) {
            return 0;
        };
        FrameworkAnswers().createAudioParameters = [](ACodecFamily family) {
            return std::make_shared<ParametersDouble>(
                std::dynamic_pointer_cast<IAudioParameters_PCM>(
                    RealFramework().createAudioParameters(family)));
        };
    }
    ~FakeFileTest() override { ResetStandIns(); }

    /// The handle of the file that was opened so many files after the first.
    SNDFILE* File(std::size_t index = 0) { return reinterpret_cast<SNDFILE*>(&m_files.at(index)); }

    /// Lets each buffer be a double.
    void UseBufferDoubles() {
        FrameworkAnswers().createBuffer = [this](const auto&, const auto&) {
            auto buffer = std::make_shared<BufferDouble>();
            buffers.push_back(buffer);
            return buffer;
        };
    }

    /// A source that has settings, and no file yet.
    std::shared_ptr<IAudioSource> MakeFakeSource() {
        auto source = MakeSource();
        source->SetInitConfig(settings);
        SndfileCalls().clear();
        return source;
    }

    /// A source with a file.
    std::shared_ptr<IAudioSource> OpenFakeSource() {
        auto source = MakeFakeSource();
        source->Open(kPath);
        SndfileCalls().clear();
        return source;
    }

    /// Runs an operation, and expects exactly these calls of it.
    template <typename Operation>
    static void ExpectCalls(const Calls& expected, Operation operation) {
        SndfileCalls().clear();
        operation();
        EXPECT_EQ(SndfileCalls(), expected);
    }

    /// Runs an operation that must pass the failure of a call on as it is.
    template <typename Operation>
    static void ExpectFailureOf(const std::string& call, Operation operation) {
        try {
            operation();
            ADD_FAILURE() << "did not fail at " << call;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.call, call);
        }
    }

    const std::wstring kPath = L"/directory/file.wav";
    const std::string kName = "/directory/file.wav";

    SF_INFO info{1000, 44100, 2, kWaveFormat, 1, 1};
    std::vector<Opening> openings;
    std::vector<SNDFILE*> closings;
    std::vector<Read> reads;
    std::vector<std::shared_ptr<BufferDouble>> buffers;
    const std::shared_ptr<SettingsDouble> settings =
        std::make_shared<SettingsDouble>(MakeReadSettings(1024));

private:
    std::array<char, 8> m_files{};
};

} // namespace kel::test
