#include "LibsndfileSink.h"

#include <AudioPCMType.h>
#include <Checks.h>
#include <ContentType.h>
#include <IAudioInfo.h>
#include <IAudioParameters.h>
#include <IAudioParameters_PCM.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <IChannelInfo.h>
#include <ICheckInputReport.h>
#include <IInfoContainer.h>
#include <ISampleContainer.h>
#include <Logging.h>
#include <PCMEndianness.h>
#include <PCMMuxing.h>
#include <ParametersCollection.h>
#include <PlatformString.h>
#include <WrapperFormat.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <map>
#include <memory>
#include <sndfile.h>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

constexpr const char* kNotConfigured = "LibsndfileSink needs SetInitConfig first";
constexpr const char* kNoInput = "LibsndfileSink got no input description";

std::shared_ptr<const IAudioParameters_PCM> PCMParametersOf(const IAudioInfo& audioInfo) {
    return std::dynamic_pointer_cast<const IAudioParameters_PCM>(audioInfo.GetAudioParameters());
}

std::uint32_t NumberOfChannelsOf(const IAudioInfo& audioInfo) {
    const std::shared_ptr<const IChannelInfo> channels = audioInfo.GetChannelInfo();
    return channels != nullptr ? channels->GetNumberOfChannels() : 0;
}

// The info of an input that has exactly one, and that audio; empty for every other input.
std::shared_ptr<const IAudioInfo> SingleAudioInfoOf(const IInfoContainer& input) {
    if (input.GetInfos().size() != 1) {
        return nullptr;
    }
    const auto audioInfos = input.GetAudioInfos();
    return audioInfos.size() == 1 ? audioInfos.front() : nullptr;
}

int MajorFormat(WrapperFormat wrapperFormat) {
    switch (wrapperFormat) {
    case WrapperFormat::AIFF:
        return SF_FORMAT_AIFF;
    case WrapperFormat::BWAVE:
        // Intentional: RF64 is the form of BWAVE for sizes beyond 4 GiB.
        return SF_FORMAT_RF64;
    case WrapperFormat::WAVE:
        // Intentional: only the extensible header declares the speakers of more than two channels.
        return SF_FORMAT_WAVEX;
    case WrapperFormat::Unknown:
    case WrapperFormat::RAW:
        break;
    }
    KEL_FAIL("Only AIFF and WAVE/BWAVE wrapper formats (or extensions) are supported");
}

int SampleEncoding(const IAudioParameters_PCM& pcmAudioParams) {
    const std::uint8_t sampleSize = pcmAudioParams.GetSampleSize();
    const std::uint8_t bitsDepth = pcmAudioParams.GetBitsDepth();
    switch (pcmAudioParams.GetPCMType()) {
    case AudioPCMType::Integer:
        switch (sampleSize) {
        case 2:
            if (bitsDepth != 16) {
                KEL_FAIL("(pcmAudioParams->GetSampleSize() == 2) && "
                         "(pcmAudioParams->GetBitsDepth() != 16)");
            }
            return SF_FORMAT_PCM_16;
        case 3:
            if (bitsDepth != 24) {
                KEL_FAIL("(pcmAudioParams->GetSampleSize() == 3) && "
                         "(pcmAudioParams->GetBitsDepth() != 24)");
            }
            return SF_FORMAT_PCM_24;
        case 4:
            if (bitsDepth != 32) {
                KEL_FAIL("(pcmAudioParams->GetSampleSize() == 4) && "
                         "(pcmAudioParams->GetBitsDepth() != 32)");
            }
            return SF_FORMAT_PCM_32;
        default:
            KEL_FAIL("Only 16-bit/2 bytes, 24-bit/3 bytes or 32-bit/4 bytes integer PCM samples "
                     "supported (24-bit over 4 bytes not supported)");
        }
    case AudioPCMType::Float:
        switch (sampleSize) {
        case 4:
            if (bitsDepth != 32) {
                KEL_FAIL("(pcmAudioParams->GetSampleSize() == 4) && "
                         "(pcmAudioParams->GetBitsDepth() != 32)");
            }
            return SF_FORMAT_FLOAT;
        case 8:
            if (bitsDepth != 64) {
                KEL_FAIL("(pcmAudioParams->GetSampleSize() == 8) && "
                         "(pcmAudioParams->GetBitsDepth() != 64)");
            }
            return SF_FORMAT_DOUBLE;
        default:
            KEL_FAIL("Only 4 or 8 bytes float PCM samples supported");
        }
    case AudioPCMType::Undefined:
        break;
    }
    KEL_FAIL("PCM type should be 32-bit/64-bit float or 16-bit/24-bit/32-bit integer");
}

