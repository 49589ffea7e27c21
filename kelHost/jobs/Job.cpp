#include "jobs/Job.h"

#include "base/Text.h"

#include <exception>

namespace kel::host {

// An error that names another file, or an element, is about that.
ErrorText DescribeFailure(const std::exception& error, const Job& job) {
    ErrorText text = DescribeError(error, job.file);
    if (text.path.empty() && text.file == Escape(job.file)) {
        text.path = job.path;
    }
    return text;
}

} // namespace kel::host
