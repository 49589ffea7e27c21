#include "commands/InfoCommand.h"

#include "analysis/FileInfo.h"
#include "base/Errors.h"
#include "base/FileName.h"
#include "base/JSONDocument.h"
#include "commands/CommonOptions.h"
#include "commands/InfoDetails.h"
#include "commands/InfoFields.h"
#include "commands/InfoTable.h"
#include "commands/InputFiles.h"
#include "commands/InputOptions.h"
#include "commands/JobRunner.h"
#include "elements/SourceReader.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

namespace {

using nlohmann::json;

// Forms of the result.
enum class InfoForm {
    Table,
    Details,
    Document,
    Fields,
    CSV,
};

class InfoCommand final : public Command {
public:
    InfoCommand() {
        Add(Option("FILE", "", &m_files, "The files; - is standard input")
                .Completes(Option::Values::Files));
        BeginGroup("Facts");
        Add(Option("--measure", "", &m_measure,
                   "Read the files and measure peak, RMS, and loudness (EBU R 128)"));
        Add(Option("--checksum", "", &m_checksum,
                   "Read the files and compute the MD5 of their samples, as FLAC and ffmpeg do"));
        BeginGroup("Form of the result");
        Add(Option("--full", "", &m_full, "Show all facts about each file, as for a single one"));
        Add(Option("--field", "NAME,...", &m_fieldNames,
                   "Show only these fields of each file: frames, broadcast.date, tags.title, "
                   "measurement.range_lu, ...")
                .Offers(FieldNames)
                .Excludes("--full"));
        Add(Option("--csv", "", &m_csv,
                   "Show a line of comma-separated values for each file; --field selects them")
                .Excludes("--full"));
        BeginGroup("Damaged inputs and pipes");
        for (Option& option : m_input.Options()) {
            Add(std::move(option));
        }
        BeginGroup("Many inputs");
        for (Option& option : m_tree.Options()) {
            Add(std::move(option));
        }
        for (Option& option : m_list.Options()) {
            Add(std::move(option));
        }
        AddExample("kelhost info take.wav", "Show everything about a file");
        AddExample("kelhost info --measure *.wav", "Measure levels and loudness");
        AddExample("kelhost info -r recordings --csv --field file,duration",
                   "List durations of a directory for a spreadsheet");
        AddExample("kelhost info --checksum take.wav take.flac",
                   "Compare checksums of the samples");
    }

    void SetFiles(const std::vector<std::string>& files) { m_files = files; }

    void Interpret(const CommonOptions& common) override {
        m_policy = m_input.Interpret();
        m_list.RequireNames(m_files);
        if (m_tree.recursive) {
            m_selection = m_tree.Interpret();
        }
        if (m_fieldNames.has_value()) {
            m_fields = ParseFields(*m_fieldNames);
        }
        if (common.style.json && (m_csv || m_full)) {
            throw UsageError(m_csv ? "--json excludes --csv" : "--json excludes --full");
        }
    }

