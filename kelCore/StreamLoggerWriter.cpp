#include "StreamLoggerWriter.h"

#include "Checks.h"
#include "PlatformString.h"

#include <cstddef>
#include <ios>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>

namespace kel {

namespace {

constexpr int kMostSevere = 3;

// The place of a level in the order of severity. Values without a name are never left out.
int SeverityOf(LogLevel level) {
    switch (level) {
    case LogLevel::Info:
        return 0;
    case LogLevel::Milestone:
        return 1;
    case LogLevel::Warning:
        return 2;
    default:
        return kMostSevere;
    }
}

std::string Hexadecimal(wchar_t value, std::size_t digits) {
    std::string text(digits, '0');
    auto rest = static_cast<unsigned>(value);
    for (std::size_t place = digits; place-- > 0; rest /= 16) {
        text[place] = "0123456789abcdef"[rest % 16];
    }
    return text;
}

// Appends a character of a wide text, see PlatformString.h for bytes that are not UTF-8.
void AppendPrintable(std::string& line, wchar_t character) {
    const bool isByte = character >= 0xDC80 && character <= 0xDCFF;
    if (character == L'\n' || character == L'\r' || character == L'\t') {
        line += character == L'\n' ? "\\n" : character == L'\r' ? "\\r" : "\\t";
    } else if (character < 0x20 || (character >= 0x7F && character < 0xA0) || isByte) {
        line += "\\x" + Hexadecimal(character & 0xFF, 2);
    } else if (character == 0x2028 || character == 0x2029) {
        line += "\\u" + Hexadecimal(character, 4);
    } else {
        line += ConvertWideStringToPlatformString(std::wstring(1, character));
    }
}

std::string Printable(const char* text) {
    std::string line;
    for (const wchar_t character : ConvertPlatformStringToWideString(text)) {
        AppendPrintable(line, character);
    }
    return line;
}

class StreamLoggerWriter final : public ILoggerWriter {
public:
    StreamLoggerWriter(LogLevel level, std::ostream& stream)
        : m_lowest(SeverityOf(level)), m_stream(stream) {}

    void Write(LogLevel level, const char* message, const char* context, const char* file,
               const char* line, const char* /*reserved*/, const char* threadId,
               const char* time) override {
        if (SeverityOf(level) < m_lowest) {
            return;
        }
        std::string text = std::string(time) + " " + ToString(level) + " [" + threadId + "] " +
                           Printable(message) + " (" + Printable(file) + ":" + line + ")";
        if (*context != '\0') {
            text += " in " + Printable(context);
        }
        text += '\n';
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stream.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
        if (!m_stream) {
            throw std::ios_base::failure("cannot write the record");
        }
    }

private:
    const int m_lowest;
    std::mutex m_mutex;
    std::ostream& m_stream;
};

} // namespace

std::shared_ptr<ILoggerWriter> CreateStreamLoggerWriter(LogLevel level, std::ostream& stream) {
    KEL_CHECK(level == LogLevel::Error || SeverityOf(level) < kMostSevere,
              ToString(level) << " is not a level of records");
    return std::make_shared<StreamLoggerWriter>(level, stream);
}

} // namespace kel
