#include "soak/CheckedStream.hpp"

#include "support/Registry.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <orvi/remoting/Errors.hpp>

#include <cppmicroservices/ServiceException.h>

#include <boost/core/demangle.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>
#include <typeinfo>
#include <utility>

namespace agent::orvi::remoting::test {
namespace {

using Random = CheckedStream::Random;
using Traits = streambuf::StreamBuffer::traits_type;

constexpr std::size_t singles = 300; // characters at a time, at most

std::size_t between(Random& random, std::size_t least, std::size_t most) {
    return std::uniform_int_distribution<std::size_t>(least, most)(random);
}

std::string randomBytes(Random& random, std::size_t count) {
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

std::string typeOf(const std::exception& error) {
    return boost::core::demangle(typeid(error).name());
}

} // namespace

CheckedStream::CheckedStream(
    std::filesystem::path file, std::string name, Publisher& publisher, Totals& totals,
    Random& random)
    : file(std::move(file))
    , name(std::move(name))
    , publisher(publisher)
    , totals(totals)
    , content(randomBytes(random, between(random, 1, 512 * 1024))) {
    std::ofstream(this->file, std::ios_base::binary) << content;
}

void CheckedStream::step(Random& random) {
    try {
        if (!buffer && publisher.wasKilled(generation)) {
            published = false;
        }
        if (!published && !publish(random)) {
            return;
        }
        if (!buffer && !connect()) {
            return;
        }
        const std::size_t choice = between(random, 0, 99);
        if (choice < 50) {
            read(random);
        } else if (choice < 80) {
            write(random);
        } else if (choice < 90) {
            readBeforeFlush(random);
        } else if (choice < 97) {
            buffer.reset();
        } else {
            withdraw();
        }
    } catch (const BrokenPromise&) {
        throw;
    } catch (const std::exception& error) {
        survive(error);
    }
}

/// Forget the publication that an error has ended.
///
/// @throws BrokenPromise when nobody has provoked the error.
void CheckedStream::survive(const std::exception& error) {
    if (!isProvoked(error)) {
        ++totals.unexpected;
        throw BrokenPromise(
            "stream " + name + ": unexpected " + typeOf(error) + ": " + error.what());
    }
    if (dynamic_cast<const PublisherKilled*>(&error) == nullptr) {
        totals.addProvoked(typeOf(error));
    }
    buffer.reset();
    published = false;
}

/// Say whether the error is what the end of the publishing process must lead to, and that has been
/// killed.
bool CheckedStream::isProvoked(const std::exception& error) const {
    if (!publisher.wasKilled(generation)) {
        return false;
    }
    if (dynamic_cast<const PublisherKilled*>(&error) != nullptr) {
        return true;
    }
    if (buffer) {
        const auto* const lost = dynamic_cast<const PeerLost*>(&error);
        return lost != nullptr && lost->cause() == PeerLost::Cause::terminated;
    }
    // Connecting: it was gone before it was found, or between being found and being looked at.
    const std::string text = error.what();
    return (typeid(error) == typeid(std::runtime_error) &&
            text == "Stream Buffer with orviStreambuf_" + boost::uuids::to_string(uuid) +
                        " streamId was not found.") ||
           (typeid(error) == typeid(cppmicroservices::ServiceException) &&
            text == "No service is being tracked");
}

/// @return whether it is published now: one that was killed may have no successor yet.
bool CheckedStream::publish(Random& random) {
    const std::uint64_t current = publisher.generation();
    if (publisher.wasKilled(current)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return false;
    }
    compareFile(); // nobody writes there any more
    generation = current;
    uuid = streambuf::test::newUuid();
    bufferSize = between(random, 0, 64 * 1024);
    publisher.ask(
        generation, "publish name=" + name + " uuid=" + boost::uuids::to_string(uuid) +
                        " kind=file path=" + file.string() +
                        " buffer=" + std::to_string(bufferSize));
    published = true;
    ++totals.publications;
    return true;
}

void CheckedStream::withdraw() {
    publisher.ask(generation, "withdraw name=" + name);
    published = false;
    unsettled.clear(); // the file has been closed
    if (buffer) {
        try {
            buffer->pubseekpos(0, std::ios_base::in);
            throw BrokenPromise(name + " can be used after its withdrawal.");
        } catch (const core::ServiceUnavailable& error) {
            totals.addProvoked(typeOf(error));
        }
        buffer.reset();
    }
}

/// @return whether it is connected now; not if the publisher has been killed meanwhile.
bool CheckedStream::connect() {
    const auto lock = publisher.connecting();
    if (publisher.wasKilled(generation)) {
        return false;
    }
    buffer.emplace(streambuf::makeDevice(uuid, streambuf::noCloseFunction()));
    next.reset();
    ++totals.connections;
    return true;
}

void CheckedStream::moveTo(std::size_t position, std::ios_base::openmode mode) {
    ++totals.calls;
    const std::streampos target(static_cast<std::streamoff>(position));
    if (buffer->pubseekpos(target, mode) != target) {
        throw BrokenPromise(name + " cannot be positioned.");
    }
    unsettled.clear(); // a file stream hands on what it holds before it moves
    next = position;
}

void CheckedStream::read(Random& random) {
    if (!next || between(random, 0, 1) == 0) {
        moveTo(between(random, 0, content.size()));
    }
    if (between(random, 0, 3) == 0) {
        readSingly(between(random, 1, singles));
    } else {
        readAtOnce(between(random, 1, 256 * 1024));
    }
}

void CheckedStream::readAtOnce(std::size_t count) {
    std::string bytes(count, '\0');
    ++totals.calls;
    bytes.resize(
        static_cast<std::size_t>(buffer->sgetn(bytes.data(), static_cast<std::streamsize>(count))));
    expectNext(bytes, count);
}

void CheckedStream::readSingly(std::size_t count) {
    std::string bytes;
    while (bytes.size() < count) {
        ++totals.calls;
        const auto character = buffer->sbumpc();
        if (Traits::eq_int_type(character, Traits::eof())) {
            break; // there is nothing to put back into then
        }
        bytes += Traits::to_char_type(character);
    }
    if (bytes.size() == count) {
        const auto last = Traits::to_int_type(bytes.back());
        if (buffer->sungetc() != last || buffer->sbumpc() != last) {
            throw BrokenPromise(name + " does not take back what was read last.");
        }
        ++totals.putBacks;
    }
    expectNext(bytes, count);
}

void CheckedStream::expectNext(const std::string& bytes, std::size_t asked) {
    const std::size_t expected = std::min(asked, content.size() - *next);
    if (bytes.size() != expected) {
        throw BrokenPromise(
            name + " has ended after " + std::to_string(*next + bytes.size()) + " of " +
            std::to_string(content.size()) + " bytes.");
    }
    if (content.compare(*next, expected, bytes) != 0) {
        throw BrokenPromise(name + " delivers wrong bytes from " + std::to_string(*next) + ".");
    }
    *next += expected;
    totals.bytesRead += expected;
}

void CheckedStream::write(Random& random) {
    const std::size_t position = between(random, 0, content.size());
    const std::string bytes = randomBytes(
        random, between(random, 0, std::min<std::size_t>(content.size() - position, 128 * 1024)));
    moveTo(position);
    next.reset();
    replace(position, bytes);
    for (std::size_t done = 0; done < bytes.size();) {
        const std::size_t rest = bytes.size() - done;
        if (between(random, 0, 3) == 0) {
            done += writeSingly({bytes.data() + done, between(random, 1, std::min(rest, singles))});
        } else {
            done += writeAtOnce(
                {bytes.data() + done, between(random, 1, std::min<std::size_t>(rest, 64 * 1024))});
        }
    }
    if (between(random, 0, 3) == 0) {
        buffer.reset(); // which writes what is pending
    } else {
        flush();
    }
    totals.bytesWritten += bytes.size();
}

std::size_t CheckedStream::writeAtOnce(std::string_view bytes) {
    ++totals.calls;
    const auto size = static_cast<std::streamsize>(bytes.size());
    if (buffer->sputn(bytes.data(), size) != size) {
        throw BrokenPromise(name + " does not take what is written.");
    }
    return bytes.size();
}

std::size_t CheckedStream::writeSingly(std::string_view bytes) {
    for (const char byte : bytes) {
        ++totals.calls;
        if (buffer->sputc(byte) != Traits::to_int_type(byte)) {
            throw BrokenPromise(name + " does not take a character.");
        }
    }
    return bytes.size();
}

/// Read while output is pending. It goes to where the device is when it is flushed.
void CheckedStream::readBeforeFlush(Random& random) {
    const std::size_t fits = std::min(content.size(), std::max<std::size_t>(bufferSize, 1));
    const std::string bytes = randomBytes(random, between(random, 1, fits));
    moveTo(between(random, 0, content.size()));
    writeAtOnce(bytes);
    readAtOnce(between(random, 1, 256 * 1024));
    const std::size_t position = between(random, 0, content.size() - bytes.size());
    moveTo(position, std::ios_base::in);
    next.reset();
    replace(position, bytes);
    flush();
    totals.bytesWritten += bytes.size();
}

/// Know of a write. It may come to nothing if the publisher is killed.
void CheckedStream::replace(std::size_t position, const std::string& bytes) {
    unsettled.push_back({position, content.substr(position, bytes.size())});
    content.replace(position, bytes.size(), bytes);
}

void CheckedStream::flush() {
    ++totals.calls;
    if (buffer->pubsync() != 0) {
        throw BrokenPromise(name + " does not flush what was written.");
    }
}

/// Look at what is in the file: each byte is what was last written there, or older where the
/// publisher did not live to write it. That is what there is from now on.
void CheckedStream::compareFile() {
    std::ifstream stream(file, std::ios_base::binary);
    const std::string found{std::istreambuf_iterator<char>(stream), {}};
    if (found.size() != content.size()) {
        throw BrokenPromise(
            name + " has been left with " + std::to_string(found.size()) + " instead of " +
            std::to_string(content.size()) + " bytes.");
    }
    for (std::size_t at = 0; at < found.size(); ++at) {
        if (found[at] != content[at] &&
            std::none_of(unsettled.begin(), unsettled.end(), [&](const Replaced& replaced) {
                return replaced.had(at, found[at]);
            })) {
            throw BrokenPromise(
                name + " has been left with a wrong byte at " + std::to_string(at) + ".");
        }
    }
    content = found;
    unsettled.clear();
}

void CheckedStream::finish() {
    try {
        if (published) {
            withdraw();
        }
    } catch (const BrokenPromise&) {
        throw;
    } catch (const std::exception& error) {
        survive(error);
    }
    buffer.reset();
    compareFile();
}

} // namespace agent::orvi::remoting::test
