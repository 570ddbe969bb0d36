/// Runs a target over files, and over all files in folders, once each. Without a fuzzer, with any
/// compiler: what was found once stays found.

#include "Target.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesIn(const fs::path& place) {
    std::vector<fs::path> files;
    if (fs::is_directory(place)) {
        for (const auto& entry : fs::recursive_directory_iterator(place)) {
            if (entry.is_regular_file()) {
                files.push_back(entry.path());
            }
        }
        std::sort(files.begin(), files.end());
    } else {
        files.push_back(place);
    }
    return files;
}

std::string contentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        std::cerr << "Cannot read " << file << '\n';
        std::exit(EXIT_FAILURE);
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace

int main(int count, char** arguments) {
    std::size_t replayed = 0;
    for (int index = 1; index < count; ++index) {
        for (const fs::path& file : filesIn(arguments[index])) {
            std::cerr << file.string() << std::endl; // before: it may be the last
            const std::string content = contentOf(file);
            LLVMFuzzerTestOneInput(
                reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
            ++replayed;
        }
    }
    if (replayed == 0) {
        std::cerr << "There is nothing to replay.\n";
        return EXIT_FAILURE;
    }
    std::cerr << replayed << " inputs\n";
}
