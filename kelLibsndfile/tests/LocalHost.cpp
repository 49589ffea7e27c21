// A host in a library of its own, which a program loads with RTLD_LOCAL: the framework comes along
// as a library that only this one needs, and nothing of it is visible to the rest of the process.

#include "LocalHost.h"

#include <Plugin.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

namespace kel::test {

namespace {

std::wstring Wide(const char* path) {
    return ConvertPlatformStringToWideString(path);
}

// The host's own description of a stream, which the sink knows nothing about.
class ForeignInfo : public IInfo {};

std::shared_ptr<IAudioSource> MakeConfiguredSource() {
    auto source = MakeSource();
    source->SetInitConfig(MakeSourceSettings());
    return source;
}

void MeetAnError(LocalHostReport& report) {
    const auto source = MakeConfiguredSource();
    try {
        source->Open(L"there is no such file");
    } catch (const KELRuntimeError&) {
        report.errorCaughtByItsType = true;
    }
    try {
        source->Open(L"there is no such file");
    } catch (const std::exception&) {
        report.errorCaughtAsStandardError = true;
    }
}

void MeetCasts(LocalHostReport& report) {
    const auto source = MakeConfiguredSource();
    const std::shared_ptr<IAudioSourceControl> control = source;
    report.castToTheDataSide =
        std::dynamic_pointer_cast<IMediaSource>(control) == std::shared_ptr<IMediaSource>(source);

    auto sink = MakeSink();
    sink->SetInitConfig(MakeSinkSettings());
    const auto check = sink->CheckInputAndAdaptIfNecessary(
        CreateInfoContainer(std::make_shared<ForeignInfo>(), nullptr), "");
    report.foreignInfoRefused =
        check->GetErrorType() == static_cast<std::int32_t>(CheckInputErrorType::Track);
}

void Copy(const char* input, const char* output) {
    const auto source = MakeConfiguredSource();
    auto sink = MakeSink();
    sink->SetInitConfig(MakeSinkSettings());
    source->Open(Wide(input));
    sink->Open(Wide(output));
    sink->DefineInput(source->GetDefinedOutput(""), "");
    while (const auto container = source->GetSample()) {
        sink->PushSample(container);
    }
    sink->Close(false);
    source->Release();
}

void Read(const char* file, LocalHostReport& report) {
    const auto source = MakeConfiguredSource();
    source->Open(Wide(file));
    report.sampleIsAudio = true;
    while (const auto container = source->GetSample()) {
        const std::shared_ptr<const ISample> sample =
            container->GetAudioSamples(nullptr, nullptr).front();
        const auto audio = std::dynamic_pointer_cast<const IAudioSample>(sample);
        report.sampleIsAudio = report.sampleIsAudio && audio != nullptr;
        report.frames += static_cast<unsigned>(audio->GetTimeLimits().duration);
    }
    source->Release();
}

} // namespace

extern "C" KEL_CORE_EXPORT LocalHostReport RunLocalHost(const char* input, const char* output) {
    LocalHostReport report{};
    try {
        LoadPlugin();
        MeetAnError(report);
        MeetCasts(report);
        Copy(input, output);
        Read(output, report);
    } catch (const std::exception& error) {
        std::snprintf(report.failure, sizeof report.failure, "%s", error.what());
    }
    return report;
}

} // namespace kel::test
