#pragma once

#include "soak/Publisher.hpp"
#include "soak/Totals.hpp"

#include "streambuf/StreamBuffer.hpp"

#include <boost/uuid/uuid.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>

namespace agent::orvi::remoting::test {

/// Something is not as it was promised. It ends the run.
class BrokenPromise : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

/// A file that another process publishes, and what must be in it.
///
/// It is used over a connected stream buffer. Whatever fails because its publisher was lost is done
/// again with the next one.
///
/// Thread safety: single-thread.
class CheckedStream {
public:
    using Random = std::mt19937_64;

    CheckedStream(
        std::filesystem::path file, std::string name, Publisher& publisher, Totals& totals,
        Random& random);

    /// Do one thing, at random.
    ///
    /// @throws BrokenPromise when it does not come out as it must.
    void step(Random& random);

    /// End the publication and look at what is in the file.
    void finish();

private:
    void publish(Random& random);
    void withdraw();
    void connect();
    void read(Random& random);
    void write(Random& random);
    void moveTo(std::size_t position);

    const std::filesystem::path file;
    const std::string name;
    const boost::uuids::uuid uuid;
    Publisher& publisher;
    Totals& totals;

    std::string content;
    bool published = false;
    bool notFound = false;        // the last time
    std::uint64_t generation = 0; // of the publisher that did it
    std::optional<streambuf::StreamBuffer> buffer;
};

} // namespace agent::orvi::remoting::test
