#pragma once

#include <filesystem>
#include <string>

namespace agent::orvi::bench {

/// The files with which both sides of a connection identify themselves to each other.
struct Certificates {
    std::filesystem::path authority;
    std::filesystem::path certificate; ///< For "localhost" and 127.0.0.1.
    std::filesystem::path privateKey;
};

/// Name the files of a folder.
Certificates certificatesIn(const std::filesystem::path& folder);

/// Make the files of a folder with the command `openssl`.
///
/// @throws std::runtime_error when that fails.
void makeCertificates(const std::filesystem::path& folder);

/// @throws std::ios_base::failure when the file cannot be read.
std::string contentOf(const std::filesystem::path& file);

} // namespace agent::orvi::bench
