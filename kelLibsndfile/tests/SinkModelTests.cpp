#include "ForeignSamples.h"
#include "SinkModel.h"

#include <AudioFiles.h>
#include <Plugin.h>
#include <TemporaryDirectory.h>

#include <algorithm>
#include <filesystem>
#include <memory>

namespace kel::test {
namespace {

enum class SinkCall {
    BeginAnew,     ///< first: type
    SetInitConfig, ///< first: path
    Open,          ///< first: path
    Check,         ///< first: input
    Define,        ///< first: input
    Push,          ///< first: size; second: samples in the container
    Close,
    Release,
    GetDefinedInput,
    Unsupported, ///< first: which
    Idle,        ///< first: which
    Count
};

const char* NameOf(SinkCall call) {
    static const char* const names[] = {
        "SinkCall::BeginAnew",   "SinkCall::SetInitConfig", "SinkCall::Open",
        "SinkCall::Check",       "SinkCall::Define",        "SinkCall::Push",
        "SinkCall::Close",       "SinkCall::Release",       "SinkCall::GetDefinedInput",
        "SinkCall::Unsupported", "SinkCall::Idle"};
    static_assert(std::size(names) == static_cast<std::size_t>(SinkCall::Count));
    return names[static_cast<std::size_t>(call)];
}

// The calls, those that make and fill files more often than the others.
const std::vector<SinkCall> kCalls{SinkCall::BeginAnew,
                                   SinkCall::SetInitConfig,
                                   SinkCall::SetInitConfig,
                                   SinkCall::Open,
                                   SinkCall::Check,
                                   SinkCall::Check,
                                   SinkCall::Define,
                                   SinkCall::Define,
                                   SinkCall::Define,
                                   SinkCall::Define,
                                   SinkCall::Push,
                                   SinkCall::Push,
                                   SinkCall::Push,
                                   SinkCall::Push,
                                   SinkCall::Close,
                                   SinkCall::Release,
                                   SinkCall::GetDefinedInput,
                                   SinkCall::Unsupported,
                                   SinkCall::Idle};

const std::vector<std::string> kTypes{"WAVE", "AIFF", "BWAVE", "RAW", "Unknown", "", "wave"};

// The files that sinks write; the empty name is an empty path. All are different files, because the
// model does not know the order in which libsndfile would write to one of them twice.
const std::vector<std::string> kNames{
    "take.wav",     "take.aiff", "TAKE.RF64", "take", "", "take.raw", "no/directory/take.wav",
    "dotted.d/take"};

// Only the model knows the error of each input, if it has one.
std::vector<ModelInput> MakeModelInputs() {
    std::vector<ModelInput> inputs(18);
    inputs[1].bytes = 3;
    inputs[1].bits = 24;
    inputs[1].endianness = 2;
    inputs[1].channels = 1;
    inputs[2].type = 2;
    inputs[2].bytes = 4;
    inputs[2].bits = 32;
    inputs[2].channels = 6;
    inputs[3].type = 2;
    inputs[3].bytes = 8;
    inputs[3].bits = 64;
    inputs[3].muxing = 3;
    inputs[4].bytes = 4;
    inputs[4].bits = 32;
    inputs[4].endianness = 2;
    inputs[5].bytes = 4;
    inputs[5].bits = 24;
    inputs[6].type = 2;
    inputs[6].bytes = 2;
    inputs[7].type = 0;
    inputs[8].endianness = 0;
    inputs[9].channels = 0;
    inputs[10].channels = 1;
    inputs[10].muxing = 3;
    inputs[11].muxing = 1;
    inputs[12].channels = 3;
    inputs[12].muxing = 3;
    inputs[13].infos = 2;
    inputs[14].isAudio = false;
    inputs[15].isPCM = false;
    inputs[16].infos = 0;
    inputs[17].bytes = 8;
    inputs[17].bits = 64;
    return inputs;
}

// An info that is no audio.
class OtherInfo final : public IInfo {};

// The inputs as a sink gets them.
class SinkInputs {
public:
    SinkInputs() : m_models(MakeModelInputs()) {
        for (ModelInput& model : m_models) {
            std::vector<std::shared_ptr<const IInfo>> infos;
            for (unsigned i = 0; i < model.infos; ++i) {
                infos.push_back(MakeInfoOf(model));
            }
            if (const auto audio = infos.empty()
                                       ? nullptr
                                       : std::dynamic_pointer_cast<const IAudioInfo>(infos[0])) {
                model.id = audio->GetId();
            }
            m_containers.push_back(CreateInfoContainer(infos, nullptr));
        }
    }

