#include "commands/JobRunner.h"

#include "base/FileName.h"
#include "base/JSONDocument.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

JobRunner::JobRunner(const CommonOptions& common, std::ostream& err)
    : m_common(common), m_console(err, common.style) {}

void JobRunner::Add(const std::string& file, const std::string& output, Work work) {
    Job job;
    job.file = file;
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
    return m_console.Run(m_jobs, options, [&](std::size_t, const JobResult& result) {
        m_documents.push_back(result.document);
        m_skipped += result.isSkipped ? 1 : 0;
        if (!m_common.style.json) {
            show(result);
        }
    });
}

nlohmann::json JobRunner::Results() const {
    auto results = nlohmann::json::array();
    for (const std::string& document : m_documents) {
        results.push_back(ParseJSON(document));
    }
    return results;
}

nlohmann::json JobRunner::Failures() const {
    auto failures = nlohmann::json::array();
    for (const ErrorText& failure : m_console.Failures()) {
        nlohmann::json members{{"file", failure.file}, {"message", failure.message}};
        AddPath(members, "path", failure.path);
        failures.push_back(std::move(members));
    }
    return failures;
}

} // namespace kel::host
