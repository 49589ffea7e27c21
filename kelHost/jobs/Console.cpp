#include "jobs/Console.h"

#include "base/FileName.h"
#include "base/JSONDocument.h"
#include "base/Text.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

std::size_t Console::Run(const std::vector<Job>& jobs, const WorkerOptions& options,
                         OnResult onResult) {
    m_onResult = std::move(onResult);
    m_failures.clear();
    m_waiting.clear();
    m_next = 0;
    m_jobs = &jobs;
    std::vector<FileName> files;
    for (const Job& job : jobs) {
        files.emplace_back(job.path, job.file);
    }
    Progress progress(m_err, m_style.quiet ? ProgressStyle::None : m_style.progress, files,
                      m_style.width, Progress::Clock::now());
    m_progress = &progress;
    try {
        RunJobs(jobs, options, *this);
    } catch (...) {
        progress.Clear();
        m_progress = nullptr;
        throw;
    }
    progress.Clear();
    m_progress = nullptr;
    return m_failures.size();
}

void Console::ShowError(const ErrorText& error) {
    if (!m_style.json) {
        ShowLine(Coloured("kelhost:", Colour::Red, m_style.colours) + " " + error.message + "\n");
        return;
    }
    nlohmann::json members{{"file", error.file}, {"message", error.message}};
    AddPath(members, "path", error.path);
    ShowLine(FormatDocument("error", std::move(members)));
}

void Console::ShowLog(const std::string& line) {
    if (m_style.json) {
        ShowLine(FormatDocument("log", {{"text", line}}));
        return;
    }
    constexpr std::string_view kWarning = "kelhost: warning:";
    const bool isWarning = line.compare(0, kWarning.size(), kWarning) == 0;
    const std::size_t coloured = isWarning ? kWarning.size() : 0;
    ShowLine(Coloured(line.substr(0, coloured), Colour::Yellow, m_style.colours) +
             line.substr(coloured) + "\n");
}

void Console::ShowLine(const std::string& line) {
    if (m_progress != nullptr) {
        m_progress->Clear();
    }
    m_err << line << std::flush;
}

void Console::OnSpooled(std::size_t job, std::uint64_t bytes) {
    m_progress->Spool(job, bytes, Progress::Clock::now());
}

void Console::OnProgress(std::size_t job, std::int64_t done, std::int64_t total,
                         std::uint32_t rate) {
    m_progress->Update(job, done, total, rate, Progress::Clock::now());
}

void Console::OnWaiting(std::size_t job, std::int64_t seconds) {
    m_progress->Wait(job, seconds, Progress::Clock::now());
}

void Console::OnShow(std::size_t /*job*/, const std::string& line) {
    ShowLog(line);
}

void Console::OnPrinted(std::size_t job, const std::string& line) {
    if (m_style.showsPrinted) {
        ShowLog(Escape((*m_jobs)[job].file + ": " + line));
    }
}

void Console::OnFinished(std::size_t job, const JobOutcome& outcome) {
    m_waiting.emplace(job, outcome);
    for (auto first = m_waiting.find(m_next); first != m_waiting.end();
         first = m_waiting.find(m_next)) {
        Deliver(m_next, first->second);
        m_waiting.erase(first);
        ++m_next;
    }
    m_progress->Finish(job, outcome.succeeded, Progress::Clock::now());
}

void Console::Deliver(std::size_t job, const JobOutcome& outcome) {
    if (outcome.succeeded) {
        m_progress->Clear();
        m_onResult(job, outcome.result);
    } else {
        m_failures.push_back(outcome.error);
        ShowError(outcome.error);
    }
}

} // namespace kel::host
