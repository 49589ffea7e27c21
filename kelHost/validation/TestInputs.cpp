#include "validation/TestInputs.h"

#include "audio/Formats.h"
#include "audio/PCMDescription.h"
#include "base/Errors.h"

#include <ACodecFamily.h>
#include <IAudioInfo.h>
#include <IAudioParameters.h>
#include <IAudioParameters_PCM.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <IChannelInfo.h>
#include <ITrack.h>
#include <TimeLimits.h>
#include <WrapperFormat.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <ios>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr std::uint32_t kRate = 48000;
constexpr std::uint32_t kChannels = 2;
constexpr std::uint32_t kBytesPerValue = 2;
constexpr std::uint32_t kBitsPerValue = 16;
constexpr std::uint32_t kFrameBytes = kChannels * kBytesPerValue;
constexpr std::uint32_t kBytesPerSecond = kRate * kFrameBytes;
// Not a multiple of any block that a source may read at once.
constexpr std::uint32_t kFrames = 10007;
constexpr std::uint32_t kDataBytes = kFrames * kFrameBytes;

std::string Little(std::uint64_t number, unsigned bytes) {
    std::string text;
    for (unsigned i = 0; i < bytes; ++i) {
        text.push_back(static_cast<char>(number >> (8 * i)));
    }
    return text;
}

std::string Big(std::uint64_t number, unsigned bytes) {
    std::string text = Little(number, bytes);
    std::reverse(text.begin(), text.end());
    return text;
}

// The values, each in the byte order of Number: the left channel counts, the right one
// counts down.
template <typename Number>
std::string MakeData(Number number) {
    std::string data;
    for (std::uint32_t frame = 0; frame < kFrames; ++frame) {
        data += number(frame + 1, kBytesPerValue);
        data += number(65536 - (frame + 1), kBytesPerValue);
    }
    return data;
}

std::string FormatChunk() {
    return "fmt " + Little(16, 4) + Little(1, 2) + Little(kChannels, 2) + Little(kRate, 4) +
           Little(kBytesPerSecond, 4) + Little(kFrameBytes, 2) + Little(kBitsPerValue, 2);
}

std::string MakeWAVE() {
    const std::string body =
        "WAVE" + FormatChunk() + "data" + Little(kDataBytes, 4) + MakeData(Little);
    return "RIFF" + Little(body.size(), 4) + body;
}

std::string MakeRF64() {
    constexpr std::uint32_t kSeeElsewhere = 0xFFFFFFFF; // in the chunk of large sizes
    const std::string rest = FormatChunk() + "data" + Little(kSeeElsewhere, 4) + MakeData(Little);
    constexpr std::uint32_t kSizesBytes = 28;
    const std::uint64_t size = 4 + 8 + kSizesBytes + rest.size();
    const std::string sizes = "ds64" + Little(kSizesBytes, 4) + Little(size, 8) +
                              Little(kDataBytes, 8) + Little(kFrames, 8) + Little(0, 4);
    return "RF64" + Little(kSeeElsewhere, 4) + "WAVE" + sizes + rest;
}

std::string MakeAIFF() {
    // An 80-bit number: the exponent of 48000 and its bits, shifted until the first is set.
    constexpr std::uint64_t kExponent = 16383 + 15;
    const std::string rate = Big(kExponent, 2) + Big(static_cast<std::uint64_t>(kRate) << 48U, 8);
    const std::string body = "AIFFCOMM" + Big(18, 4) + Big(kChannels, 2) + Big(kFrames, 4) +
                             Big(kBitsPerValue, 2) + rate + "SSND" + Big(8 + kDataBytes, 4) +
                             Big(0, 4) + Big(0, 4) + MakeData(Big);
    return "FORM" + Big(body.size(), 4) + body;
}

std::shared_ptr<const IAudioInfo> StreamOf(std::shared_ptr<const IAudioParameters> parameters,
                                           std::uint32_t channels) {
    const auto track = CreateTrack(ContentType::Audio, channels, nullptr, TrackLayout::Default);
    return CreateAudioInfo(std::move(parameters), CreateChannelInfo(track), {}, {});
}

// A stream of no known kind.
class OtherInfo final : public IInfo {};

std::shared_ptr<const IAudioParameters_PCM> PCMOf(const IAudioInfo& info) {
    return std::dynamic_pointer_cast<const IAudioParameters_PCM>(info.GetAudioParameters());
}

// Returns the size of a frame of PCM; 0 where the description is incomplete or of another codec.
std::uint32_t BytesPerFrame(const IAudioInfo& info) {
    const auto parameters = PCMOf(info);
    const auto channels = info.GetChannelInfo();
    return parameters != nullptr && parameters->GetSampleRate() > 0 && channels != nullptr
               ? channels->GetNumberOfChannels() * parameters->GetSampleSize()
               : 0;
}

