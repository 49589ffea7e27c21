// Compares the times of the elements and of bare libsndfile: pulling, copying, opening.

#include "Jobs.h"
#include "Pairs.h"

#include <TemporaryDirectory.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::benchmarks {

namespace {

constexpr const char* kUsage =
    "usage: kelElementTimes [--json] [--directory DIRECTORY] [--rounds N] [--seconds N] [--files "
    "N]\n"
    "                       [--only pulling|copying|opening]\n"
    "  --directory   where the files are made; a memory file system (default: /dev/shm if there "
    "is\n"
    "             one, else the directory for temporary files)\n"
    "  --rounds   rounds of pulling and of copying per block size (default 501)\n"
    "  --seconds  length of the stereo file that is pulled and copied (default 10)\n"
    "  --files    files that are opened, each by every contestant; 200 different ones, over and\n"
    "             over again (default 10000)\n";

struct Options {
    bool json = false;
    std::string directory;
    std::size_t rounds = 501;
    std::int64_t seconds = 10;
    std::size_t files = 10000;
    std::string only; // empty for everything

    bool Wants(const char* work) const { return only.empty() || only == work; }
};

// A whole number of at least 1.
std::size_t ParseCount(const std::string& text) {
    constexpr std::size_t kMostDigits = 9;
    const bool isNumber = !text.empty() && text.size() <= kMostDigits &&
                          text.find_first_not_of("0123456789") == std::string::npos;
    if (!isNumber || std::stoul(text) == 0) {
        throw std::runtime_error(kUsage);
    }
    return std::stoul(text);
}

Options Parse(const std::vector<std::string>& arguments) {
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& name = arguments[i];
        if (name == "--json") {
            options.json = true;
            continue;
        }
        if (i + 1 == arguments.size()) {
            throw std::runtime_error(kUsage);
        }
        const std::string& value = arguments[++i];
        if (name == "--directory") {
            options.directory = value;
        } else if (name == "--rounds") {
            options.rounds = ParseCount(value);
        } else if (name == "--seconds") {
            options.seconds = static_cast<std::int64_t>(ParseCount(value));
        } else if (name == "--files") {
            options.files = ParseCount(value);
        } else if (name == "--only") {
            options.only = value;
        } else {
            throw std::runtime_error(kUsage);
        }
    }
    const char* const kMemoryFileSystem = "/dev/shm";
    if (options.directory.empty() && std::filesystem::is_directory(kMemoryFileSystem)) {
        options.directory = kMemoryFileSystem;
    }
    return options;
}

struct Row {
    std::string work;
    std::int64_t frames;
    std::string unit;       // the unit of the counts
    double baseNanoseconds; // per unit
    Median ratio;
    Median beyond;     // nanoseconds per unit
    double goal;       // greatest ratio; 0 for none
    double beyondGoal; // greatest time beyond the base, nanoseconds per unit; 0 for none
};

Row MakeRow(std::string work, std::int64_t frames, std::string unit, std::int64_t units,
            const Pairs& pairs, double goal, double beyondGoal = 0) {
    const auto count = static_cast<double>(units);
    Median beyond = pairs.Difference();
    beyond = {beyond.value / count, beyond.low / count, beyond.high / count};
    return {
        std::move(work), frames, std::move(unit), MedianOf(pairs.base).value / count, pairs.Ratio(),
        beyond,          goal,   beyondGoal};
}

std::string Format(int decimals, double value) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

std::string Format(int decimals, const Median& median) {
    return Format(decimals, median.value) + " (" + Format(decimals, median.low) + " to " +
           Format(decimals, median.high) + ")";
}

std::string Verdict(const Row& row) {
    std::string verdict;
    const auto judge = [&verdict](const std::string& goal, bool isMet) {
        verdict += (verdict.empty() ? "" : "; ") + goal + (isMet ? " met" : " missed");
    };
    if (row.goal > 0) {
        judge(Format(2, row.goal), row.ratio.value <= row.goal);
    }
    if (row.beyondGoal > 0) {
        judge(Format(0, row.beyondGoal) + " ns", row.beyond.value <= row.beyondGoal);
    }
    return verdict.empty() ? "-" : verdict;
}

void PrintTable(std::ostream& stream, const std::vector<Row>& rows) {
    stream << "| Work | Block, frames | Bare, ns | Ratio (95 % confidence) "
              "| Beyond bare, ns (95 % confidence) | Per | Goals |\n"
              "|---|---|---|---|---|---|---|\n";
    for (const Row& row : rows) {
        stream << "| " << row.work << " | " << row.frames << " | " << Format(0, row.baseNanoseconds)
               << " | " << Format(4, row.ratio) << " | " << Format(0, row.beyond) << " | "
               << row.unit << " | " << Verdict(row) << " |\n";
    }
}

void PrintJson(std::ostream& stream, const std::vector<Row>& rows) {
    const auto number = [](double value) {
        return Format(6, value);
    };
    const auto triple = [&](const Median& median) {
        return "[" + number(median.value) + ", " + number(median.low) + ", " + number(median.high) +
               "]";
    };
    const auto goal = [&](double value) {
        return value > 0 ? number(value) : "null";
    };
    stream << "[";
    const char* separator = "\n";
    for (const Row& row : rows) {
        stream << separator << "  {\"work\": \"" << row.work << "\", \"frames\": " << row.frames
               << ", \"per\": \"" << row.unit
               << "\", \"bareNanoseconds\": " << number(row.baseNanoseconds)
               << ", \"ratio\": " << triple(row.ratio)
               << ", \"beyondNanoseconds\": " << triple(row.beyond)
               << ", \"goal\": " << goal(row.goal) << ", \"beyondGoal\": " << goal(row.beyondGoal)
               << "}";
        separator = ",\n";
    }
    stream << "\n]\n";
}

