// Converts arbitrary bytes, as the name of a file, and arbitrary wide text to the other form and
// back.

#include "Fuzz.h"

#include <cwchar>
#include <string>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kel;
    fuzz::DiscardRecords();
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::wstring wide = ConvertPlatformStringToWideString(bytes);
    // The name of a file cannot contain the byte 0.
    const bool isName = bytes.find('\0') == std::string::npos;
    const bool refused =
        fuzz::Refuses([&] { KEL_FUZZ_REQUIRE(ConvertWideStringToPlatformString(wide) == bytes); });
    KEL_FUZZ_REQUIRE(refused != isName);
    KEL_FUZZ_REQUIRE(wide.size() <= bytes.size());

    if (isName) {
        // The part after the last separator.
        const std::size_t slash = bytes.rfind('/');
        const std::string name = slash == std::string::npos ? bytes : bytes.substr(slash + 1);
        KEL_FUZZ_REQUIRE(ConvertWideStringToPlatformString(ExtractFilenameFromPath(wide)) == name);
    }

    std::wstring any(size / sizeof(wchar_t), L'\0');
    std::memcpy(any.data(), data, any.size() * sizeof(wchar_t));
    fuzz::Refuses([&any] {
        const std::string narrow = ConvertWideStringToPlatformString(any);
        KEL_FUZZ_REQUIRE(
            ConvertPlatformStringToWideString(narrow) == any ||
            narrow == ConvertWideStringToPlatformString(ConvertPlatformStringToWideString(narrow)));
    });
    return 0;
}
