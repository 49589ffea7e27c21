// Times the operations of the framework for every sample and every opened file, one by one.

#include "Jobs.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>

namespace kel::benchmarks {

namespace {

constexpr std::uint32_t kBytes = 8192; // 1024 stereo frames

std::shared_ptr<IMemoryBlockAllocator> MakeRecycler() {
    return ImplementElement<ElementFactoryType::MemoryBlockAllocator>("kel", "Recycler", nullptr);
}

void ReadIntegerSetting(benchmark::State& state) {
    const std::shared_ptr<const IParametersCollectionInstance> settings =
        test::MakeSourceSettings();
    for (auto _ : state) {
        benchmark::DoNotOptimize(settings->GetIntegerValue("MaxSamplesPerBuffer"));
    }
}
BENCHMARK(ReadIntegerSetting);

void CreateAndReserveBuffer(benchmark::State& state) {
    const auto allocator = MakeRecycler();
    for (auto _ : state) {
        const auto buffer = CreateBuffer(allocator, nullptr);
        buffer->Reserve(kBytes);
        benchmark::DoNotOptimize(buffer->GetData());
    }
}
BENCHMARK(CreateAndReserveBuffer);

void CreateSampleInContainer(benchmark::State& state) {
    const auto info = test::MakeInfo({});
    const auto buffer = CreateBuffer(nullptr, nullptr);
    const MediaTime start({48000, 1}, 0, nullptr);
    for (auto _ : state) {
        benchmark::DoNotOptimize(CreateSampleContainer(
            CreateAudioSample(info->GetAudioParameters(), info, buffer, {start, 1024}, {}),
            nullptr));
    }
}
BENCHMARK(CreateSampleInContainer);

void TakeSampleFromContainer(benchmark::State& state) {
    const auto container = test::MakeContainer("sample");
    for (auto _ : state) {
        benchmark::DoNotOptimize(container->GetAudioSamples(nullptr, nullptr));
    }
}
BENCHMARK(TakeSampleFromContainer);

void LogARecord(benchmark::State& state) {
    for (auto _ : state) {
        KEL_LOG(LogLevel::Info, "Successfully opened \""
                                    << "file.wav"
                                    << "\" -- nb channels: " << 2);
    }
}
BENCHMARK(LogARecord);

void MakeTheTimeString(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetCurrentTimeString());
    }
}
BENCHMARK(MakeTheTimeString);

void ImplementARecycler(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(MakeRecycler());
    }
}
BENCHMARK(ImplementARecycler);

void ImplementASource(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(test::MakeSource());
    }
}
BENCHMARK(ImplementASource);

void MakeSettingsOfASource(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(test::MakeSourceSettings());
    }
}
BENCHMARK(MakeSettingsOfASource);

} // namespace
} // namespace kel::benchmarks

int main(int argc, char** argv) {
    kel::benchmarks::DiscardLogRecords();
    kel::test::LoadPlugin();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
