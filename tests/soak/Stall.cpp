#include "soak/Stall.hpp"

#include "soak/CheckedStream.hpp"

#include "remoting/processes/Checksum.hpp"
#include "support/Registry.hpp"
#include "support/SparseDevice.hpp"

#include <boost/uuid/uuid_io.hpp>

#include <csignal>
#include <fstream>
#include <ios>

namespace agent::orvi::remoting::test {

Stall::Stall(
    const std::filesystem::path& directory, const std::string& importer, Publisher& publisher,
    Totals& totals)
    : totals(totals) {
    const std::filesystem::path file = directory / "big";
    const std::string content = streambuf::test::sparseCharacters(0, size);
    expected = std::to_string(size) + " " + std::to_string(checksum(content));
    std::ofstream(file, std::ios_base::binary) << content;
    const std::string uuid = boost::uuids::to_string(streambuf::test::newUuid());
    publisher.ask("publish name=big uuid=" + uuid + " kind=file path=" + file.string());
    reader.ask(importer);
    reader.ask("connect name=big uuid=" + uuid);
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
    reader.ask("seekpos name=big position=0");
    reader.tell("read name=big count=" + std::to_string(size));
    reader.signal(SIGSTOP);
    stopped = true;
    ++totals.stalls;
}

void Stall::end() {
    reader.signal(SIGCONT);
    stopped = false;
    const std::string got = reader.reply();
    if (got != expected) {
        throw BrokenPromise("A stalled reader got " + got + " instead of " + expected + ".");
    }
    totals.bytesRead += size;
    totals.calls += 2;
}

void Stall::finish() {
    if (stopped) {
        end();
    }
}

} // namespace agent::orvi::remoting::test
