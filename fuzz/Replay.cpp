// Runs a fuzz target once for each file of the arguments, which are files and directories. Findings
// are replayed like this in builds without a fuzzer.

#include "Fuzz.h"

#include <TemporaryDirectory.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <vector>

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    try {
        std::vector<fs::path> files;
        for (int i = 1; i < argc; ++i) {
            if (!fs::is_directory(argv[i])) {
                files.emplace_back(argv[i]);
                continue;
            }
            for (const auto& entry : fs::directory_iterator(argv[i])) {
                files.push_back(entry.path());
            }
        }
        std::sort(files.begin(), files.end());
        for (const fs::path& file : files) {
            // Written before the run, so that a crash can be assigned to its file.
            std::cout << file.filename().string() << std::endl;
            const std::string bytes = kel::test::ReadFile(file.string());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                   bytes.size());
        }
        std::cout << files.size() << " inputs replayed\n";
        return files.empty() ? 1 : 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
