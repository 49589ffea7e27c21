#include "validation/ExportedSymbols.h"

#include "base/Errors.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <ios>
#include <link.h>
#include <sstream>
#include <string>
#include <vector>

namespace kel::host {

namespace {

// The bytes of a library. Whatever they say, nothing outside of them is read.
class Image {
public:
    explicit Image(const std::filesystem::path& file) : m_name(file.string()) {
        std::ifstream stream(file, std::ios::binary);
        std::ostringstream bytes;
        bytes << stream.rdbuf();
        m_bytes = bytes.str();
        constexpr unsigned char kClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
        if (m_bytes.size() < sizeof(ElfW(Ehdr)) ||
            std::memcmp(m_bytes.data(), ELFMAG, SELFMAG) != 0 ||
            static_cast<unsigned char>(m_bytes[EI_CLASS]) != kClass) {
            throw JobError(fmt::format("{}: is no library for this machine", Escape(m_name)));
        }
    }

    template <typename Record>
    Record At(std::uint64_t offset) const {
        if (offset > m_bytes.size() || m_bytes.size() - offset < sizeof(Record)) {
            throw JobError(fmt::format("{}: its tables are damaged", Escape(m_name)));
        }
        Record record{};
        std::memcpy(&record, m_bytes.data() + offset, sizeof record);
        return record;
    }

    // A text that ends with a zero.
    std::string TextAt(std::uint64_t offset) const {
        static_cast<void>(At<char>(offset));
        return {m_bytes.data() + offset, strnlen(m_bytes.data() + offset, m_bytes.size() - offset)};
    }

private:
    std::string m_name;
    std::string m_bytes;
};

} // namespace

std::vector<ExportedSymbol> ReadExportedSymbols(const std::filesystem::path& file) {
    const Image image(file);
    const auto header = image.At<ElfW(Ehdr)>(0);
    const auto sectionAt = [&](std::uint64_t number) {
        return image.At<ElfW(Shdr)>(header.e_shoff + number * sizeof(ElfW(Shdr)));
    };
    std::vector<ExportedSymbol> symbols;
    bool isListed = false;
    for (unsigned i = 0; i < header.e_shnum; ++i) {
        const auto section = sectionAt(i);
        if (section.sh_type != SHT_DYNSYM) {
            continue;
        }
        isListed = true;
        const auto names = sectionAt(section.sh_link);
        for (std::uint64_t place = 0; place + sizeof(ElfW(Sym)) <= section.sh_size;
             place += sizeof(ElfW(Sym))) {
            const auto symbol = image.At<ElfW(Sym)>(section.sh_offset + place);
            // The classes of 32 and 64 bits keep binding and type in the same way.
            const unsigned binding = ELF64_ST_BIND(symbol.st_info);
            const unsigned type = ELF64_ST_TYPE(symbol.st_info);
            if (symbol.st_shndx != SHN_UNDEF && binding != STB_LOCAL) {
                symbols.push_back({image.TextAt(names.sh_offset + symbol.st_name),
                                   type == STT_FUNC || type == STT_GNU_IFUNC,
                                   binding != STB_GLOBAL});
            }
        }
    }
    // The loader needs no sections, and some tools take them away.
    if (!isListed) {
        throw JobError(fmt::format("{}: has no section of dynamic symbols", Escape(file.string())));
    }
    return symbols;
}

} // namespace kel::host
