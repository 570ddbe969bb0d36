/// Command lines of orvi-stream, through its parser. An input has a word per line.
///
/// Property: a command line is answered (help, version), or is wrong usage with a text about it on
/// the standard error, or runs one command, whose options are complete and in their ranges. Nothing
/// is thrown, and nothing but an answer goes to the standard output.

#include "Target.hpp"

#include "commands/Commands.hpp"
#include "terminal/CommandLine.hpp"
#include "terminal/Descriptors.hpp"
#include "terminal/Failure.hpp"

#include <algorithm>
#include <iostream>
#include <limits>
#include <set>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

namespace agent::orvi::tool {
namespace {

using fuzz::require;

constexpr std::uint64_t largestOffset = std::numeric_limits<std::int64_t>::max();

int commandsRun = 0;
std::string answer;

void checkSize(std::uint64_t size) {
    require(size >= 1 && size <= std::uint64_t{1} << 30, "a buffer has a size that can be had");
}

void checkOffset(const std::optional<std::uint64_t>& offset) {
    require(!offset || *offset <= largestOffset, "an offset is one that a stream can have");
}

void checkNetwork(const NetworkOptions& options) {
    require(
        !options.tls || (!options.tls->certificates.empty() && !options.tls->privateKey.empty() &&
                         !options.tls->authorities.empty()),
        "TLS has all its files");
}

void checkSearch(const SearchOptions& options) {
    checkNetwork(options.network);
    require(options.network.local || !options.targets.empty(), "there is somewhere to look");
    require(
        options.targets.empty() || options.network.tls || options.network.plainLoopback,
        "another machine is looked at with TLS, unless that is waived");
    require(
        options.timeout >= std::chrono::milliseconds::zero() &&
            options.timeout <= std::chrono::hours(24 * 365),
        "a time limit is a time that passes");
}

} // namespace

void writeOutput(std::string_view data) {
    answer += data;
}

int publish(const PublishOptions& options) {
    ++commandsRun;
    checkNetwork(options.network);
    checkSize(options.bufferSize);
    require(!options.files.empty(), "there is something to publish");
    require(options.uuids.size() == options.files.size(), "every file has a UUID");
    require(
        std::count(options.files.begin(), options.files.end(), "-") <= (options.write ? 0 : 1),
        "the standard input is read, once");
    require(options.network.local || !options.listen.empty(), "somebody can connect");
    require(
        options.listen.empty() || options.network.tls || options.network.plainLoopback,
        "other machines connect with TLS, unless that is waived");
    return ExitCode::signalled + 2;
}

void list(const ListOptions& options) {
    ++commandsRun;
    checkSearch(options.search);
}

void stat(const StatOptions& options) {
    ++commandsRun;
    checkSearch(options.search);
}

void cat(const CatOptions& options) {
    ++commandsRun;
    checkSearch(options.search);
    checkOffset(options.offset);
    checkOffset(options.count);
    checkSize(options.transferSize.value_or(1));
}

void put(const PutOptions& options) {
    ++commandsRun;
    checkSearch(options.search);
    checkOffset(options.offset);
    checkSize(options.transferSize);
}

} // namespace agent::orvi::tool

namespace agent::orvi::fuzz {
namespace {

/// Keeps what is written to a standard stream while it lives.
class Captured {
public:
    explicit Captured(std::ostream& stream)
        : stream(stream)
        , usual(stream.rdbuf(written.rdbuf())) {}

    ~Captured() { stream.rdbuf(usual); }

    Captured(const Captured&) = delete;
    Captured& operator=(const Captured&) = delete;

    std::string text() const { return written.str(); }

private:
    std::ostringstream written;
    std::ostream& stream;
    std::streambuf* usual;
};

std::vector<std::string> wordsIn(std::string_view lines) {
    std::vector<std::string> words{"orvi-stream"};
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find('\n'), lines.size());
        const std::string_view line = lines.substr(0, end);
        words.emplace_back(line.substr(0, line.find('\0'))); // as every program's words
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    return words;
}

void check(int code, const std::string& answer, const std::string& complaint) {
    const int commands = tool::commandsRun;
    if (code == tool::ExitCode::wrongUsage) {
        require(commands == 0, "wrong usage runs nothing");
        require(answer.empty() && !complaint.empty(), "wrong usage is complained about");
    } else if (code == tool::ExitCode::done) {
        require(complaint.empty(), "nothing is wrong");
        require(answer.empty() == (commands == 1), "a command runs, or help is printed");
    } else {
        require(code == tool::ExitCode::signalled + 2, "an exit code is a command's own");
        require(commands == 1, "one command runs");
    }
}

} // namespace
} // namespace agent::orvi::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace agent::orvi;
    const std::vector<std::string> words =
        fuzz::wordsIn({reinterpret_cast<const char*>(bytes), size});
    std::vector<const char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    tool::commandsRun = 0;
    tool::answer.clear();
    int code = 0;
    std::string other;
    std::string complaint;
    {
        const fuzz::Captured output(std::cout);
        const fuzz::Captured errors(std::cerr);
        code = tool::run(static_cast<int>(arguments.size()), arguments.data());
        other = output.text();
        complaint = errors.text();
    }
    fuzz::require(other.empty(), "an answer is all that the standard output gets");
    fuzz::check(code, tool::answer, complaint);
    return 0;
}