    std::size_t Count() const { return m_models.size(); }
    const ModelInput& Model(std::size_t place) const { return m_models[place]; }
    const std::shared_ptr<const IInfoContainer>& Container(std::size_t place) const {
        return m_containers[place];
    }

private:
    static std::shared_ptr<const IInfo> MakeInfoOf(const ModelInput& model) {
        if (!model.isAudio) {
            return std::make_shared<const OtherInfo>();
        }
        if (!model.isPCM) {
            return CreateAudioInfo(nullptr, MakeChannels(model.channels), {}, {});
        }
        return MakeInfo(
            {static_cast<AudioPCMType>(model.type), static_cast<std::uint8_t>(model.bytes),
             static_cast<std::uint8_t>(model.bits), static_cast<PCMEndianness>(model.endianness),
             static_cast<PCMMuxing>(model.muxing), model.rate, model.channels});
    }

    std::vector<ModelInput> m_models;
    std::vector<std::shared_ptr<const IInfoContainer>> m_containers;
};

std::string ShowReport(const ICheckInputReport& report) {
    switch (static_cast<CheckInputErrorType>(report.GetErrorType())) {
    case CheckInputErrorType::None:
        return "no error";
    case CheckInputErrorType::Track: {
        std::string text = "track error, expects";
        for (const ContentType type : report.GetExpectedContentTypes()) {
            text += " " + std::to_string(static_cast<int>(type));
        }
        return text;
    }
    case CheckInputErrorType::Encoding: {
        std::string text = "encoding error,";
        for (const auto& [id, encodings] : report.GetAcceptedEncodings()) {
            text += " " + id + ": " + std::to_string(encodings.size());
        }
        return text;
    }
    }
    return "another error";
}

// An element and its model, driven alike.
class SinkPair {
public:
    SinkPair(const SinkInputs& inputs, const std::string& directory, const std::string& own)
        : m_inputs(inputs), m_directory(directory), m_model(kTypes[0], directory, own) {}

    // The results of the model and of the element.
    std::pair<std::string, std::string> Do(const Operation<SinkCall>& operation) {
        const std::size_t input = operation.first % m_inputs.Count();
        switch (operation.kind) {
        case SinkCall::BeginAnew:
            m_sink = Make(kTypes[operation.first % kTypes.size()]);
            m_model.BeginAnew(kTypes[operation.first % kTypes.size()]);
            return {"", ""};
        case SinkCall::SetInitConfig:
            return SetInitConfig(operation.first);
        case SinkCall::Open: {
            const std::string path = PathOf(operation.first);
            return {m_model.Open(path),
                    ObserveCall([&] { m_sink->Open(ConvertPlatformStringToWideString(path)); })};
        }
        case SinkCall::Check:
            return {m_model.Check(m_inputs.Model(input)), Observe([&] {
                        return ShowReport(*m_sink->CheckInputAndAdaptIfNecessary(
                            m_inputs.Container(input), "any"));
                    })};
        case SinkCall::Define:
            return {m_model.Define(m_inputs.Model(input)),
                    ObserveCall([&] { m_sink->DefineInput(m_inputs.Container(input), "any"); })};
        case SinkCall::Push:
            return Push(operation);
        case SinkCall::Close:
            return {m_model.Close(), ObserveCall([&] { m_sink->Close(operation.first % 2 == 0); })};
        case SinkCall::Release:
            return {m_model.Close(), ObserveCall([&] { m_sink->Release(); })};
        case SinkCall::GetDefinedInput:
            return {m_model.GetDefinedInput(), Observe([&] {
                        const auto defined = m_sink->GetDefinedInput("any");
                        return defined == nullptr ? "none"
                                                  : defined->GetAudioInfos().front()->GetId();
                    })};
        case SinkCall::Unsupported:
            return Unsupported(operation.first);
        case SinkCall::Idle:
            return {Expected().Returns("done"), ObserveCall([&] {
                        if (operation.first % 2 == 0) {
                            m_sink->Interrupt();
                        } else {
                            m_sink->ClearInternalBuffer();
                        }
                    })};
        case SinkCall::Count:
            break;
        }
        return {"", "no call"};
    }

