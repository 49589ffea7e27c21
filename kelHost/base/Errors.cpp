#include "base/Errors.h"

#include "base/Text.h"

#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace kel::host {

JobError::JobError(std::string file, const std::string& message)
    : std::runtime_error(message), m_file(std::move(file)) {}

JobError::JobError(const std::string& message) : std::runtime_error(message) {}

UsageError InvalidValue(std::string_view name, std::string_view value, std::string_view expected) {
    std::string message = "invalid value \"";
    message.append(value).append("\" for ").append(name).append(": expected ").append(expected);
    return UsageError(message);
}

const char* UserMessage(const std::exception& error) {
    return dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? kNoMemory : error.what();
}

ErrorText DescribeError(const std::exception& error, const std::string& file) {
    const auto* jobError = dynamic_cast<const JobError*>(&error);
    ErrorText text;
    text.path = jobError != nullptr ? jobError->File() : "";
    text.file = Escape(text.path.empty() ? file : text.path);
    text.message = Escape(UserMessage(error));
    const bool namesFile = jobError == nullptr || !jobError->File().empty();
    if (namesFile && !text.file.empty()) {
        text.message.insert(0, text.file + ": ");
    }
    return text;
}

} // namespace kel::host