    int Run(const CommonOptions& common, const Streams& streams) override {
        m_list.Append(m_files);
        const InputList inputs = ListInputs(m_files, m_selection);
        const InfoForm form = Form(common, inputs.files.size() == 1);
        InfoRequest request;
        request.measure = m_measure;
        request.checksum = m_checksum;
        request.metadata = form == InfoForm::Details || form == InfoForm::Document;
        if (form == InfoForm::CSV && m_fields.empty()) {
            m_fields = CSVFields(request);
        }
        RequestFields(m_fields, request);
        std::vector<std::string> texts;
        const auto collect = [&](const JobResult& result) {
            if (!result.isSkipped) {
                texts.push_back(result.output);
            }
        };
        JobRunner runner(common, streams.err);
        runner.Begin(inputs.failures, inputs.unused, collect);
        for (const ListedFile& file : inputs.files) {
            runner.Add(InputName(file.path), "", [&](const HostLogger& log, Reporter& reporter) {
                return Inspect(file, request, m_policy, form, m_fields, log, reporter);
            });
        }
        std::size_t failed = runner.Run(collect);
        switch (form) {
        case InfoForm::Table:
            streams.out << FormatInfoTable(request, texts);
            break;
        case InfoForm::Details:
            ShowDetails(texts, streams.out);
            break;
        case InfoForm::Document:
            ShowDocument(runner, streams.out);
            break;
        case InfoForm::Fields:
        case InfoForm::CSV:
            failed += ShowFields(common.style.json, streams.out, runner);
            break;
        }
        if (CountAll(runner.Skipped()) > 0 && !common.style.json && !common.style.quiet) {
            streams.err << "kelhost: " << FormatSkipped(runner.Skipped(), true) << '\n';
        }
        return failed == 0 ? kSuccess : kFailure;
    }

private:
    InfoForm Form(const CommonOptions& common, bool isOneFile) const {
        if (m_csv) {
            return InfoForm::CSV;
        }
        if (!m_fields.empty()) {
            return InfoForm::Fields;
        }
        if (common.style.json) {
            return InfoForm::Document;
        }
        return m_full || (isOneFile && !m_selection.has_value()) ? InfoForm::Details
                                                                 : InfoForm::Table;
    }

    static JobResult Inspect(const ListedFile& file, const InfoRequest& request,
                             const InputPolicy& policy, InfoForm form,
                             const std::vector<std::string>& fields, const HostLogger& log,
                             Reporter& reporter) {
        try {
            const FileName name = InputName(file.path);
            return Show(ReadFileInfo(name, request, policy, log, reporter), form, fields);
        } catch (const UnrecognisedFile&) {
            if (!file.isFound) {
                throw;
            }
            return DescribeSkipped({file.path, FileName(), SkipReason::NotAudio});
        }
    }

    static JobResult Show(const FileInfo& info, InfoForm form,
                          const std::vector<std::string>& fields) {
        JobResult result;
        if (form == InfoForm::Table) {
            result.output = FormatRow(info);
        } else if (form == InfoForm::Details) {
            result.output = FormatDetails(info);
        } else if (form == InfoForm::Document) {
            result.document = DumpJSON(info);
        } else {
            result.document = DumpJSON(MembersOf(info, fields));
        }
        return result;
    }

    static void ShowDetails(const std::vector<std::string>& texts, std::ostream& out) {
        for (std::size_t i = 0; i < texts.size(); ++i) {
            out << (i == 0 ? "" : "\n") << texts[i];
        }
    }

    void ShowDocument(const JobRunner& runner, std::ostream& out) const {
        json members{{"failures", runner.Failures()}};
        if (m_selection.has_value()) {
            members["skipped"] = runner.SkippedInputs();
        }
        WriteDocument(out, "info", members, "files", runner.Documents());
    }

    // Shows the fields of each file. Returns the number of files that do not have one of them.
    std::size_t ShowFields(bool asJSON, std::ostream& out, JobRunner& runner) const {
        if (m_csv) {
            out << FormatCSVLine(m_fields);
        }
        std::size_t failed = 0;
        for (const std::string& document : runner.Documents()) {
            const json file = ParseJSON(document);
            std::vector<json> values(m_fields.size());
            try {
                std::transform(m_fields.begin(), m_fields.end(), values.begin(),
                               [&](const std::string& field) { return FieldOf(file, field); });
            } catch (const JobError& error) {
                runner.ShowError(DescribeError(error));
                ++failed;
                continue;
            }
            out << (m_csv ? FormatCSVLine(values) : FormatFields(values, asJSON));
        }
        return failed;
    }

    std::vector<std::string> m_files;
    TreeArguments m_tree;
    ListArguments m_list;
    std::optional<TreeSelection> m_selection; // none: directories are not accepted
    std::optional<std::string> m_fieldNames;
    std::vector<std::string> m_fields;
    bool m_full = false;
    bool m_measure = false;
    bool m_checksum = false;
    bool m_csv = false;
    InputArguments m_input;
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
