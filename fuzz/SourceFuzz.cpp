// Reads an arbitrary file through the source, with any block size and any seeks, and compares the
// samples with those of a bare loop over the same file with the same library.

#include "Fuzz.h"
#include "HangingFiles.h"
#include "MemoryFile.h"

#include <Plugin.h>

#include <sndfile.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

using namespace kel;
using fuzz::Input;

constexpr int kMaxBlocks = 64; // some files declare hours of silence
constexpr std::uint32_t kMaxFrames = 4096;

std::vector<float> Values(const IBuffer& buffer) {
    std::vector<float> values(buffer.GetSize() / sizeof(float));
    std::memcpy(values.data(), buffer.GetData(), values.size() * sizeof(float));
    return values;
}

bool AreSame(const std::vector<float>& left, const std::vector<float>& right) {
    return left.size() == right.size() &&
           std::memcmp(left.data(), right.data(), left.size() * sizeof(float)) == 0;
}

void Read(IAudioSource& source, SNDFILE* bare, const SF_INFO& info, std::uint32_t frames,
          Input& seeks) {
    std::int64_t stamp = 0;
    for (int block = 0; block < kMaxBlocks; ++block) {
        if (const std::uint8_t choice = seeks.Byte(); choice % 4 == 1) {
            const std::int64_t frame = info.frames * (choice / 4) / 63;
            const MediaTime time({static_cast<std::uint32_t>(info.samplerate), 1}, frame, nullptr);
            const sf_count_t reached = sf_seek(bare, frame, SEEK_SET);
            const bool refused = fuzz::Refuses([&] {
                KEL_FUZZ_REQUIRE(source.GotoTimeOffset(time, "").GetTimeNumber() == reached);
            });
            KEL_FUZZ_REQUIRE(refused == (reached < 0 || reached > info.frames));
        }
        std::vector<float> expected(frames * static_cast<std::size_t>(info.channels));
        const sf_count_t got = sf_readf_float(bare, expected.data(), frames);
        KEL_FUZZ_REQUIRE(got >= 0 && got <= frames);
        expected.resize(static_cast<std::size_t>(got * info.channels));

        const auto container = source.GetSample();
        KEL_FUZZ_REQUIRE((container == nullptr) == (got == 0));
        if (container == nullptr) {
            continue;
        }
        const auto samples = container->GetAudioSamples(nullptr, nullptr);
        KEL_FUZZ_REQUIRE(samples.size() == 1);
        const TimeLimits& limits = samples.front()->GetTimeLimits();
        KEL_FUZZ_REQUIRE(limits.duration == got);
        KEL_FUZZ_REQUIRE(limits.start.GetTimeNumber() == stamp);
        KEL_FUZZ_REQUIRE(AreSame(Values(*samples.front()->GetBuffer()), expected));
        stamp += got;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::DiscardRecords();
    Input input(data, size);
    const std::uint32_t frames = input.Word() % kMaxFrames + 1;
    const std::string seekBytes = input.Text(16);
    const std::string content = input.Rest();
    if (fuzz::HangsLibsndfile(content)) {
        fuzz::CountHangingFile();
        return 0;
    }
    const fuzz::MemoryFile file(content);

    SF_INFO info{};
    SNDFILE* bare = sf_open(file.Path().c_str(), SFM_READ, &info);
    auto settings = test::MakeSourceSettings();
    settings->SetStringValue("FilePath", file.Path());
    settings->SetIntegerValue("MaxSamplesPerBuffer", static_cast<std::int32_t>(frames));
    const auto source = test::MakeSource();
    const bool refused = fuzz::Refuses([&] { source->SetInitConfig(settings); });
    KEL_FUZZ_REQUIRE(refused == (bare == nullptr || info.channels <= 0));
    KEL_FUZZ_REQUIRE(source->IsMediaOpen() != refused);
    if (!refused) {
        KEL_FUZZ_REQUIRE(source->GetTimeLimits("").duration == info.frames);
        Input seeks(reinterpret_cast<const std::uint8_t*>(seekBytes.data()), seekBytes.size());
        Read(*source, bare, info, frames, seeks);
    }
    if (bare != nullptr) {
        sf_close(bare);
    }
    return 0;
}
