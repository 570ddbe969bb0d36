#include "terminal/CommandLine.hpp"

#include "commands/Commands.hpp"
#include "streams/StreamDescription.hpp"
#include "terminal/Descriptors.hpp"
#include "terminal/Failure.hpp"
#include "terminal/HelpText.hpp"

#include <CLI/CLI.hpp>

#include <boost/uuid/random_generator.hpp>

#include <algorithm>
#include <functional>
#include <iostream>
#include <limits>
#include <sstream>

namespace agent::orvi::tool {
namespace {

constexpr std::uint64_t largestBuffer = std::uint64_t{1} << 30;
constexpr std::uint64_t largestOffset = std::numeric_limits<std::int64_t>::max();
constexpr double longestTimeout = 365.0 * 24 * 3600;

/// What the command line says, before it is put together. Only one command fills it.
struct Arguments {
    NetworkOptions network;
    remoting::TlsFiles tls;
    std::vector<std::string> targets;
    std::optional<double> timeout; ///< In seconds.
    std::vector<std::string> uuids;
    PublishOptions publish;
    bool watch = false;
    bool json = false;
    std::optional<std::uint64_t> bufferSize;
    std::optional<std::uint64_t> offset;
    std::optional<std::uint64_t> count;
};

CLI::Validator isUuid() {
    return {
        [](std::string& text) {
            return parseUuid(text) ? std::string() : "\"" + text + "\" is no UUID";
        },
        "", "uuid"};
}

/// Sizes may have a unit: 64K, 1MiB, 2G. All units are powers of 1024.
CLI::Option* addSize(
    CLI::App& command, const std::string& name, std::optional<std::uint64_t>& value,
    const char* what, std::uint64_t least, std::uint64_t most) {
    const CLI::Validator inRange(
        [least, most](std::string& text) {
            std::uint64_t number = 0;
            const bool good =
                CLI::detail::lexical_cast(text, number) && number >= least && number <= most;
            return good ? std::string()
                        : text + " is not between " + std::to_string(least) + " and " +
                              std::to_string(most);
        },
        "", "range");
    return command.add_option(name, value, what)
        ->transform(CLI::AsSizeValue(false).description(""))
        ->check(inRange)
        ->option_text("SIZE");
}

/// An option that can be given several times, each time with one value.
template <class Value>
CLI::Option* addRepeatable(
    CLI::App& command, const std::string& name, Value& values, const char* text,
    const std::string& what) {
    return command.add_option(name, values, what)
        ->allow_extra_args(false)
        ->option_text(std::string(text) + " ...");
}

void addNetwork(CLI::App& command, Arguments& arguments) {
    constexpr auto group = "Network";
    const auto addFile = [&](const char* name, std::filesystem::path& file, const char* what) {
        command.add_option(name, file, what)->option_text("FILE")->group(group);
    };
    command
        .add_option(
            "--runtime-dir", arguments.network.runtimeDirectory,
            "Where the processes of this machine meet")
        ->option_text("DIR")
        ->group(group);
    command
        .add_flag_callback(
            "--no-local", [&arguments] { arguments.network.local = false; },
            "Leave out the processes of this machine")
        ->group(group);
    addFile("--tls-cert", arguments.tls.certificates, "This side's certificate chain, PEM");
    addFile("--tls-key", arguments.tls.privateKey, "The certificate's private key, PEM");
    addFile("--tls-ca", arguments.tls.authorities, "Who vouches for the other side, PEM");
    command
        .add_flag(
            "--plain-loopback", arguments.network.plainLoopback,
            "Allow TCP without TLS on loopback addresses, for every local user")
        ->group(group);
}

void addSearch(CLI::App& command, Arguments& arguments, const char* timeoutMeaning) {
    addNetwork(command, arguments);
    addRepeatable(
        command, "--connect", arguments.targets, "HOST:PORT",
        "Look at this endpoint, too; repeatable")
        ->group("Network");
    command.add_option("--timeout", arguments.timeout, timeoutMeaning)
        ->check(CLI::Range(0.0, longestTimeout).description(""))
        ->option_text("SECONDS")
        ->group("Network");
}

NetworkOptions network(const Arguments& arguments) {
    NetworkOptions result = arguments.network;
    const remoting::TlsFiles& tls = arguments.tls;
    const auto given =
        !tls.certificates.empty() + !tls.privateKey.empty() + !tls.authorities.empty();
    if (given == 3) {
        result.tls = tls;
    } else if (given != 0) {
        throw CLI::ValidationError("--tls-cert, --tls-key and --tls-ca", "all of them or none");
    }
    return result;
}

SearchOptions search(const Arguments& arguments, std::chrono::seconds defaultTimeout) {
    using Seconds = std::chrono::duration<double>;
    SearchOptions result;
    result.network = network(arguments);
    result.targets = arguments.targets;
    if (!result.network.local && result.targets.empty()) {
        throw CLI::ValidationError("--no-local", "nothing to look at without --connect");
    }
    if (!result.targets.empty() && !result.network.tls && !result.network.plainLoopback) {
        throw CLI::ValidationError("--connect", "needs --tls-cert or --plain-loopback");
    }
    // Rounded up: zero has a meaning of its own.
    result.timeout = arguments.timeout
                         ? std::chrono::ceil<std::chrono::milliseconds>(Seconds(*arguments.timeout))
                         : defaultTimeout;
    return result;
}

void addUuid(CLI::App& command, Arguments& arguments) {
    command.add_option("UUID", arguments.uuids, "The stream")
        ->required()
        ->expected(1)
        ->check(isUuid())
        ->option_text(" ");
}

constexpr auto streamTimeout = "How long to wait for the stream (20); 0: only if it is there now";
constexpr std::chrono::seconds streamTime{20};
constexpr std::chrono::seconds listTime{5};

/// A command as the command line names it, and what it does; the result is the exit code.
struct Command {
    CLI::App* app;
    std::function<int()> run;
};

CLI::App& addCommand(CLI::App& program, const char* name, const char* what, const char* examples) {
    CLI::App& command = *program.add_subcommand(name, what);
    command.group("Commands");
    command.footer(examples);
    return command;
}

void checkPublish(const PublishOptions& options, std::size_t uuids) {
    if (uuids > 0 && uuids != options.files.size()) {
        throw CLI::ValidationError(
            "--uuid", "as many as there are files, or none: " + std::to_string(uuids) + " for " +
                          std::to_string(options.files.size()));
    }
    const auto inputs = std::count(options.files.begin(), options.files.end(), "-");
    if (inputs > 1) {
        throw CLI::ValidationError("FILE", "the standard input can be published once only");
    }
    if (inputs > 0 && options.write) {
        throw CLI::ValidationError("--write", "the standard input cannot be written");
    }
    if (!options.network.local && options.listen.empty()) {
        throw CLI::ValidationError("--no-local", "nobody can connect without --listen");
    }
    if (!options.listen.empty() && !options.network.tls && !options.network.plainLoopback) {
        throw CLI::ValidationError("--listen", "needs --tls-cert or --plain-loopback");
    }
}

Command addPublish(CLI::App& program, Arguments& arguments) {
    PublishOptions& options = arguments.publish;
    CLI::App& command = addCommand(
        program, "publish", "Publish files, or the standard input, until a signal comes",
        publishExamples);
    command.add_option("FILE", options.files, "What to publish; - is the standard input")
        ->required()
        ->option_text("...");
    addRepeatable(
        command, "--uuid", arguments.uuids, "UUID",
        "The UUID of a file, in the order of the files; without it, a new one")
        ->check(isUuid());
    command.add_flag("-w,--write", options.write, "Let others write, too; make what is missing");
    command.add_flag(
        "--live", options.live, "Pass on what arrives in a pipe without waiting for more");
    addSize(
        command, "--buffer-size", arguments.bufferSize, "Buffer size of the streams (64K)", 1,
        largestBuffer);
    addRepeatable(
        command, "--read-only", options.readOnlyPeers, "PEER",
        "A peer that may not write, as uid:1000, dns:*.example.org, cn:reader or *; repeatable");
    addRepeatable(
        command, "--allow", options.allowedPeers, "PEER",
        "A peer that may do everything; what fits neither may do nothing; repeatable");
    addNetwork(command, arguments);
    addRepeatable(
        command, "--listen", options.listen, "HOST:PORT",
        "Be found there, too; port 0 is any free one; repeatable")
        ->group("Network");
    return {&command, [&options, &arguments] {
                options.network = network(arguments);
                options.bufferSize = arguments.bufferSize.value_or(options.bufferSize);
                checkPublish(options, arguments.uuids.size());
                boost::uuids::random_generator makeUuid;
                for (std::size_t i = 0; i < options.files.size(); ++i) {
                    options.uuids.push_back(
                        arguments.uuids.empty() ? makeUuid() : *parseUuid(arguments.uuids[i]));
                }
                return publish(options);
            }};
}

Command addList(CLI::App& program, Arguments& arguments) {
    CLI::App& command = addCommand(program, "ls", "List what is published", listExamples);
    command.add_flag("-w,--watch", arguments.watch, "Go on, and tell what comes and goes");
    command.add_flag("--json", arguments.json, "Print JSON; with --watch, an object in each line");
    addSearch(command, arguments, "How long to wait for the answers of endpoints (5)");
    return {&command, [&arguments] {
                list({search(arguments, listTime), arguments.watch, arguments.json});
                return ExitCode::done;
            }};
}

Command addStat(CLI::App& program, Arguments& arguments) {
    CLI::App& command = addCommand(program, "stat", "Tell about one stream", statExamples);
    addUuid(command, arguments);
    command.add_flag("--json", arguments.json, "Print JSON");
    addSearch(command, arguments, streamTimeout);
    return {&command, [&arguments] {
                stat(
                    {search(arguments, streamTime), *parseUuid(arguments.uuids.front()),
                     arguments.json});
                return ExitCode::done;
            }};
}

void addOffset(CLI::App& command, Arguments& arguments) {
    addSize(
        command, "-o,--offset", arguments.offset, "Begin there, in bytes (0)", 0, largestOffset);
}

Command addCat(CLI::App& program, Arguments& arguments) {
    CLI::App& command =
        addCommand(program, "cat", "Copy a stream to the standard output", catExamples);
    addUuid(command, arguments);
    addOffset(command, arguments);
    addSize(
        command, "-n,--count", arguments.count, "Copy this many bytes at most", 0, largestOffset);
    addSize(
        command, "--buffer-size", arguments.bufferSize,
        "Ask for this much at a time (1M; 64K where the stream cannot seek)", 1, largestBuffer);
    addSearch(command, arguments, streamTimeout);
    return {&command, [&arguments] {
                cat(
                    {search(arguments, streamTime), *parseUuid(arguments.uuids.front()),
                     arguments.offset, arguments.count, arguments.bufferSize});
                return ExitCode::done;
            }};
}

Command addPut(CLI::App& program, Arguments& arguments) {
    CLI::App& command =
        addCommand(program, "put", "Copy the standard input to a stream", putExamples);
    addUuid(command, arguments);
    addOffset(command, arguments);
    addSize(
        command, "--buffer-size", arguments.bufferSize, "Hand over this much at a time (1M)", 1,
        largestBuffer);
    addSearch(command, arguments, streamTimeout);
    return {&command, [&arguments] {
                put(
                    {search(arguments, streamTime), *parseUuid(arguments.uuids.front()),
                     arguments.offset, arguments.bufferSize.value_or(defaultTransferSize)});
                return ExitCode::done;
            }};
}

} // namespace

int run(int count, const char* const* words) {
    CLI::App program("Publish byte streams to other processes, and use those of others.");
    program.name("orvi-stream");
    program.formatter(std::make_shared<ExamplesFirst>());
    program.footer(programExamples);
    program.set_help_flag("-h,--help", "Print this help");
    program.require_subcommand(0, 1); // that there is one is checked below, in better words
    program.set_version_flag(
        "--version", "orvi-stream " ORVI_STREAM_VERSION, "Print the program's version");
    Arguments arguments;
    addNetwork(program, arguments);
    const std::vector<Command> commands{
        addPublish(program, arguments), addList(program, arguments), addStat(program, arguments),
        addCat(program, arguments), addPut(program, arguments)};
    try {
        program.parse(count, words);
        const auto chosen = std::find_if(commands.begin(), commands.end(), [](const auto& command) {
            return command.app->parsed();
        });
        if (chosen == commands.end()) {
            throw CLI::RequiredError("A command");
        }
        return chosen->run();
    } catch (const CLI::ParseError& end) {
        const bool answered = end.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success);
        std::ostringstream answer;
        program.exit(end, answer, std::cerr);
        writeOutput(answer.str());
        return answered ? ExitCode::done : ExitCode::wrongUsage;
    }
}

} // namespace agent::orvi::tool
