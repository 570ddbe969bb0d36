#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include <unistd.h>

namespace agent::orvi::streambuf::test {

/// A file of this test alone, removed at the end.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& content = {}) {
        const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string(test->test_suite_name()) + "." + test->name() + "." +
                           std::to_string(::getpid());
        for (char& character : name) {
            character = character == '/' ? '_' : character;
        }
        while (std::filesystem::exists(std::filesystem::temp_directory_path() / name)) {
            name += "+";
        }
        path = std::filesystem::temp_directory_path() / name;
        std::ofstream(path, std::ios_base::binary) << content;
    }

    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    ~TemporaryFile() {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }

    std::string content() const {
        std::ifstream file(path, std::ios_base::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::filesystem::path path;
};

} // namespace agent::orvi::streambuf::test
