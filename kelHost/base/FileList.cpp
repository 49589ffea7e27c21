#include "base/FileList.h"

#include "base/Errors.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace kel::host {

namespace {

// Reads names one by one. The C library's function accepts any separator, and any bytes.
class NameReader {
public:
    NameReader(const std::string& path, NameSeparator separator)
        : m_shown(path == "-" ? "standard input" : path), m_separator(separator),
          m_file(path == "-" ? stdin : std::fopen(path.c_str(), "re"), Close) {
        if (m_file == nullptr) {
            throw JobError(m_shown,
                           fmt::format("cannot open for reading: {}", std::strerror(errno)));
        }
    }
    ~NameReader() { const std::unique_ptr<char, decltype(&std::free)> buffer(m_buffer, std::free); }
    NameReader(const NameReader&) = delete;
    NameReader& operator=(const NameReader&) = delete;

    // Reads the next name, without its separator. Returns false at the end.
    bool Next() {
        errno = 0;
        const ssize_t count =
            getdelim(&m_buffer, &m_capacity, static_cast<int>(m_separator), m_file.get());
        if (count < 0 && errno != 0) {
            throw JobError(m_shown, fmt::format("cannot read the list: {}", std::strerror(errno)));
        }
        m_name = std::string_view(m_buffer, count < 0 ? 0 : static_cast<std::size_t>(count));
        if (!m_name.empty() && m_name.back() == static_cast<char>(m_separator)) {
            m_name.remove_suffix(1);
        }
        ++m_number;
        return count >= 0;
    }

    std::string_view Name() const { return m_name; }

    [[noreturn]] void Fail(std::string_view problem) const {
        throw JobError(m_shown, fmt::format("name {} {}", m_number, problem));
    }

private:
    static void Close(std::FILE* file) {
        if (file != stdin) {
            static_cast<void>(std::fclose(file));
        }
    }

    std::string m_shown;
    NameSeparator m_separator;
    std::unique_ptr<std::FILE, void (*)(std::FILE*)> m_file;
    char* m_buffer = nullptr;
    std::size_t m_capacity = 0;
    std::string_view m_name;
    std::size_t m_number = 0; // of the name, from 1
};

} // namespace

std::vector<std::string> ReadFileList(const std::string& path, NameSeparator separator) {
    std::vector<std::string> names;
    NameReader reader(path, separator);
    while (reader.Next()) {
        const std::string_view name = reader.Name();
        if (name.empty()) {
            if (separator == NameSeparator::Null) {
                reader.Fail("is empty");
            }
            continue;
        }
        if (name.find('\0') != std::string_view::npos) {
            reader.Fail("contains a NUL character; use --null");
        }
        names.emplace_back(name == "-" ? "./-" : name);
    }
    return names;
}

} // namespace kel::host
