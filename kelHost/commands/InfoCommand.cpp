#include "commands/InfoCommand.h"

#include "analysis/FileInfo.h"
#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/Text.h"
#include "commands/CommonOptions.h"
#include "commands/InputOptions.h"
#include "commands/JobRunner.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

using nlohmann::json;

constexpr std::string_view kMeasurementFields = "measurement.";
constexpr std::string_view kChannelFields = "measurement.channels.";

// Returns the place of a field in a result: "/measurement/range_lu" for "measurement.range_lu".
json::json_pointer PointerTo(const std::string& field) {
    std::string pointer = "/" + field;
    std::replace(pointer.begin(), pointer.end(), '.', '/');
    return json::json_pointer(pointer);
}

bool StartsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

// Returns all fields of the result of a mono file. Channels are counted from 0, as in the document.
std::vector<std::string> FieldNames() {
    FileInfo mono;
    mono.rate = 1;
    mono.measurement.emplace();
    mono.measurement->channels.emplace_back();
    std::vector<std::string> names;
    const json members = json(mono).flatten();
    for (const auto& [pointer, value] : members.items()) {
        std::string name = pointer.substr(1);
        std::replace(name.begin(), name.end(), '/', '.');
        names.push_back(name);
    }
    return names;
}

// Returns the field of a mono file that corresponds to a field of any channel.
std::string FieldOfMono(const std::string& field) {
    constexpr std::size_t kMaxDigits = 4;
    if (!StartsWith(field, kChannelFields)) {
        return field;
    }
    const std::size_t begin = kChannelFields.size();
    const std::size_t end = std::min(field.find('.', begin), field.size());
    const std::string channel = field.substr(begin, end - begin);
    const bool isNumber = !channel.empty() && channel.size() <= kMaxDigits &&
                          std::all_of(channel.begin(), channel.end(),
                                      [](unsigned char digit) { return std::isdigit(digit) != 0; });
    const bool hasLeadingZero = channel.size() > 1 && channel.front() == '0';
    return isNumber && !hasLeadingZero ? std::string(kChannelFields) + "0" + field.substr(end)
                                       : field;
}

// The text of a value that may be null.
std::string OrUnknown(const json& value) {
    if (value.is_null()) {
        return "unknown";
    }
    return value.is_string() ? value.get<std::string>() : DumpJSON(value);
}

// Shows a table, followed by the measurements.
void ShowTable(const json& files, const std::vector<std::string>& measurements, std::ostream& out) {
    std::vector<std::vector<std::string>> rows;
    for (const json& file : files) {
        rows.push_back({file.at("file"), fmt::format("{}", file.at("channels").get<unsigned>()),
                        fmt::format("{} Hz", file.at("rate").get<unsigned>()),
                        OrUnknown(file.at("frames")), OrUnknown(file.at("duration")),
                        file.at("delivery")});
    }
    if (rows.empty()) {
        return;
    }
    out << FormatTable({{"File"},
                        {"Channels", Align::Right},
                        {"Rate", Align::Right},
                        {"Frames", Align::Right},
                        {"Duration", Align::Right},
                        {"Delivered as"}},
                       rows);
    for (const std::string& measurement : measurements) {
        out << "\n" << measurement;
    }
}

class InfoCommand final : public Command {
public:
    InfoCommand() : Command("info", "Show facts about audio files") {
        Add(Option("FILE", "", &m_files, "The files").Completes(Option::Values::Files).Required());
        Add(Option("--field", "NAME", &m_field,
                   "Show only this field of each file: frames, measurement.range_lu, ..."));
        Add(Option("--measure", "", &m_measure,
                   "Read the files and measure peak, RMS, and loudness (EBU R 128)"));
        for (Option& option : InputOptions(m_policy)) {
            Add(std::move(option));
        }
        SetNotes("Examples:\n"
                 "  kelhost info *.wav\n"
                 "  kelhost info --measure take.wav\n"
                 "  kelhost info --field frames take.wav\n"
                 "  kelhost info --field measurement.integrated_lufs *.wav\n"
                 "  kelhost info --json --measure take.wav");
    }

    void SetFiles(const std::vector<std::string>& files) { m_files = files; }

    void Interpret(const CommonOptions& /*common*/) override {
        if (!m_field.has_value()) {
            return;
        }
        const std::vector<std::string> names = FieldNames();
        if (std::find(names.begin(), names.end(), FieldOfMono(*m_field)) == names.end()) {
            throw InvalidValue("--field", *m_field, ListAlternatives(names));
        }
        m_measure = m_measure || StartsWith(*m_field, kMeasurementFields);
    }

    int Run(const CommonOptions& common, const Streams& streams) override {
        JobRunner runner(common, streams.err);
        for (const std::string& file : m_files) {
            runner.Add(file, "",
                       [file, measure = m_measure, policy = m_policy](const HostLogger& log,
                                                                      Reporter& reporter) {
                           return Inspect(file, measure, policy, log, reporter);
                       });
        }
        std::vector<std::string> measurements;
        std::size_t failed = runner.Run([&](const JobResult& result) {
            if (!result.output.empty()) {
                measurements.push_back(result.output);
            }
        });
        const json results = runner.Results();
        if (m_field.has_value()) {
            failed += ShowField(results, common.style.json, streams.out, runner);
        } else if (common.style.json) {
            streams.out << FormatDocument("info",
                                          {{"files", results}, {"failures", runner.Failures()}});
        } else {
            ShowTable(results, measurements, streams.out);
        }
        return failed == 0 ? kSuccess : kFailure;
    }

private:
    static JobResult Inspect(const std::string& file, bool measure, const InputPolicy& policy,
                             const HostLogger& log, Reporter& reporter) {
        const FileInfo info = ReadFileInfo(file, measure, policy, log, reporter);
        JobResult result;
        result.document = DumpJSON(info);
        if (info.measurement.has_value()) {
            result.output = info.file + "\n" + FormatMeasurement(*info.measurement);
        }
        return result;
    }

    // Shows the field of each file. Returns the number of files that do not have it.
    std::size_t ShowField(const json& files, bool asJSON, std::ostream& out,
                          JobRunner& runner) const {
        const json::json_pointer pointer = PointerTo(*m_field);
        std::size_t failed = 0;
        for (const json& file : files) {
            if (file.contains(pointer)) {
                const json& value = file.at(pointer);
                out << (value.is_string() && !asJSON ? value.get<std::string>() : DumpJSON(value))
                    << "\n";
                continue;
            }
            const auto channels = file.at("channels").get<std::uint64_t>();
            runner.ShowError(DescribeError(
                JobError(file.at("file"), fmt::format("has no field {}; it has {}, counted from 0",
                                                      *m_field, Count(channels, "channel")))));
            ++failed;
        }
        return failed;
    }

    std::vector<std::string> m_files;
    std::optional<std::string> m_field;
    bool m_measure = false;
    InputPolicy m_policy;
};

} // namespace

int ShowInfo(const std::vector<std::string>& files, const CommonOptions& common,
             const Streams& streams) {
    InfoCommand command;
    command.SetFiles(files);
    return command.Run(common, streams);
}

std::unique_ptr<Command> MakeInfoCommand() {
    return std::make_unique<InfoCommand>();
}

} // namespace kel::host
