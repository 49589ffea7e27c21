#include "SourceModel.h"

#include <FakeSndfile.h>
#include <Plugin.h>
#include <TemporaryDirectory.h>

#include <sndfile.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>

namespace kel::test {
namespace {

enum class SourceCall {
    SetInitConfig, ///< first: file, 0 for none; second: settings
    Open,          ///< first: file
    Release,
    GetSample,
    GotoTimeOffset, ///< first: rate; second: frame
    GetTimeLimits,
    ActivateOutputs, ///< first: which
    GetAvailableOutputs,
    GetActivatedOutputs,
    GetDefinedOutput,
    IsMediaOpen,
    Unsupported, ///< first: which
    Idle,        ///< first: which
    Count
};

const char* NameOf(SourceCall call) {
    static const char* const names[] = {"SourceCall::SetInitConfig",
                                        "SourceCall::Open",
                                        "SourceCall::Release",
                                        "SourceCall::GetSample",
                                        "SourceCall::GotoTimeOffset",
                                        "SourceCall::GetTimeLimits",
                                        "SourceCall::ActivateOutputs",
                                        "SourceCall::GetAvailableOutputs",
                                        "SourceCall::GetActivatedOutputs",
                                        "SourceCall::GetDefinedOutput",
                                        "SourceCall::IsMediaOpen",
                                        "SourceCall::Unsupported",
                                        "SourceCall::Idle"};
    static_assert(std::size(names) == static_cast<std::size_t>(SourceCall::Count));
    return names[static_cast<std::size_t>(call)];
}

// The calls, those that make a file move more often than the others.
const std::vector<SourceCall> kCalls{SourceCall::SetInitConfig,
                                     SourceCall::SetInitConfig,
                                     SourceCall::Open,
                                     SourceCall::Open,
                                     SourceCall::Release,
                                     SourceCall::GetSample,
                                     SourceCall::GetSample,
                                     SourceCall::GetSample,
                                     SourceCall::GetSample,
                                     SourceCall::GotoTimeOffset,
                                     SourceCall::GotoTimeOffset,
                                     SourceCall::GetTimeLimits,
                                     SourceCall::ActivateOutputs,
                                     SourceCall::ActivateOutputs,
                                     SourceCall::GetAvailableOutputs,
                                     SourceCall::GetActivatedOutputs,
                                     SourceCall::GetDefinedOutput,
                                     SourceCall::IsMediaOpen,
                                     SourceCall::Unsupported,
                                     SourceCall::Idle};

constexpr const char* kKnownAllocator = "known to the model";

// It must exist, and must not be used.
class UnusedAllocator final : public IMemoryBlockAllocator {
public:
    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t /*bytes*/) override {
        ADD_FAILURE() << "a named allocator was asked for memory";
        return nullptr;
    }
};

// The files of all sequences: good ones of different shapes, an empty one, and bad ones.
class SourceFiles {
public:
    SourceFiles() {
        Add("stereo.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 48000, 100);
        Add("mono.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 1, 44100, 37);
        Add("three.rf64", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, 3, 96000, 64);
        Add("packed.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 8000, 50);
        Add("empty.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, 2, 48000, 0);
        WriteFile(m_directory / "text.wav", "This is no audio.");
        AddBroken("text.wav");
        AddBroken("missing.wav");
        std::filesystem::create_directory(m_directory / "directory.wav");
        AddBroken("directory.wav");
    }

    const std::vector<ModelFile>& All() const { return m_files; }

private:
    void Add(const std::string& name, int format, int channels, int rate, int frames) {
        SF_INFO info{};
        info.format = format;
        info.channels = channels;
        info.samplerate = rate;
        ModelFile file{m_directory / name,
                       name,
                       "",
                       static_cast<std::uint32_t>(channels),
                       static_cast<std::uint32_t>(rate),
                       0,
                       {}};
        for (int i = 0; i < frames * channels; ++i) {
            file.values.push_back(static_cast<float>((i * 7919 + channels) % 65536 - 32768) /
                                  32768.0F);
        }
        SNDFILE* handle = sf_open(file.path.c_str(), SFM_WRITE, &info);
        sf_writef_float(handle, file.values.data(), frames);
        sf_close(handle);

        info = {};
        handle = sf_open(file.path.c_str(), SFM_READ, &info);
        if (sf_readf_float(handle, file.values.data(), frames) != frames) {
            throw std::runtime_error(file.path);
        }
        file.format = info.format;
        sf_close(handle);
        m_files.push_back(std::move(file));
    }

    void AddBroken(const std::string& name) {
        ModelFile file;
        file.path = m_directory / name;
        file.name = name;
        SF_INFO info{};
        if (sf_open(file.path.c_str(), SFM_READ, &info) != nullptr) {
            throw std::runtime_error(file.path + " can be opened");
        }
        file.openError = sf_strerror(nullptr);
        m_files.push_back(std::move(file));
    }

    TemporaryDirectory m_directory;
    std::vector<ModelFile> m_files;
};

ModelSettings SettingsOf(unsigned file, unsigned variant, std::size_t files) {
    // The size of the large one wraps to that of one frame.
    constexpr std::uint32_t kFrames[] = {1024, 7, 1, 0, 0x40000001};
    const char* const allocators[] = {"", "", kKnownAllocator, "unknown"};
    ModelSettings settings;
    if (file % (files + 1) > 0) {
        settings.file = file % (files + 1) - 1;
    }
    settings.maxFrames = kFrames[variant % std::size(kFrames)];
    settings.allocator = allocators[variant % std::size(allocators)];
    return settings;
}

ModelRate RateOf(unsigned choice, std::uint32_t rate) {
    const std::vector<ModelRate> rates{{rate, 1},
                                       {rate * 2, 2},
                                       {rate * 20000, 20000},
                                       {rate * 20000 + 1, 20000}, // off by 0.00005
                                       {rate * 10000 + 1, 10000}, // off by 0.0001
                                       {rate + 1, 1},
                                       {rate, 0},
                                       {0, 1},
                                       {0, 0}};
    return rates[choice % rates.size()];
}

std::int64_t FrameOf(unsigned choice, std::int64_t frames) {
    const std::vector<std::int64_t> places{0,
                                           1,
                                           frames / 2,
                                           frames - 1,
                                           frames,
                                           frames + 1,
                                           -1,
                                           std::numeric_limits<std::int64_t>::max(),
                                           std::numeric_limits<std::int64_t>::min()};
    return places[choice % places.size()];
}

std::string ShowBlock(std::int64_t stamp, std::uint32_t rate, const std::vector<float>& values) {
    std::string bytes(values.size() * sizeof(float), '\0');
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return "frame " + std::to_string(stamp) + " at " + std::to_string(rate) + "/1, " +
           std::to_string(values.size()) + " values, hash " +
           std::to_string(std::hash<std::string>()(bytes));
}

std::string ShowOutputs(const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) {
    if (outputs.empty()) {
        return "none";
    }
    EXPECT_EQ(outputs.size(), 1U);
    return std::to_string(outputs.front()->GetNumberOfChannels()) + " channels";
}

std::string ShowInfo(const std::shared_ptr<const IAudioInfo>& info) {
    if (info == nullptr) {
        return "none";
    }
    const auto parameters =
        std::dynamic_pointer_cast<const IAudioParameters_PCM>(info->GetAudioParameters());
    EXPECT_EQ(parameters->GetPCMType(), AudioPCMType::Float);
    EXPECT_EQ(parameters->GetSampleSize(), 4);
    EXPECT_EQ(parameters->GetBitsDepth(), 32);
    EXPECT_EQ(parameters->GetMuxing(), PCMMuxing::Multi);
    EXPECT_EQ(parameters->GetEndianness(), PCMEndianness::Little);
    return ShowOutputs({info->GetChannelInfo()}) + " at " +
           std::to_string(parameters->GetSampleRate()) + " Hz, " +
           info->GetChannelInfo()->GetTrack()->GetTrackGroup()->GetName();
}

std::string ShowSample(const std::shared_ptr<const ISampleContainer>& container) {
    if (container == nullptr) {
        return "none";
    }
    const auto samples = container->GetAudioSamples(nullptr, nullptr);
    EXPECT_EQ(samples.size(), 1U);
    const IAudioSample& sample = *samples.front();
    std::vector<float> values(sample.GetBuffer()->GetSize() / sizeof(float));
    std::memcpy(values.data(), sample.GetBuffer()->GetData(), values.size() * sizeof(float));
    const TimeLimits& limits = sample.GetTimeLimits();
    const EditRate rate = limits.start.GetEditRate();
    EXPECT_EQ(rate.denominator, 1U);
    // The description may be that of an earlier file, when this one was opened half-way only.
    EXPECT_EQ(values.size() % static_cast<std::size_t>(limits.duration), 0U);
    EXPECT_EQ(limits.start.GetClockInfo(), nullptr);
    EXPECT_TRUE(sample.GetMetadatas().empty());
    return ShowBlock(limits.start.GetTimeNumber(), rate.numerator, values) + ", " +
           ShowInfo(sample.GetAudioInfo());
}

// An element and its model, driven alike.
class SourcePair {
public:
    explicit SourcePair(const std::vector<ModelFile>& files)
        : m_files(files),
          m_model(files, GetLabel(ElementFactoryType::MemoryBlockAllocator), kKnownAllocator) {}

    // The results of the model and of the element.
    std::pair<std::string, std::string> Do(const Operation<SourceCall>& operation) {
        const std::size_t file = operation.first % m_files.size();
        switch (operation.kind) {
        case SourceCall::SetInitConfig: {
            const ModelSettings settings =
                SettingsOf(operation.first, operation.second, m_files.size());
            return {m_model.SetInitConfig(settings), Observe([&] {
                        m_source->SetInitConfig(Collection(settings));
                        return "done";
                    })};
        }
        case SourceCall::Open:
            return {m_model.Open(file), Observe([&] {
                        m_source->Open(ConvertPlatformStringToWideString(m_files[file].path));
                        return "done";
                    })};
        case SourceCall::Release:
            return {m_model.Release(), Observe([&] {
                        m_source->Release();
                        return "done";
                    })};
        case SourceCall::GetSample:
            return {m_model.GetSample(ShowBlock),
                    Observe([&] { return ShowSample(m_source->GetSample()); })};
        case SourceCall::GotoTimeOffset:
            return Seek(operation);
        case SourceCall::GetTimeLimits:
            return {m_model.GetTimeLimits(), Observe([&] {
                        const TimeLimits limits = m_source->GetTimeLimits("any");
                        return std::to_string(limits.start.GetTimeNumber()) + "+" +
                               std::to_string(limits.duration) + " at " +
                               Show(limits.start.GetEditRate());
                    })};
        case SourceCall::ActivateOutputs: {
            const auto outputs = Outputs(operation.first);
            return {m_model.ActivateOutputs(outputs.size()), Observe([&] {
                        m_source->ActivateOutputs(outputs);
                        return "done";
                    })};
        }
        case SourceCall::GetAvailableOutputs:
            return {m_model.GetAvailableOutputs(),
                    Observe([&] { return ShowOutputs(m_source->GetAvailableOutputs()); })};
        case SourceCall::GetActivatedOutputs:
            return {m_model.GetActivatedOutputs(),
                    Observe([&] { return ShowOutputs(m_source->GetActivatedOutputs()); })};
        case SourceCall::GetDefinedOutput:
            return {m_model.GetDefinedOutput(), Observe([&] {
                        const auto output = m_source->GetDefinedOutput("any");
                        return output == nullptr ? "none"
                                                 : ShowInfo(output->GetAudioInfos().front());
                    })};
        case SourceCall::IsMediaOpen:
            return {m_model.IsMediaOpen(),
                    Observe([&] { return m_source->IsMediaOpen() ? "yes" : "no"; })};
        case SourceCall::Unsupported:
            return Unsupported(operation.first);
        case SourceCall::Idle:
            return {Expected().Returns("nothing"), Observe([&] { return Idle(operation.first); })};
        case SourceCall::Count:
            break;
        }
        return {"", "no call"};
    }

private:
    static std::string Show(const EditRate& rate) {
        return std::to_string(rate.numerator) + "/" + std::to_string(rate.denominator);
    }

    std::shared_ptr<IParametersCollectionInstance> Collection(const ModelSettings& settings) const {
        auto collection = MakeSourceSettings();
        if (settings.file.has_value()) {
            collection->SetStringValue("FilePath", m_files[*settings.file].path);
        }
        collection->SetIntegerValue("MaxSamplesPerBuffer",
                                    static_cast<std::int32_t>(settings.maxFrames));
        collection->SetStringValue("AllocatorRef", settings.allocator);
        return collection;
    }

    std::pair<std::string, std::string> Seek(const Operation<SourceCall>& operation) {
        const ModelRate rate = RateOf(operation.first, m_model.Rate());
        const std::int64_t frame = FrameOf(operation.second, m_model.Frames());
        const MediaTime time({rate.numerator, rate.denominator}, frame, nullptr);
        return {m_model.GotoTimeOffset(rate, frame), Observe([&] {
                    const MediaTime reached = m_source->GotoTimeOffset(time, "any");
                    return std::to_string(reached.GetTimeNumber()) + " at " +
                           Show(reached.GetEditRate());
                })};
    }

    // None, its own, those of another element, an empty handle.
    std::vector<std::shared_ptr<const IChannelInfo>> Outputs(unsigned choice) const {
        switch (choice % 4) {
        case 0:
            return {};
        case 1:
            return m_source->GetAvailableOutputs();
        case 2:
            return {MakeChannels(7), MakeChannels(1)};
        default:
            return {nullptr};
        }
    }

    std::pair<std::string, std::string> Unsupported(unsigned choice) {
        if (choice % 2 == 0) {
            return {Expected().Fails("[LibsndfileSource::UpdateConfig not supported]"),
                    Observe([&] {
                        m_source->UpdateConfig(nullptr);
                        return "done";
                    })};
        }
        return {Expected().Fails("[LibsndfileSource::SetDirection not supported]"), Observe([&] {
                    m_source->SetDirection(MediaSourceDirection::Forward);
                    return "done";
                })};
    }

    std::string Idle(unsigned choice) {
        switch (choice % 4) {
        case 0:
            m_source->Interrupt();
            break;
        case 1:
            m_source->ClearInternalBuffer();
            break;
        case 2:
            m_source->SetOutputMediator(nullptr, "any", "any");
            break;
        default:
            EXPECT_EQ(m_source->GetDirection(), MediaSourceDirection::Forward);
            EXPECT_FALSE(m_source->IsGrowing());
            EXPECT_TRUE(m_source->GetMetadatas().empty());
            break;
        }
        return "nothing";
    }

    const std::vector<ModelFile>& m_files;
    SourceModel m_model;
    std::shared_ptr<IAudioSource> m_source = MakeSource();
};

// Runs a sequence and returns the difference, or "".
std::string Compare(const std::vector<ModelFile>& files, const Operations<SourceCall>& operations) {
    std::size_t opened = 0;
    std::size_t closed = 0;
    SndfileAnswers().open = [&opened](const char* path, int mode, SF_INFO* info) {
        SNDFILE* file = RealSndfile().open(path, mode, info);
        opened += file != nullptr ? 1 : 0;
        return file;
    };
    SndfileAnswers().close = [&closed](SNDFILE* file) {
        ++closed;
        return RealSndfile().close(file);
    };
    std::string difference;
    {
        const LogCapture log; // of making the element
        SourcePair pair(files);
        for (std::size_t i = 0; i < operations.size() && difference.empty(); ++i) {
            const auto [expected, observed] = pair.Do(operations[i]);
            if (expected != observed) {
                difference = "call " + std::to_string(i + 1) + "\nexpected " + expected +
                             "\nobserved " + observed;
            }
        }
    }
    if (difference.empty() && opened != closed) {
        difference =
            std::to_string(opened) + " files were opened and " + std::to_string(closed) + " closed";
    }
    return difference;
}

class LibsndfileSourceModel : public testing::Test {
protected:
    LibsndfileSourceModel() {
        RegisterAllocator(kKnownAllocator, std::make_shared<UnusedAllocator>());
    }
    ~LibsndfileSourceModel() override { SndfileAnswers() = {}; }

    // For a sequence that a failure printed.
    void ExpectAgreement(const Operations<SourceCall>& operations) const {
        EXPECT_EQ(Compare(m_files.All(), operations), "");
    }

    SourceFiles m_files;
};

TEST_F(LibsndfileSourceModel, AgreesWithTheElementOnRandomSequences) {
    CheckSequences("source and model agree", kCalls,
                   [this](const Operations<SourceCall>& operations) {
                       return Compare(m_files.All(), operations);
                   });
}

TEST_F(LibsndfileSourceModel, AgreesOnAFileThatWasOpenedHalfWay) {
    ExpectAgreement({{SourceCall::Open, 0, 0},
                     {SourceCall::GetSample, 0, 0},
                     {SourceCall::GetDefinedOutput, 0, 0},
                     {SourceCall::SetInitConfig, 0, 0},
                     {SourceCall::GetSample, 0, 0},
                     {SourceCall::Release, 0, 0},
                     {SourceCall::Open, 1, 0},
                     {SourceCall::Release, 0, 0},
                     {SourceCall::SetInitConfig, 1, 3},
                     {SourceCall::GetSample, 0, 0}});
}

} // namespace
} // namespace kel::test