int ByteOrder(PCMEndianness endianness) {
    switch (endianness) {
    case PCMEndianness::Little:
        return SF_ENDIAN_LITTLE;
    case PCMEndianness::Big:
        return SF_ENDIAN_BIG;
    case PCMEndianness::Undefined:
        break;
    }
    KEL_FAIL("PCM endianness type should be defined to either little or big endian");
}

// Maps a container and a PCM layout to a description for libsndfile, which decides whether the
// container supports the layout.
SF_INFO
WrapperFormatAndAudioParametersToSfInfo(WrapperFormat wrapperFormat,
                                        const std::shared_ptr<const IAudioInfo>& audioInfo) {
    const int majorFormat = MajorFormat(wrapperFormat);
    const auto pcmAudioParams = PCMParametersOf(*audioInfo);
    KEL_CHECK_POINTER(pcmAudioParams, "Only PCM audio is supported");
    const int encoding = SampleEncoding(*pcmAudioParams);
    const int byteOrder = ByteOrder(pcmAudioParams->GetEndianness());

    SF_INFO sfInfo{};
    sfInfo.format = majorFormat | encoding | byteOrder;
    sfInfo.channels = static_cast<int>(NumberOfChannelsOf(*audioInfo));
    sfInfo.samplerate = static_cast<int>(pcmAudioParams->GetSampleRate());
    return sfInfo;
}

void CheckMuxing(std::uint32_t channels, PCMMuxing muxing) {
    const bool isMulti = muxing == PCMMuxing::Multi;
    switch (channels) {
    case 0:
        KEL_FAIL("There are 0 channels in the audio info!");
    case 1:
        if (!isMulti && muxing != PCMMuxing::None) {
            KEL_FAIL("Only \"none\" and \"multi\" are accepted for 1-channel muxing");
        }
        break;
    case 2:
        // Intentional: two channels without muxing would be two streams, which a file cannot hold.
        if (!isMulti && muxing != PCMMuxing::Stereo) {
            KEL_FAIL("Only \"stereo\" and \"multi\" are accepted for 2-channel muxing");
        }
        break;
    default:
        if (!isMulti) {
            KEL_FAIL("Only \"multi\" is accepted for multichannel (> 2) muxing");
        }
        break;
    }
}

struct ExtensionFormat {
    const wchar_t* extension;
    WrapperFormat format;
};

// Intentional: ".raw" is known although the sink does not write RAW, so that the refusal names the
// format and not the extension.
// Intentional: ".aifc" is missing, because hosts choose AIFF-C only by the type.
constexpr ExtensionFormat kExtensionFormats[] = {
    {L".wav", WrapperFormat::WAVE},    {L".wave", WrapperFormat::WAVE},
    {L".rf64", WrapperFormat::BWAVE},  {L".bwav", WrapperFormat::BWAVE},
    {L".bwave", WrapperFormat::BWAVE}, {L".aif", WrapperFormat::AIFF},
    {L".aiff", WrapperFormat::AIFF},   {L".raw", WrapperFormat::RAW},
};

// Intentional: only ASCII letters change, so that the meaning of an extension does not depend on
// the locale.
wchar_t ToLower(wchar_t character) {
    constexpr wchar_t kLastASCII = 0x7F;
    return character < 0 || character > kLastASCII
               ? character
               : static_cast<wchar_t>(std::tolower(static_cast<int>(character)));
}

