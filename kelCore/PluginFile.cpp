#include "PluginFileInternal.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <fstream>
#include <ios>
#include <link.h>
#include <string>
#include <sys/auxv.h>
#include <vector>

namespace kel {

namespace {

// Reads records at an offset of a file; false when the file does not hold all of them.
template <typename Record>
bool ReadAt(std::ifstream& file, std::uint64_t offset, Record* records, std::size_t count) {
    file.seekg(static_cast<std::streamoff>(offset));
    return static_cast<bool>(file.read(reinterpret_cast<char*>(records),
                                       static_cast<std::streamsize>(count * sizeof(Record))));
}

bool IsLibrary(const ElfW(Ehdr) & header) {
    constexpr unsigned char kClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == kClass;
}

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

std::string FindLoadObstacle(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const auto size = file.is_open() ? static_cast<std::uint64_t>(file.tellg()) : 0;
    ElfW(Ehdr) header{};
    // The loader itself reports files that cannot be read, that are no library, and whose headers
    // are damaged.
    if (!ReadAt(file, 0, &header, 1) || !IsLibrary(header)) {
        return "";
    }
    if (!IsForThisProcessor(header)) {
        return "it is for another processor";
    }
    std::vector<ElfW(Phdr)> segments(header.e_phnum);
    if (!ReadAt(file, header.e_phoff, segments.data(), segments.size())) {
        return "";
    }
    for (const ElfW(Phdr) & segment : segments) {
        if (segment.p_type == PT_LOAD && segment.p_offset + segment.p_filesz > size) {
            return "it was cut off after " + std::to_string(size) + " bytes";
        }
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

} // namespace kel