    std::size_t ExpectedOpenFiles() const { return m_model.OpenFiles(); }

private:
    template <typename Call>
    static std::string ObserveCall(Call call) {
        return Observe([&call] {
            call();
            return "done";
        });
    }

    // A sink whose manifest has any text for its type.
    static std::shared_ptr<IAudioSink> Make(const std::string& type) {
        LoadPlugin();
        const auto factory =
            std::dynamic_pointer_cast<ElementFactory<ElementFactoryType::AudioSink>>(
                GetFactory(ElementFactoryType::AudioSink, "kel.LibsndfileSink", "WAVE"));
        auto manifest = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
        manifest->SetStringValue("type", type);
        return factory->creator(manifest);
    }

    std::string PathOf(unsigned choice) const {
        const std::string& name = kNames[choice % kNames.size()];
        return name.empty() ? name : m_directory + name;
    }

    std::pair<std::string, std::string> SetInitConfig(unsigned choice) {
        if (choice == 14) {
            const auto other =
                CreateParametersCollectionInstance(CreateParametersCollectionPrototype());
            return {m_model.SetInitConfig(std::nullopt),
                    ObserveCall([&] { m_sink->SetInitConfig(other); })};
        }
        if (choice == 15) {
            return {m_model.SetNoInitConfig(),
                    ObserveCall([&] { m_sink->SetInitConfig(nullptr); })};
        }
        auto settings = MakeSinkSettings();
        settings->SetStringValue("FilePath", PathOf(choice));
        return {m_model.SetInitConfig(PathOf(choice)),
                ObserveCall([&] { m_sink->SetInitConfig(settings); })};
    }

    std::pair<std::string, std::string> Push(const Operation<SinkCall>& operation) {
        constexpr std::size_t kSizes[] = {48, 0, 96, 1, 4096, 7};
        // One sample, mostly.
        constexpr std::size_t kCounts[] = {1, 1, 1, 1, 1, 0, 2, 1};
        // Sometimes an empty handle.
        const std::size_t choice = operation.second % (std::size(kCounts) + 2);
        if (choice >= std::size(kCounts)) {
            const bool hasSample = choice > std::size(kCounts);
            const auto sample = hasSample ? std::make_shared<ForeignSample>(nullptr) : nullptr;
            const auto container = std::make_shared<ForeignContainer>(AudioSamples{sample});
            return {SinkModel::PushEmptyHandle(hasSample),
                    ObserveCall([&] { m_sink->PushSample(container); })};
        }
        std::vector<std::string> contents;
        std::vector<std::shared_ptr<const ISample>> samples;
        for (std::size_t i = 0; i < kCounts[choice]; ++i) {
            std::string bytes(kSizes[operation.first % std::size(kSizes)], '\0');
            for (char& byte : bytes) {
                byte = static_cast<char>(m_next++);
            }
            samples.push_back(MakeContainer(bytes)->GetAudioSamples(nullptr, nullptr).front());
            contents.push_back(std::move(bytes));
        }
        const auto container = CreateSampleContainer(samples, nullptr);
        return {m_model.Push(contents), ObserveCall([&] { m_sink->PushSample(container); })};
    }

    std::pair<std::string, std::string> Unsupported(unsigned choice) {
        switch (choice % 3) {
        case 0:
            return {Expected().Fails("[UpdateConfig not supported]"),
                    ObserveCall([&] { m_sink->UpdateConfig(nullptr); })};
        case 1:
            return {Expected().Fails("[UpdateConfig not supported]"),
                    ObserveCall([&] { m_sink->PushMetadata({}); })};
        default:
            return {Expected().Fails("[LibsndfileSink::SetInputMediator not implemented]"),
                    ObserveCall([&] { m_sink->SetInputMediator(nullptr, "any", "any"); })};
        }
    }