// The bare work a second time: the difference of its ratio from 1 is an effect of the machine, not
// of the elements.
constexpr const char* kControl = ", bare against bare";

void ComparePulling(std::vector<Row>& rows, const Options& options, const std::string& file,
                    std::int64_t frames, double goal) {
    BarePull bare(file, frames);
    BarePull control(file, frames);
    ElementPull elements(file, frames);
    std::int64_t samples = 0;
    const auto pass = [&samples](auto& job) {
        return [&job, &samples] {
            job.Rewind();
            return NanosecondsOf([&] { samples = job.PullAll(); });
        };
    };
    const auto pairs = Compare(options.rounds, {pass(bare), pass(elements), pass(control)});
    rows.push_back(MakeRow("Pulling", frames, "sample", samples, pairs[0], goal));
    rows.push_back(
        MakeRow(std::string("Pulling") + kControl, frames, "sample", samples, pairs[1], 0));
}

void CompareCopying(std::vector<Row>& rows, const Options& options, const std::string& file,
                    std::int64_t frames, double goal) {
    constexpr double kMaxBeyond = 300; // nanoseconds for GetSample and PushSample together
    const std::string output = file + ".copy.wav";
    BareCopy bare(file, output, frames);
    BareCopy control(file, output, frames);
    ElementCopy elements(file, output, frames);
    std::int64_t samples = 0;
    const auto pass = [&samples](auto& job) {
        return [&job, &samples] {
            job.Begin();
            const double nanoseconds = NanosecondsOf([&] { samples = job.CopyAll(); });
            job.End();
            return nanoseconds;
        };
    };
    const auto pairs = Compare(options.rounds, {pass(bare), pass(elements), pass(control)});
    rows.push_back(MakeRow("Copying", frames, "sample", samples, pairs[0], goal, kMaxBeyond));
    rows.push_back(
        MakeRow(std::string("Copying") + kControl, frames, "sample", samples, pairs[1], 0));
}

// The contestants take turns of some files each, so that a pass is long enough to be timed.
void CompareOpening(std::vector<Row>& rows, const Options& options,
                    const test::TemporaryDirectory& directory) {
    constexpr std::size_t kDifferentFiles = 200;
    constexpr std::size_t kFilesPerTurn = 20;
    constexpr std::int64_t kFrames = 1024;
    constexpr double kGoal = 1.15;
    std::vector<std::string> paths;
    std::vector<std::wstring> widePaths;
    for (std::size_t i = 0; i < kDifferentFiles; ++i) {
        paths.push_back(directory / ("short" + std::to_string(i) + ".wav"));
        widePaths.push_back(ConvertPlatformStringToWideString(paths.back()));
        WriteWave(paths.back(), {48000, 2, 24000});
    }

    BareOpening bare(kFrames);
    BareOpening control(kFrames);
    ReusedSource reused(kFrames);
    SourcePerFile perFile(kFrames);
    const auto pass = [](auto& job, const auto& names) {
        return [&job, &names, next = std::size_t{0}]() mutable {
            return NanosecondsOf([&] {
                for (std::size_t i = 0; i < kFilesPerTurn; ++i) {
                    job.ReadFile(names[next++ % kDifferentFiles]);
                }
            });
        };
    };
    const auto pairs = Compare(std::max(options.files / kFilesPerTurn, std::size_t{1}),
                               {pass(bare, paths), pass(reused, widePaths),
                                pass(perFile, widePaths), pass(control, paths)});
    constexpr auto kCount = static_cast<std::int64_t>(kFilesPerTurn);
    rows.push_back(MakeRow("Opening, one source", kFrames, "file", kCount, pairs[0], kGoal));
    rows.push_back(MakeRow("Opening, a source per file", kFrames, "file", kCount, pairs[1], kGoal));
    rows.push_back(
        MakeRow(std::string("Opening") + kControl, kFrames, "file", kCount, pairs[2], 0));
}

int Run(const Options& options) {
    if (!options.directory.empty()) {
        setenv("TMPDIR", options.directory.c_str(), 1);
    }
    const test::TemporaryDirectory directory;
    DiscardLogRecords();
    const std::string file = directory / "long.wav";
    WriteWave(file, {48000, 2, 48000 * options.seconds});

    std::vector<Row> rows;
    if (options.Wants("pulling")) {
        ComparePulling(rows, options, file, 256, 0);
        ComparePulling(rows, options, file, 1024, 1.12);
        ComparePulling(rows, options, file, 16384, 1.02);
    }
    if (options.Wants("copying")) {
        CompareCopying(rows, options, file, 256, 0);
        CompareCopying(rows, options, file, 1024, 1.04);
        CompareCopying(rows, options, file, 16384, 1.01);
    }
    if (options.Wants("opening")) {
        CompareOpening(rows, options, directory);
    }
    (options.json ? PrintJson : PrintTable)(std::cout, rows);
    return 0;
}

} // namespace
} // namespace kel::benchmarks

int main(int argc, char** argv) {
    try {
        return kel::benchmarks::Run(
            kel::benchmarks::Parse(std::vector<std::string>(argv + 1, argv + argc)));
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
