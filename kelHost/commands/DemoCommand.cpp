#include "commands/Command.h"

#include "audio/Formats.h"
#include "audio/PCMDescription.h"
#include "base/Errors.h"
#include "base/FileName.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "commands/CommonOptions.h"
#include "commands/CopyCommand.h"
#include "commands/InfoCommand.h"
#include "commands/JobRunner.h"
#include "container/HeaderSizes.h"
#include "elements/ElementCall.h"
#include "elements/ErrorRecords.h"
#include "elements/SinkWriter.h"
#include "elements/SourceReader.h"

#include <IAudioInfo.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <IInfoContainer.h>
#include <ISampleContainer.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace kel::host {

namespace {

constexpr std::uint32_t kRate = 48000;
constexpr std::uint32_t kChannels = 2;
constexpr std::size_t kFrames = std::size_t{4} * kRate;
constexpr double kTwoPi = 6.283185307179586;

// A plucked note of the chord.
struct Note {
    double hertz;
    double startSeconds;
    double pan; // 0 left, 1 right
};

// An A major chord with the ninth on top, in equal temperament from A3 = 220 Hz, note after note
// from left to right.
constexpr Note kNotes[] = {
    {220.000, 0.00, 0.1}, {277.183, 0.15, 0.3}, {329.628, 0.30, 0.5},
    {440.000, 0.45, 0.7}, {493.883, 0.60, 0.9},
};

// A few harmonics that decay, the higher ones faster.
double Pluck(double hertz, double seconds) {
    constexpr int kHarmonics = 5;
    constexpr double kAttackSeconds = 0.005;
    double value = 0;
    for (int harmonic = 1; harmonic <= kHarmonics; ++harmonic) {
        value += std::sin(kTwoPi * hertz * harmonic * seconds) *
                 std::exp(-seconds * (0.8 + 0.9 * harmonic)) / (harmonic * harmonic);
    }
    return value * std::min(1.0, seconds / kAttackSeconds);
}

std::vector<float> MakeTone() {
    constexpr double kLevel = 0.22;
    std::vector<float> tone(kFrames * kChannels);
    for (std::size_t frame = 0; frame < kFrames; ++frame) {
        const double now = static_cast<double>(frame) / kRate;
        double left = 0;
        double right = 0;
        for (const Note& note : kNotes) {
            if (now >= note.startSeconds) {
                const double value = Pluck(note.hertz, now - note.startSeconds);
                left += value * std::sqrt(1 - note.pan);
                right += value * std::sqrt(note.pan);
            }
        }
        // The last second fades out.
        const double fade =
            std::min(1.0, static_cast<double>(kFrames - 1 - frame) / kRate) * kLevel;
        tone[frame * kChannels] = static_cast<float>(left * fade);
        tone[frame * kChannels + 1] = static_cast<float>(right * fade);
    }
    return tone;
}

// Writes the tone, 4 seconds of 48 kHz stereo, as 32-bit float WAVE.
JobResult WriteTone(const std::string& path, bool replace, const HostLogger& log,
                    Reporter& reporter) {
    const std::vector<float> tone = MakeTone();
    const auto info =
        DescribePCM(EncodingByName("float32"), PCMEndianness::Little, kRate, kChannels);
    const auto buffer = CreateBuffer(nullptr, nullptr);
    const auto bytes = static_cast<std::uint32_t>(tone.size() * sizeof(float));
    buffer->Reserve(bytes);
    std::copy_n(reinterpret_cast<const std::uint8_t*>(tone.data()), bytes, buffer->GetData());
    buffer->SetSize(bytes);
    const TimeLimits limits(MediaTime(EditRate(kRate, 1), 0, nullptr), kFrames);

    const ErrorRecords errors(log, path);
    OutputFile output(path, replace);
    const FileName file(output.TemporaryPath(), path);
    CallElement(path, kWriteAudio, [&] {
        SinkWriter sink(*FindContainer(WrapperFormat::WAVE), file,
                        CreateInfoContainer(info, nullptr));
        sink.Element().PushSample(CreateSampleContainer(
            CreateAudioSample(info->GetAudioParameters(), info, buffer, limits, {}), nullptr));
        sink.Close();
    });
    errors.RequireNone(path, kWriteAudio);
    for (const std::string& warning : output.Finish()) {
        reporter.Show(WarningLine(warning));
    }
    VerifyHeaderSizes(file, bytes, kFrames);
    VerifyReopens(file, kFrames, kChannels, kRate);
    output.Commit();
    return {"{}", "", "", false};
}

class DemoCommand final : public Command {
public:
    DemoCommand() {
        Add(Option("DIRECTORY", "", &m_directory, "Directory for the files")
                .Completes(Option::Values::Directories));
        Add(Option("-f,--force", "", &m_force, "Replace existing files"));
        AddExample("kelhost demo", "Write into the directory kelhost-demo");
        AddExample("kelhost demo tone", "Write into another directory");
    }

    int Run(const CommonOptions& common, const Streams& streams) override {
        MakeDirectory(m_directory);
        const std::string tone = (std::filesystem::path(m_directory) / "tone.wav").string();
        JobRunner runner(common, streams.err);
        runner.Add(tone, tone, [tone, this](const HostLogger& log, Reporter& reporter) {
            return WriteTone(tone, m_force, log, reporter);
        });
        if (runner.Run([](const JobResult&) {}) != 0) {
            return kFailure;
        }
        const bool explains = !common.style.json && !common.style.quiet;
        if (explains) {
            streams.out << fmt::format("The sink wrote a short tone to {}.\n\n"
                                       "Copied through source and sink:\n",
                                       Escape(tone));
        }
        std::vector<CopyRequest> requests;
        std::vector<std::string> files{tone};
        for (const Container& container : Containers()) {
            const std::string copy = (std::filesystem::path(m_directory) /
                                      fmt::format("copy{}", container.extensions.front()))
                                         .string();
            // AIFF holds no floats. Named, this needs no warning.
            const bool isAIFF = container.format == WrapperFormat::AIFF;
            const FormatChoice choice{nullptr, isAIFF ? &EncodingByName("int24") : nullptr, {}};
            requests.push_back({tone, copy, ResolveFormat(choice, copy), {}});
            requests.back().options.replace = m_force;
            files.push_back(copy);
        }
        const CopyJobs jobs{
            requests.size(), [&](std::size_t index) { return requests[index]; }, {}, {}};
        if (MakeCopies(jobs, common, streams).failed != 0) {
            return kFailure;
        }
        if (explains) {
            streams.out << "\nThe files:\n";
        }
        const int status = ShowInfo(files, common, streams);
        if (explains) {
            streams.out
                << "\nListen to one, or copy a file of your own: kelhost copy INPUT OUTPUT\n";
        }
        return status;
    }

private:
    std::string m_directory = "kelhost-demo";
    bool m_force = false;
};

} // namespace

std::unique_ptr<Command> MakeDemoCommand() {
    return std::make_unique<DemoCommand>();
}

} // namespace kel::host