// Intentional: the last dot of the whole path counts, because an extension with a slash matches no
// format anyway.
WrapperFormat FormatFromExtension(const std::wstring& path) {
    const std::size_t dot = path.rfind(L'.');
    if (dot == std::wstring::npos) {
        return WrapperFormat::Unknown;
    }
    std::wstring extension = path.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(), ToLower);
    for (const ExtensionFormat& entry : kExtensionFormats) {
        if (extension == entry.extension) {
            return entry.format;
        }
    }
    return WrapperFormat::Unknown;
}

// The format that "type" names; Unknown for any other text.
WrapperFormat FormatFromType(const std::shared_ptr<const IParametersCollectionInstance>& manifest) {
    KEL_CHECK_POINTER(manifest, "LibsndfileSink was made without a manifest");
    WrapperFormat format = WrapperFormat::Unknown;
    FromString(format, manifest->GetStringValue("type"));
    return format;
}

// Intentional: the type overrides the extension, because it is the explicit choice.
// Intentional: the warning is misspelt and lacks a space, because log filters search for this text.
WrapperFormat ResolveFormat(WrapperFormat extFormat, WrapperFormat typeFormat) {
    const bool extKnown = extFormat != WrapperFormat::Unknown;
    const bool typeKnown = typeFormat != WrapperFormat::Unknown;
    if (extKnown && typeKnown) {
        if (extFormat == typeFormat) {
            KEL_LOG(LogLevel::Info,
                    "Read the following WrapperFormat from both extension and type: "
                        << ToString(typeFormat));
        } else {
            KEL_LOG(LogLevel::Warning,
                    "The file extension suggests the following wrapper format: "
                        << ToString(extFormat)
                        << " but it has been overriden with the type wrapper format:"
                        << ToString(typeFormat));
        }
        return typeFormat;
    }
    if (extKnown) {
        KEL_LOG(LogLevel::Info,
                "Inferred the following WrapperFormat from extension: " << ToString(extFormat));
        return extFormat;
    }
    if (typeKnown) {
        KEL_LOG(LogLevel::Info,
                "Read the following WrapperFormat from type: " << ToString(typeFormat));
        return typeFormat;
    }
    KEL_FAIL("WrapperFormat not present in configuration and cannot be inferred from file "
             "extension");
}

struct SampleLayout {
    std::uint8_t bytes;
    std::uint8_t bits;
};

std::shared_ptr<const IAudioParameters_PCM> MakeCandidate(std::uint32_t hertz, AudioPCMType type,
                                                          const SampleLayout& layout) {
    auto candidate = CreateAudioParameters<ACodecFamily::PCM>();
    candidate->SetMuxing(PCMMuxing::Multi);
    candidate->SetSampleRate(hertz);
    candidate->SetBitsDepth(layout.bits);
    candidate->SetEndianness(PCMEndianness::Little);
    candidate->SetPCMType(type);
    candidate->SetSampleSize(layout.bytes);
    return candidate;
}

// The descriptions that most producers can switch to.
std::vector<std::shared_ptr<const IAudioParameters_PCM>> MakeCandidates() {
    struct TypeLayouts {
        AudioPCMType type;
        std::vector<SampleLayout> layouts;
    };
    const std::vector<std::uint32_t> rates{22500, 44100, 48000, 96000};
    const std::vector<TypeLayouts> types{{AudioPCMType::Float, {{4, 32}, {8, 64}}},
                                         {AudioPCMType::Integer, {{2, 16}, {3, 24}, {4, 32}}}};
    std::vector<std::shared_ptr<const IAudioParameters_PCM>> candidates;
    for (const std::uint32_t rate : rates) {
        for (const TypeLayouts& type : types) {
            for (const SampleLayout& layout : type.layouts) {
                candidates.push_back(MakeCandidate(rate, type.type, layout));
            }
        }
    }
    return candidates;
}

} // namespace

LibsndfileSink::LibsndfileSink(std::shared_ptr<const IParametersCollectionInstance> manifest)
    : config(std::move(manifest)) {}

