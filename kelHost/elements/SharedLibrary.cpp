#include "elements/SharedLibrary.h"

#include "base/Errors.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <ios>
#include <link.h>
#include <string>
#include <system_error>
#include <vector>

namespace kel::host {

namespace {

// A library file. Whatever its tables contain, nothing outside of the file is read.
class LibraryFile {
public:
    explicit LibraryFile(const std::filesystem::path& file)
        : m_name(file.string()), m_stream(Open(file)),
          m_size(m_stream.is_open() ? static_cast<std::uint64_t>(m_stream.tellg()) : 0) {
        if (m_size >= sizeof m_header) {
            m_header = At<ElfW(Ehdr)>(0);
        }
    }

    bool IsLibrary() const {
        constexpr unsigned char kClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
        return std::memcmp(m_header.e_ident, ELFMAG, SELFMAG) == 0 &&
               m_header.e_ident[EI_CLASS] == kClass;
    }
    const ElfW(Ehdr) & Header() const { return m_header; }

    template <typename Record>
    Record At(std::uint64_t offset) {
        Record record{};
        if (offset > m_size || m_size - offset < sizeof record) {
            Fail("its tables are damaged");
        }
        m_stream.seekg(static_cast<std::streamoff>(offset));
        if (!m_stream.read(reinterpret_cast<char*>(&record), sizeof record)) {
            Fail("cannot be read");
        }
        return record;
    }

    // Reads text that ends with a zero, or with the file.
    std::string TextAt(std::uint64_t offset) {
        static_cast<void>(At<char>(offset));
        m_stream.seekg(static_cast<std::streamoff>(offset));
        std::string text;
        std::getline(m_stream, text, '\0');
        m_stream.clear();
        return text;
    }

    [[noreturn]] void Fail(const std::string& message) const { throw JobError(m_name, message); }

private:
    // Opening a named pipe would wait for its other end.
    static std::ifstream Open(const std::filesystem::path& file) {
        std::error_code missing;
        return std::filesystem::is_regular_file(file, missing)
                   ? std::ifstream(file, std::ios::binary | std::ios::ate)
                   : std::ifstream();
    }

    std::string m_name;
    std::ifstream m_stream;
    std::uint64_t m_size;
    ElfW(Ehdr) m_header{}; // zeros in a file that is too short
};

} // namespace

std::vector<ExportedSymbol> ReadExportedSymbols(const std::filesystem::path& file) {
    LibraryFile library(file);
    if (!library.IsLibrary()) {
        library.Fail("is not a library for this machine");
    }
    const auto sectionAt = [&](std::uint64_t number) {
        return library.At<ElfW(Shdr)>(library.Header().e_shoff + number * sizeof(ElfW(Shdr)));
    };
    std::vector<ExportedSymbol> symbols;
    bool isListed = false;
    for (unsigned i = 0; i < library.Header().e_shnum; ++i) {
        const auto section = sectionAt(i);
        if (section.sh_type != SHT_DYNSYM) {
            continue;
        }
        isListed = true;
        const auto names = sectionAt(section.sh_link);
        for (std::uint64_t offset = 0; offset + sizeof(ElfW(Sym)) <= section.sh_size;
             offset += sizeof(ElfW(Sym))) {
            const auto symbol = library.At<ElfW(Sym)>(section.sh_offset + offset);
            // 32- and 64-bit libraries store binding and type in the same way.
            const unsigned binding = ELF64_ST_BIND(symbol.st_info);
            const unsigned type = ELF64_ST_TYPE(symbol.st_info);
            if (symbol.st_shndx != SHN_UNDEF && binding != STB_LOCAL) {
                symbols.push_back({library.TextAt(names.sh_offset + symbol.st_name),
                                   type == STT_FUNC || type == STT_GNU_IFUNC,
                                   binding != STB_GLOBAL});
            }
        }
    }
    // The loader needs no sections, and some tools remove them.
    if (!isListed) {
        library.Fail("has no section of dynamic symbols");
    }
    return symbols;
}

bool IsLibrary(const std::filesystem::path& file) {
    return LibraryFile(file).IsLibrary();
}

} // namespace kel::host
