#include "commands/JobRunner.h"

#include "base/FileName.h"
#include "base/JSONDocument.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

nlohmann::json ParseAll(const std::vector<std::string>& documents) {
    auto all = nlohmann::json::array();
    for (const std::string& document : documents) {
        all.push_back(ParseJSON(document));
    }
    return all;
}

} // namespace

JobRunner::JobRunner(const CommonOptions& common, std::ostream& err)
    : m_common(common), m_console(err, common.style) {}

void JobRunner::Add(const FileName& file, const std::string& output, Work work) {
    Job job;
    job.file = file.shown;
    job.path = PathToOpen(file);
    job.outputDirectory = output.empty() ? "" : ParentDirectory(output);
    job.run = [verbosity = m_common.verbosity, work = std::move(work)](Reporter& reporter) {
        const auto log = std::make_shared<HostLogger>(
            [&reporter](const std::string& line) { reporter.Show(line); }, verbosity);
        const InstalledLogger installed(log);
        return work(*log, reporter);
    };
    m_jobs.push_back(std::move(job));
}

std::size_t JobRunner::Run(const std::function<void(const JobResult&)>& show) {
    const WorkerOptions options{m_common.jobs, m_common.openTimeout, m_common.stallTimeout,
                                !m_common.style.quiet &&
                                    m_common.style.progress != ProgressStyle::None};
    m_console.Run(m_jobs, options, [&](std::size_t, const JobResult& result) {
        if (result.isSkipped) {
            AddSkipped(result);
        } else if (m_keepsDocuments) {
            m_documents.push_back(result.document);
        }
        if (!m_common.style.json) {
            show(result);
        }
    });
    m_failures.insert(m_failures.end(), m_console.Failures().begin(), m_console.Failures().end());
    return m_failures.size();
}

void JobRunner::Begin(const std::vector<JobError>& failures, const std::vector<UnusedFile>& unused,
                      const std::function<void(const JobResult&)>& show) {
    m_unreadDirectories = failures.size();
    for (const JobError& failure : failures) {
        m_failures.push_back(DescribeError(failure));
        m_console.ShowError(m_failures.back());
    }
    for (const UnusedFile& file : unused) {
        const JobResult result =
            DescribeSkipped({file.path, FileName(),
                             file.isLink ? SkipReason::SymbolicLink : SkipReason::SpecialFile});
        AddSkipped(result);
        if (!m_common.style.json) {
            show(result);
        }
    }
}

void JobRunner::AddSkipped(const JobResult& result) {
    ++m_skipped[ReasonIn(result.document)];
    if (m_common.style.json) {
        m_skippedDocuments.push_back(result.document);
    }
}

nlohmann::json JobRunner::Results() const {
    return ParseAll(m_documents);
}

nlohmann::json JobRunner::SkippedFiles() const {
    return ParseAll(m_skippedDocuments);
}

nlohmann::json JobRunner::SkippedInputs() const {
    auto files = nlohmann::json::array();
    for (const nlohmann::json& file : SkippedFiles()) {
        nlohmann::json members{{"file", file.at("input")}, {"reason", file.at("reason")}};
        for (const char* ending : {"path", "path_hex"}) {
            if (file.contains(std::string("input_") + ending)) {
                members[ending] = file.at(std::string("input_") + ending);
            }
        }
        files.push_back(std::move(members));
    }
    return files;
}

nlohmann::json JobRunner::Failures() const {
    auto failures = nlohmann::json::array();
    for (std::size_t i = 0; i < m_failures.size(); ++i) {
        const ErrorText& failure = m_failures[i];
        nlohmann::json members{{"file", failure.file}, {"message", failure.message}};
        AddPath(members, "path", failure.path);
        if (i < m_unreadDirectories) {
            members["directory"] = true;
        }
        failures.push_back(std::move(members));
    }
    return failures;
}

std::string FormatFailed(std::size_t failed, std::size_t directories) {
    const std::string text = fmt::format("{} failed", failed - directories);
    return directories == 0 ? text
                            : fmt::format("{}; {} {} could not be read", text, directories,
                                          directories == 1 ? "directory" : "directories");
}

} // namespace kel::host