std::shared_ptr<const ISample> MakeSample(const std::shared_ptr<const IAudioInfo>& info,
                                          std::int64_t start, std::uint32_t frames) {
    const std::uint32_t bytesPerFrame = BytesPerFrame(*info);
    const std::uint32_t bytes = frames * std::max(bytesPerFrame, 1U);
    const auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(bytes);
    std::fill_n(buffer->GetData(), bytes, std::uint8_t{0});
    buffer->SetSize(bytes);
    const std::uint32_t rate = bytesPerFrame > 0 ? PCMOf(*info)->GetSampleRate() : kRate;
    const MediaTime position(EditRate(rate, 1), start, nullptr);
    return CreateAudioSample(info->GetAudioParameters(), info, buffer, TimeLimits(position, frames),
                             {});
}

} // namespace

std::optional<std::string> WriteRecording(const std::string& directory, const std::string& type) {
    std::string path = directory + "/recording";
    std::string bytes;
    if (type == GetLabel(WrapperFormat::WAVE) || type == GetLabel(WrapperFormat::Unknown)) {
        path += ".wav";
        bytes = MakeWAVE();
    } else if (type == GetLabel(WrapperFormat::BWAVE)) {
        path += ".rf64";
        bytes = MakeRF64();
    } else if (type == GetLabel(WrapperFormat::AIFF)) {
        path += ".aiff";
        bytes = MakeAIFF();
    } else {
        return std::nullopt;
    }
    std::ofstream file(path, std::ios::binary);
    if (!(file << bytes << std::flush)) {
        throw JobError(path, "cannot write the file");
    }
    return path;
}

std::vector<OfferedInput> UsualInputs() {
    std::vector<OfferedInput> inputs;
    for (const std::uint32_t channels : {2U, 1U, 6U}) {
        for (const PCMEndianness order : {PCMEndianness::Little, PCMEndianness::Big}) {
            for (const std::string_view name : {"float32", "int16", "int24", "int32", "float64"}) {
                inputs.push_back(
                    {fmt::format("{} {} of {} channel{}", name, Describe(order), channels,
                                 channels == 1 ? "" : "s"),
                     CreateInfoContainer(DescribePCM(EncodingByName(name), order, kRate, channels),
                                         nullptr)});
            }
        }
    }
    return inputs;
}

std::vector<OfferedInput> OddInputs() {
    const auto good =
        DescribePCM(EncodingByName("float32"), PCMEndianness::Little, kRate, kChannels);
    // An unknown codec.
    const auto otherCodec = CreateAudioParameters(static_cast<ACodecFamily>(9999));
    const std::vector<std::pair<std::string, std::vector<std::shared_ptr<const IInfo>>>> rows{
        {"no stream", {}},
        {"two streams", {good, good}},
        {"a stream that is not audio", {std::make_shared<OtherInfo>()}},
        {"a stream without parameters", {StreamOf(nullptr, kChannels)}},
        {"a stream of an unknown codec", {StreamOf(otherCodec, kChannels)}},
        {"PCM without properties",
         {StreamOf(CreateAudioParameters<ACodecFamily::PCM>(), kChannels)}},
        {"PCM without a channel", {StreamOf(good->GetAudioParameters(), 0)}},
    };
    std::vector<OfferedInput> inputs;
    for (const auto& [name, infos] : rows) {
        inputs.push_back({name, CreateInfoContainer(infos, nullptr)});
    }
    return inputs;
}

std::vector<OfferedInput> ProposedInputs(const ICheckInputReport& report) {
    constexpr std::size_t kMaxOffered = 30;
    std::vector<OfferedInput> inputs;
    for (const auto& [id, encodings] : report.GetAcceptedEncodings()) {
        for (const auto& encoding : encodings) {
            auto parameters = std::dynamic_pointer_cast<const IAudioParameters>(encoding);
            for (const std::uint32_t channels : {2U, 1U, 6U}) {
                if (parameters != nullptr && inputs.size() < kMaxOffered) {
                    inputs.push_back(
                        {fmt::format("proposal {}", inputs.size() + 1),
                         CreateInfoContainer(StreamOf(parameters, channels), nullptr)});
                }
            }
        }
    }
    return inputs;
}

bool IsCompletePCM(const IInfoContainer& input) {
    const auto infos = input.GetAudioInfos();
    return infos.size() == 1 && BytesPerFrame(*infos.front()) > 0;
}

bool HasAudio(const IInfoContainer& input) {
    return !input.GetAudioInfos().empty();
}

std::shared_ptr<const ISampleContainer> MakeSamples(const IInfoContainer& input, std::int64_t start,
                                                    std::uint32_t frames) {
    std::vector<std::shared_ptr<const ISample>> samples;
    for (const auto& info : input.GetAudioInfos()) {
        samples.push_back(MakeSample(info, start, frames));
    }
    return CreateSampleContainer(samples, nullptr);
}

} // namespace kel::host
