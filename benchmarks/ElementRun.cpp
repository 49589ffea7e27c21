// Runs one job in a process of its own, so that other tools can count its memory, system calls and
// instructions.

#include "Jobs.h"

#include <cstdint>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::benchmarks {

namespace {

constexpr const char* kUsage =
    "usage: kelElementRun make FILE SECONDS RATE CHANNELS\n"
    "       kelElementRun pull-bare|pull-elements FILE BLOCK-FRAMES\n"
    "       kelElementRun copy-bare|copy-elements FILE BLOCK-FRAMES OUTPUT\n"
    "Prints the number of samples and the greatest resident memory in kB.\n";

// The largest resident memory of this process, as the kernel reports it.
std::string PeakMemory() {
    const std::string key = "VmHWM:";
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, key.size(), key) == 0) {
            return line.substr(line.find_first_of("0123456789"));
        }
    }
    throw std::runtime_error("the kernel does not report the peak memory");
}

template <typename Copy>
std::int64_t RunCopy(Copy copy) {
    copy.Begin();
    const std::int64_t samples = copy.CopyAll();
    copy.End();
    return samples;
}

std::int64_t RunJob(const std::string& job, const std::string& file, std::int64_t frames,
                    const std::string& output) {
    if (job == "pull-bare") {
        return BarePull(file, frames).PullAll();
    }
    if (job == "pull-elements") {
        return ElementPull(file, frames).PullAll();
    }
    if (job == "copy-bare") {
        return RunCopy(BareCopy(file, output, frames));
    }
    if (job == "copy-elements") {
        return RunCopy(ElementCopy(file, output, frames));
    }
    throw std::runtime_error(kUsage);
}

void Run(const std::vector<std::string>& arguments) {
    DiscardLogRecords();
    if (arguments.size() == 5 && arguments[0] == "make") {
        const int rate = std::stoi(arguments[3]);
        WriteWave(arguments[1],
                  {rate, std::stoi(arguments[4]), std::stol(arguments[2]) * std::int64_t{rate}});
        return;
    }
    if (arguments.size() < 3 || arguments.size() > 4) {
        throw std::runtime_error(kUsage);
    }
    const std::string output = arguments.size() == 4 ? arguments[3] : std::string();
    std::cout << RunJob(arguments[0], arguments[1], std::stol(arguments[2]), output) << " samples, "
              << PeakMemory() << "\n";
}

} // namespace
} // namespace kel::benchmarks

int main(int argc, char** argv) {
    try {
        kel::benchmarks::Run(std::vector<std::string>(argv + 1, argv + argc));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
