#include "soak/Stall.hpp"

#include "soak/CheckedStream.hpp"

#include "remoting/processes/Checksum.hpp"
#include "support/Registry.hpp"
#include "support/SparseDevice.hpp"

#include <boost/uuid/uuid_io.hpp>

#include <csignal>
#include <thread>
#include <utility>

namespace agent::orvi::remoting::test {
namespace {

constexpr std::size_t size = 16 * 1024 * 1024; // far more than sockets and windows hold

} // namespace

Stall::Stall(
    std::string name, std::string importer, Publisher& publisher, Totals& totals, Ending ending,
    std::uint64_t seed)
    : name(std::move(name))
    , importer(std::move(importer))
    , publisher(publisher)
    , totals(totals)
    , ending(ending)
    , random(seed)
    , uuid(boost::uuids::to_string(streambuf::test::newUuid()))
    , expected(
          std::to_string(size) + " " +
          std::to_string(checksum(streambuf::test::sparseCharacters(0, size)))) {
    // Somewhat more than is read: the end of the data is not come upon.
    ask("publish kind=sparse uuid=" + uuid + " size=" + std::to_string(2 * size));
    if (ending == Ending::goesOn) {
        start(); // the others come and go
    }
}

/// Have the publisher do something with what it publishes.
std::string Stall::ask(const std::string& verb) {
    return publisher.ask(publisher.generation(), verb + " name=" + name);
}

void Stall::start() {
    reader.emplace();
    reader->ask(importer);
    reader->ask("connect name=" + name + " uuid=" + uuid);
}

void Stall::step(std::chrono::steady_clock::time_point now) {
    if (!stopped) {
        begin();
        until = now + std::chrono::seconds(2); // far less than the keepalive allows
    } else if (now >= until) {
        end();
    }
}

void Stall::begin() {
    if (!reader) {
        start();
    }
    reader->ask("seekpos name=" + name + " position=0");
    ask("stop-next operation=read point=exit");
    reader->tell("read name=" + name + " count=" + std::to_string(size));
    ask("await-stopped");
    // It has asked. It stops before anything of the answer has come to it, or after some of it.
    const bool early = random() % 2 == 0;
    if (early) {
        reader->stop();
    }
    ask("release");
    if (!early) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        reader->stop();
    }
    stopped = true;
}

void Stall::end() {
    stopped = false;
    // One that has got everything in spite of all has only read.
    totals.stalls += reader->hasAnswered() ? 0 : 1;
    if (ending == Ending::isKilled) {
        reader.reset();
        ++totals.readerKills;
        return;
    }
    reader->signal(SIGCONT);
    std::string got;
    try {
        got = reader->reply();
    } catch (const ComponentError& error) {
        got = error.type() + " " + error.what();
    }
    if (got != expected) {
        throw BrokenPromise(
            name + ": A stalled reader got " + got + " instead of " + expected + ".");
    }
    totals.bytesRead += size;
    totals.calls += 2;
}

void Stall::finish() {
    if (stopped) {
        end();
    }
    if (ending == Ending::isKilled) {
        reader.reset();
    }
}

} // namespace agent::orvi::remoting::test
