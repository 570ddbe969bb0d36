#include "soak/CheckedStream.hpp"

#include "remoting/processes/Checksum.hpp"
#include "support/Registry.hpp"

#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <fstream>
#include <ios>
#include <iterator>
#include <utility>

namespace agent::orvi::remoting::test {
namespace {

using Random = CheckedStream::Random;

std::size_t between(Random& random, std::size_t least, std::size_t most) {
    return std::uniform_int_distribution<std::size_t>(least, most)(random);
}

std::string randomBytes(Random& random, std::size_t count) {
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

} // namespace

CheckedStream::CheckedStream(
    std::filesystem::path file, std::string name, Publisher& publisher, Totals& totals,
    Random& random)
    : file(std::move(file))
    , name(std::move(name))
    , uuid(streambuf::test::newUuid())
    , publisher(publisher)
    , totals(totals)
    , content(randomBytes(random, between(random, 1, 512 * 1024))) {}

void CheckedStream::step(Random& random) {
    try {
        if (!published || generation != publisher.generation()) {
            buffer.reset();
            publish(random);
        }
        if (!buffer) {
            connect();
        }
        const std::size_t choice = between(random, 0, 99);
        if (choice < 60) {
            read(random);
        } else if (choice < 90) {
            write(random);
        } else if (choice < 97) {
            buffer.reset();
        } else {
            withdraw();
        }
    } catch (const BrokenPromise&) {
        throw;
    } catch (const std::exception&) {
        // What was under way may have happened or not: the next publisher starts from what is
        // known.
        ++totals.errors;
        buffer.reset();
        published = false;
    }
}

void CheckedStream::publish(Random& random) {
    published = false;
    generation = publisher.generation();
    notFound = false;
    try {
        publisher.ask("withdraw name=" + name);
    } catch (const ComponentError&) {
        // It has a new publisher, where it has not been published yet.
    }
    std::ofstream(file, std::ios_base::binary | std::ios_base::trunc) << content;
    publisher.ask(
        "publish name=" + name + " uuid=" + boost::uuids::to_string(uuid) + " kind=file path=" +
        file.string() + " buffer=" + std::to_string(between(random, 0, 64 * 1024)));
    published = true;
    ++totals.publications;
}

void CheckedStream::withdraw() {
    const bool early = buffer.has_value();
    publisher.ask("withdraw name=" + name);
    published = false;
    if (early) {
        try {
            buffer->pubseekpos(0, std::ios_base::in);
            throw BrokenPromise(name + " can be used after its withdrawal.");
        } catch (const BrokenPromise&) {
            throw;
        } catch (const std::exception&) {
            ++totals.errors;
        }
        buffer.reset();
    }
    std::ifstream written(file, std::ios_base::binary);
    const std::string bytes{std::istreambuf_iterator<char>(written), {}};
    if (bytes.size() != content.size() || checksum(bytes) != checksum(content)) {
        throw BrokenPromise(name + " has been left with other bytes than were written.");
    }
}

void CheckedStream::connect() {
    try {
        buffer.emplace(streambuf::makeDevice(uuid, streambuf::noCloseFunction()));
    } catch (const std::exception& error) {
        // Once may be the machine's: nothing is found while all processes are stopped.
        if (generation == publisher.generation() && std::exchange(notFound, true)) {
            throw BrokenPromise(name + " is published and cannot be connected to: " + error.what());
        }
        if (generation == publisher.generation()) {
            ++totals.errors;
            connect();
            return;
        }
        throw;
    }
    notFound = false;
    ++totals.connections;
}

void CheckedStream::moveTo(std::size_t position) {
    ++totals.calls;
    const auto reached = buffer->pubseekpos(
        static_cast<std::streamoff>(position), std::ios_base::in | std::ios_base::out);
    if (reached != std::streampos(static_cast<std::streamoff>(position))) {
        throw BrokenPromise(name + " cannot be positioned.");
    }
}

void CheckedStream::read(Random& random) {
    const std::size_t position = between(random, 0, content.size());
    const std::size_t count = between(random, 1, 256 * 1024);
    moveTo(position);
    std::string bytes(count, '\0');
    ++totals.calls;
    bytes.resize(
        static_cast<std::size_t>(buffer->sgetn(bytes.data(), static_cast<std::streamsize>(count))));
    const std::size_t expected = std::min(count, content.size() - position);
    if (bytes.size() != expected) {
        throw BrokenPromise(
            name + " has ended after " + std::to_string(position + bytes.size()) + " of " +
            std::to_string(content.size()) + " bytes.");
    }
    if (checksum(bytes) != checksum({content.data() + position, expected})) {
        throw BrokenPromise(name + " delivers wrong bytes from " + std::to_string(position) + ".");
    }
    totals.bytesRead += bytes.size();
}

void CheckedStream::write(Random& random) {
    const std::size_t position = between(random, 0, content.size());
    const std::string bytes =
        randomBytes(random, between(random, 0, std::min<std::size_t>(content.size(), 128 * 1024)));
    const std::size_t count = std::min(bytes.size(), content.size() - position);
    moveTo(position);
    totals.calls += 2;
    const auto taken = buffer->sputn(bytes.data(), static_cast<std::streamsize>(count));
    if (taken != static_cast<std::streamsize>(count) || buffer->pubsync() != 0) {
        throw BrokenPromise(name + " does not take what is written.");
    }
    content.replace(position, count, bytes, 0, count);
    totals.bytesWritten += count;
}

void CheckedStream::finish() {
    for (;;) {
        try {
            if (!published) {
                return;
            }
            buffer.reset();
            withdraw();
        } catch (const BrokenPromise&) {
            throw;
        } catch (const std::exception&) {
            ++totals.errors; // its publisher has been killed at the very end
            return;
        }
    }
}

} // namespace agent::orvi::remoting::test