// Intentional: the file is not finished, so that a half-written file does not look complete.
LibsndfileSink::~LibsndfileSink() = default;

void LibsndfileSink::SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> newConfig) {
    initConfig = std::move(newConfig);
    KEL_CHECK_POINTER(initConfig, kNotConfigured);
    // Intentional: the value is read only for its error, so that settings without the parameter are
    // refused here and not when the input is defined.
    static_cast<void>(initConfig->GetWideStringValue("FilePath"));
}

void LibsndfileSink::UpdateConfig(
    std::shared_ptr<const IParametersCollectionInstance> /*newConfig*/) {
    KEL_FAIL("UpdateConfig not supported");
}

std::shared_ptr<const IParametersCollectionInstance> LibsndfileSink::GetManifest() const {
    return config;
}

void LibsndfileSink::Open(const std::wstring& path) {
    if (sndFile != nullptr) {
        KEL_FAIL("A file is already opened!");
    }
    openedFilePath = path;
}

void LibsndfileSink::PushMetadata(
    const std::vector<std::shared_ptr<const IMetadata>>& /*metadata*/) {
    // Intentional: the text is that of UpdateConfig, because hosts treat both as one missing
    // ability.
    KEL_FAIL("UpdateConfig not supported");
}

void LibsndfileSink::Close(bool /*flag*/) {
    if (sndFile == nullptr) {
        // Intentional: a path without a file stays, because DefineInput still needs it.
        return;
    }
    sf_close(sndFile);
    sndFile = nullptr;
    // Intentional: the path goes with its file, so that the next file needs a new one.
    // Intentional: the defined input stays, so that the host can read it after the end.
    openedFilePath.clear();
}

void LibsndfileSink::Release() {
    Close(false);
}

void LibsndfileSink::SetInputMediator(std::shared_ptr<IInputMediator> /*mediator*/,
                                      std::string /*input*/, std::string /*name*/) {
    KEL_FAIL("LibsndfileSink::SetInputMediator not implemented");
}

void LibsndfileSink::Interrupt() {}

void LibsndfileSink::ClearInternalBuffer() {}

std::shared_ptr<const IInfoContainer> LibsndfileSink::GetDefinedInput(std::string /*name*/) const {
    return definedInput;
}

std::shared_ptr<const ICheckInputReport>
LibsndfileSink::CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> input,
                                              std::string /*name*/) const {
    KEL_CHECK_POINTER(input, kNoInput);
    if (SingleAudioInfoOf(*input) == nullptr) {
        return CreateCheckInputReportTrackError({ContentType::Audio});
    }

    // Intentional: the candidates are created but not proposed, because the producer chooses
    // itself.
    [[maybe_unused]] const auto candidates = MakeCandidates();
    // The list is a new one and may differ from the first where the container is not kelCore's.
    const auto audioInfos = input->GetAudioInfos();
    const std::shared_ptr<const IAudioInfo> audioInfo =
        audioInfos.empty() ? nullptr : audioInfos.front();
    KEL_CHECK_POINTER(audioInfo, "LibsndfileSink got no audio info");
    const auto pcmAudioParams = PCMParametersOf(*audioInfo);
    std::map<std::string, std::vector<std::shared_ptr<const IEncodingParameters>>> proposals;
    proposals[audioInfo->GetId()] = {};
    if (pcmAudioParams == nullptr) {
        return CreateCheckInputReportEncodingError(proposals);
    }

    // Intentional: only "type" counts here, because a check may precede the path.
    const SF_INFO sfInfo =
        WrapperFormatAndAudioParametersToSfInfo(FormatFromType(config), audioInfo);
    if (sf_format_check(&sfInfo) == 0) {
        return CreateCheckInputReportEncodingError(proposals);
    }
    return CreateCheckInputReportNoError();
}

