/// Properties of a library or program that the loader uses, as readelf reports them.
/// One thread at a time.
#pragma once

#include <Process.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::test {

/// The names in a set, sorted.
using SymbolNames = std::set<std::string>;

/// A library or program on disk.
class Binary {
public:
    explicit Binary(const std::string& path)
        : m_path(path), m_dynamic(ReadElf("--dynamic")), m_segments(ReadElf("--program-headers")),
          m_symbols(ReadElf("--dyn-syms")) {}

    /// Returns the libraries that it needs, in its order.
    std::vector<std::string> Needed() const { return BracketedOf("(NEEDED)"); }

    /// Returns the name under which other files need it; none or one.
    std::vector<std::string> Soname() const { return BracketedOf("(SONAME)"); }

    /// Returns the directories where the loader looks first; none or one.
    std::vector<std::string> RunPath() const {
        std::vector<std::string> paths = BracketedOf("(RUNPATH)");
        const std::vector<std::string> old = BracketedOf("(RPATH)");
        paths.insert(paths.end(), old.begin(), old.end());
        return paths;
    }

    /// Returns true when the loader resolves all references before its code runs.
    bool IsBoundAtOnce() const { return !LinesWith(m_dynamic, "BIND_NOW").empty(); }

    /// Returns true when the loader changes its code, so that no process shares it.
    bool HasTextRelocations() const { return !LinesWith(m_dynamic, "TEXTREL").empty(); }

    /// Returns true when its tables of references are read-only once they are resolved.
    bool IsRelocatedReadOnly() const { return !LinesWith(m_segments, "GNU_RELRO").empty(); }

    /// Returns the access to its stack as readelf shows it, "RW" without execution.
    std::string StackAccess() const {
        const std::vector<std::string> lines = LinesWith(m_segments, "GNU_STACK");
        if (lines.size() != 1) {
            throw std::runtime_error(m_path + " does not declare its stack");
        }
        // type, offset, two addresses, two sizes, access, alignment
        std::istringstream fields(lines.front());
        std::string field;
        std::string access;
        for (int i = 0; i < 7 && fields >> field; ++i) {
            access = field;
        }
        return access;
    }

    /// Returns the segments that are both writable and executable.
    std::vector<std::string> WritableCode() const {
        std::vector<std::string> found;
        for (const std::string& line : LinesWith(m_segments, " LOAD ")) {
            if (line.find("RWE") != std::string::npos) {
                found.push_back(line);
            }
        }
        return found;
    }

    /// Returns the exported names as the linker uses them.
    SymbolNames Exported() const {
        SymbolNames names;
        for (const std::string& line : Lines(m_symbols)) {
            // number, value, size, type, binding, visibility, section, name
            std::istringstream fields(line);
            std::vector<std::string> parts;
            for (std::string part; fields >> part;) {
                parts.push_back(part);
            }
            if (parts.size() >= 8 && (parts[4] == "GLOBAL" || parts[4] == "WEAK") &&
                parts[6] != "UND") {
                names.insert(parts[7].substr(0, parts[7].find('@')));
            }
        }
        return names;
    }

    /// Returns the messages of the loader on missing libraries and symbols; empty without any.
    std::string Unresolved() const {
        const ProcessResult result = Run("/usr/bin/ldd", {"-r", m_path});
        std::string missing;
        for (const std::string& line : Lines(result.out + result.err)) {
            if (line.find("undefined symbol") != std::string::npos ||
                line.find("not found") != std::string::npos) {
                missing += line + "\n";
            }
        }
        return missing;
    }

private:
    static ProcessResult Run(const std::string& program, std::vector<std::string> arguments) {
        Command command;
        command.program = program;
        command.arguments = std::move(arguments);
        command.environment["LC_ALL"] = "C";
        ProcessResult result = RunCommand(command);
        if (result.status != 0) {
            throw std::runtime_error(program + ": " + result.err);
        }
        return result;
    }

    std::string ReadElf(const std::string& option) const {
        return Run("/usr/bin/readelf", {"--wide", option, m_path}).out;
    }

    static std::vector<std::string> Lines(const std::string& text) {
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    static std::vector<std::string> LinesWith(const std::string& text, const std::string& part) {
        std::vector<std::string> lines = Lines(text);
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [&part](const std::string& line) {
                                       return line.find(part) == std::string::npos;
                                   }),
                    lines.end());
        return lines;
    }

    // Returns the texts in brackets on the lines of one kind.
    std::vector<std::string> BracketedOf(const std::string& kind) const {
        std::vector<std::string> texts;
        for (const std::string& line : LinesWith(m_dynamic, kind)) {
            const std::size_t begin = line.find('[') + 1;
            texts.push_back(line.substr(begin, line.rfind(']') - begin));
        }
        return texts;
    }

    std::string m_path;
    std::string m_dynamic;
    std::string m_segments;
    std::string m_symbols;
};

/// Expects the properties of all binaries of the project: all references are resolved at the start
/// and read-only afterwards, and no executable memory is writable.
inline void ExpectHardened(const Binary& binary) {
    EXPECT_EQ(binary.Unresolved(), "");
    EXPECT_TRUE(binary.IsBoundAtOnce());
    EXPECT_TRUE(binary.IsRelocatedReadOnly());
    EXPECT_FALSE(binary.HasTextRelocations());
    EXPECT_EQ(binary.StackAccess(), "RW");
    EXPECT_EQ(binary.WritableCode(), std::vector<std::string>());
}

} // namespace kel::test
