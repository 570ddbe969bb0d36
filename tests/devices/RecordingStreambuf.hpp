#pragma once

#include <algorithm>
#include <cstdint>
#include <exception>
#include <ios>
#include <optional>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::streambuf::test {

/// A standard stream buffer that writes down how its virtual members are called.
class RecordingStreambuf : public std::streambuf {
public:
    explicit RecordingStreambuf(std::string bytes = {})
        : bytes(std::move(bytes)) {}

    std::vector<std::string> calls;
    std::optional<std::int64_t> answer; ///< Returned instead of the own result.
    std::exception_ptr failure;         ///< Thrown after the work was done.
    std::string bytes;
    std::string written;
    std::mbstate_t state{}; ///< Conversion state of the last position asked for.

protected:
    std::streamsize xsgetn(char* destination, std::streamsize count) override {
        calls.push_back("xsgetn " + std::to_string(count));
        const auto got =
            static_cast<std::size_t>(std::min(count, static_cast<std::streamsize>(bytes.size())));
        bytes.copy(destination, got);
        bytes.erase(0, got);
        return finish(static_cast<std::int64_t>(got));
    }

    std::streamsize xsputn(const char* source, std::streamsize count) override {
        const std::string data(source, static_cast<std::size_t>(count));
        calls.push_back("xsputn " + data);
        written += data;
        return finish(count);
    }

    pos_type seekoff(
        off_type offset, std::ios_base::seekdir direction, std::ios_base::openmode mode) override {
        calls.push_back(
            "seekoff " + std::to_string(offset) + ' ' +
            std::to_string(static_cast<int>(direction)) + ' ' +
            std::to_string(static_cast<int>(mode)));
        return finish(-1);
    }

    pos_type seekpos(pos_type position, std::ios_base::openmode mode) override {
        state = position.state();
        calls.push_back(
            "seekpos " + std::to_string(std::streamoff(position)) + ' ' +
            std::to_string(static_cast<int>(mode)));
        return finish(-1);
    }

    int sync() override {
        calls.emplace_back("sync");
        return 0;
    }

    int_type underflow() override {
        calls.emplace_back("underflow");
        return traits_type::eof();
    }

    int_type overflow(int_type) override {
        calls.emplace_back("overflow");
        return traits_type::eof();
    }

private:
    std::int64_t finish(std::int64_t result) const {
        if (failure) {
            std::rethrow_exception(failure);
        }
        return answer.value_or(result);
    }
};

} // namespace agent::orvi::streambuf::test