    const SinkInputs& m_inputs;
    std::string m_directory;
    SinkModel m_model;
    std::shared_ptr<IAudioSink> m_sink = Make(kTypes[0]);
    unsigned char m_next = 0;
};

// The files of a directory and their contents, as text.
std::string ShowFiles(const std::string& directory) {
    std::vector<std::string> shown;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        if (entry.is_regular_file()) {
            shown.push_back(std::filesystem::relative(entry.path(), directory).string() + ": " +
                            WithoutTime(ReadFile(entry.path().string())));
        }
    }
    std::sort(shown.begin(), shown.end());
    std::string text;
    for (const std::string& line : shown) {
        text += line + "\n";
    }
    return text;
}

// Runs a sequence in a directory of its own and returns the difference, or "".
std::string Compare(const SinkInputs& inputs, const Operations<SinkCall>& operations) {
    const TemporaryDirectory directory(DirectoryPlace::Memory);
    for (const char* name : {"element/dotted.d", "model/dotted.d"}) {
        std::filesystem::create_directories(directory.Path() / name);
    }
    std::set<SNDFILE*> open;
    SndfileAnswers().open = [&open](const char* path, int mode, SF_INFO* info) {
        SNDFILE* file = RealSndfile().open(path, mode, info);
        if (file != nullptr) {
            open.insert(file);
        }
        return file;
    };
    SndfileAnswers().close = [&open](SNDFILE* file) {
        if (open.erase(file) == 0) {
            ADD_FAILURE() << "a file that is not open was closed";
            return 0;
        }
        return RealSndfile().close(file);
    };
    std::string difference;
    std::size_t expectedOpen = 0;
    {
        SinkPair pair(inputs, directory / "element/", directory / "model/");
        for (std::size_t i = 0; i < operations.size() && difference.empty(); ++i) {
            const auto [expected, observed] = pair.Do(operations[i]);
            if (expected != observed) {
                difference = "call " + std::to_string(i + 1) + "\nexpected " + expected +
                             "\nobserved " + observed;
            }
        }
        expectedOpen = pair.ExpectedOpenFiles();
        if (difference.empty() &&
            ShowFiles(directory / "element") != ShowFiles(directory / "model")) {
            difference = "the files differ";
        }
    }
    if (difference.empty() && open.size() != expectedOpen) {
        difference = std::to_string(open.size()) + " files are left open instead of " +
                     std::to_string(expectedOpen);
    }
    // Sinks leave files open without a Close, and where a second input replaced a file.
    for (SNDFILE* file : open) {
        RealSndfile().close(file);
    }
    return difference;
}

class LibsndfileSinkModel : public testing::Test {
protected:
    ~LibsndfileSinkModel() override { SndfileAnswers() = {}; }

    // For a sequence that a failure printed.
    void ExpectAgreement(const Operations<SinkCall>& operations) const {
        EXPECT_EQ(Compare(m_inputs, operations), "");
    }

    SinkInputs m_inputs;
};

TEST_F(LibsndfileSinkModel, AgreesWithTheElementOnRandomSequences) {
    CheckSequences("sink and model agree", kCalls, [this](const Operations<SinkCall>& operations) {
        return Compare(m_inputs, operations);
    });
}

TEST_F(LibsndfileSinkModel, AgreesOnASecondInputAndOnASinkThatIsDroppedWithItsFile) {
    ExpectAgreement({{SinkCall::SetInitConfig, 0, 0},
                     {SinkCall::Define, 0, 0},
                     {SinkCall::Push, 0, 0},
                     {SinkCall::Define, 2, 0},
                     {SinkCall::Push, 2, 0},
                     {SinkCall::BeginAnew, 1, 0},
                     {SinkCall::Push, 0, 0},
                     {SinkCall::SetInitConfig, 1, 0},
                     {SinkCall::Define, 4, 0},
                     {SinkCall::Push, 0, 0},
                     {SinkCall::Close, 0, 0}});
}

} // namespace
} // namespace kel::test
