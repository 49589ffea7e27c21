#include "elements/SharedLibrary.h"

#include "base/Errors.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <ios>
#include <link.h>
#include <string>
#include <sys/auxv.h>
#include <system_error>
#include <vector>

namespace kel::host {

namespace {

// A library file. Whatever its tables contain, nothing outside of the file is read. It is read
// piece by piece, because a plug-in's headers are checked at every start of the program.
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
    std::uint64_t Size() const { return m_size; }
    const ElfW(Ehdr) & Header() const { return m_header; }

    template <typename Record>
    Record At(std::uint64_t offset) {
        return TableAt<Record>(offset, 1).front();
    }

    template <typename Record>
    std::vector<Record> TableAt(std::uint64_t offset, std::uint16_t count) {
        std::vector<Record> records(count);
        const std::uint64_t bytes = count * sizeof(Record);
        if (offset > m_size || m_size - offset < bytes) {
            Fail("its tables are damaged");
        }
        m_stream.seekg(static_cast<std::streamoff>(offset));
        if (!m_stream.read(reinterpret_cast<char*>(records.data()),
                           static_cast<std::streamsize>(bytes))) {
            Fail("cannot be read");
        }
        return records;
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

// Compares with the library that the kernel maps into every process, see vdso(7). The file of the
// program is not always accessible.
bool IsForThisProcessor(const ElfW(Ehdr) & header) {
    const unsigned long address = getauxval(AT_SYSINFO_EHDR);
    return address == 0 || // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel passes a number
           header.e_machine == reinterpret_cast<const ElfW(Ehdr)*>(address)->e_machine;
}

// An address, and whether it is in memory that a library's file declares executable.
struct CodeSearch {
    ElfW(Addr) address = 0;
    bool found = false;
};

int SearchCode(dl_phdr_info* library, std::size_t /*size*/, void* data) {
    auto& search = *static_cast<CodeSearch*>(data);
    for (unsigned i = 0; i < library->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = library->dlpi_phdr[i];
        const ElfW(Addr) begin = library->dlpi_addr + segment.p_vaddr;
        search.found =
            search.found || (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0 &&
                             search.address >= begin && search.address - begin < segment.p_memsz);
    }
    return search.found ? 1 : 0;
}

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

std::string FindLoadObstacle(const std::filesystem::path& file) {
    try {
        LibraryFile library(file);
        if (!library.IsLibrary()) {
            return "";
        }
        if (!IsForThisProcessor(library.Header())) {
            return "it is for another processor";
        }
        for (const auto& segment :
             library.TableAt<ElfW(Phdr)>(library.Header().e_phoff, library.Header().e_phnum)) {
            if (segment.p_type == PT_LOAD && segment.p_offset + segment.p_filesz > library.Size()) {
                return fmt::format("it was cut off after {} bytes", library.Size());
            }
        }
    } catch (const JobError&) { // NOLINT(bugprone-empty-catch): the loader reports these itself
    }
    return "";
}

bool IsFunction(const void* address) {
    CodeSearch search{reinterpret_cast<ElfW(Addr)>(address)};
    dl_iterate_phdr(SearchCode, &search);
    Dl_info place{};
    void* extra = nullptr;
    const bool hasSymbol =
        dladdr1(address, &place, &extra, RTLD_DL_SYMENT) != 0 && place.dli_saddr == address;
    const auto* symbol = static_cast<const ElfW(Sym)*>(extra);
    return search.found &&
           !(hasSymbol && symbol != nullptr && ELF64_ST_TYPE(symbol->st_info) == STT_OBJECT);
}

} // namespace kel::host