void LibsndfileSink::DefineInput(std::shared_ptr<const IInfoContainer> input, std::string name) {
    // Intentional: an open file does not refuse a second input, so that a host can start its next
    // file without a gap.
    KEL_CHECK_POINTER(input, kNoInput);
    const std::shared_ptr<const IAudioInfo> audioInfo = SingleAudioInfoOf(*input);
    if (audioInfo == nullptr) {
        KEL_FAIL("Only one info supported in input. It must be audio.");
    }
    const auto pcmAudioParams = PCMParametersOf(*audioInfo);
    KEL_CHECK_POINTER(pcmAudioParams, "Only PCM audio is supported");
    const std::uint32_t channels = NumberOfChannelsOf(*audioInfo);
    CheckMuxing(channels, pcmAudioParams->GetMuxing());

    KEL_CHECK_POINTER(initConfig, kNotConfigured);
    const std::wstring configPath = initConfig->GetWideStringValue("FilePath");
    if (!configPath.empty() && !openedFilePath.empty()) {
        KEL_FAIL("FilePath must be specified either by the config object or by the Open command "
                 "but NOT by both!");
    }
    // Intentional: an empty path is not refused here, because libsndfile reports it with a cause.
    const std::wstring& path = !openedFilePath.empty() ? openedFilePath : configPath;

    const WrapperFormat extFormat = FormatFromExtension(path);
    const WrapperFormat wrapperFormat = ResolveFormat(extFormat, FormatFromType(config));

    // Intentional: the check uses only "type", so that the extension alone never creates a file.
    // Intentional: the call is virtual, so that a subclass can decide about its inputs.
    const auto report = CheckInputAndAdaptIfNecessary(input, std::move(name));
    // Intentional: a subclass without objections may return no report.
    if (report != nullptr && report->GetErrorType() != 0) {
        KEL_FAIL("The defined input is not accepted. Please call CheckInputAndAdaptIfNecessary to "
                 "receive more info about supported input infos.");
    }

    // Intentional: an accepted input stays defined where its file cannot be created, so that the
    // host can try another path.
    definedInput = std::move(input);
    SF_INFO sfInfo = WrapperFormatAndAudioParametersToSfInfo(wrapperFormat, audioInfo);
    const std::string platformPath = ConvertWideStringToPlatformString(path);
    SNDFILE* file = sf_open(platformPath.c_str(), SFM_WRITE, &sfInfo);
    if (file == nullptr) {
        KEL_FAIL("Unable to open file \"" << platformPath << "\" with libsndfile. Error is:\""
                                          << sf_strerror(nullptr) << "\"");
    }
    // Intentional: a file that was open before is not closed, because only the producer finishes
    // files.
    sndFile = file;
}

void LibsndfileSink::PushSample(std::shared_ptr<const ISampleContainer> container) {
    KEL_CHECK_POINTER(container, "LibsndfileSink got no sample container");
    const auto samples = container->GetAudioSamples(nullptr, nullptr);
    if (samples.empty()) {
        return;
    }
    // Intentional: the number of samples comes first, because the message quotes both in this
    // order.
    KEL_CHECK_EQUAL(samples.size(), 1U, "More than one audio sample received! This is forbidden");

    // Containers and samples of kelCore hold no empty handles; those of other libraries may.
    const std::shared_ptr<const IAudioSample>& sample = samples.front();
    KEL_CHECK_POINTER(sample, "LibsndfileSink got no audio sample");
    const std::shared_ptr<const IBuffer> buffer = sample->GetBuffer();
    KEL_CHECK_POINTER(buffer, "LibsndfileSink got an audio sample without a buffer");
    // Intentional: all bytes are passed on, because libsndfile reports what is not a whole frame.
    const std::uint32_t size = buffer->GetSize();
    // Intentional: without a file libsndfile gets a null handle, so that the lost bytes are logged.
    const sf_count_t written = sf_write_raw(sndFile, buffer->GetData(), size);
    if (written != static_cast<sf_count_t>(size)) {
        KEL_LOG(LogLevel::Error,
                "Warning: tried to write " << size << " bytes but could only write " << written);
    }
}

} // namespace kel
