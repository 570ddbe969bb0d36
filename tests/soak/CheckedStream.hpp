#pragma once

#include "soak/Publisher.hpp"
#include "soak/Totals.hpp"

#include "streambuf/StreamBuffer.hpp"

#include <boost/uuid/uuid.hpp>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <ios>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace agent::orvi::remoting::test {

/// Something is not as it was promised. It ends the run.
class BrokenPromise : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

/// A file that another process publishes, and what must be in it.
///
/// It is used over a connected stream buffer. Where its publisher was killed, that must show as the
/// documented error, and the next publisher goes on with what is in the file.
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
    ///
    /// @throws BrokenPromise when it is not what must be there.
    void finish();

private:
    /// What some bytes have been before they were written over.
    struct Replaced {
        std::size_t position;
        std::string bytes;

        bool had(std::size_t at, char byte) const {
            return at >= position && at - position < bytes.size() && bytes[at - position] == byte;
        }
    };

    void survive(const std::exception& error);
    bool isProvoked(const std::exception& error) const;

    bool publish(Random& random);
    void withdraw();
    bool connect();
    void moveTo(
        std::size_t position,
        std::ios_base::openmode mode = std::ios_base::in | std::ios_base::out);
    void read(Random& random);
    void readAtOnce(std::size_t count);
    void readSingly(std::size_t count);
    void expectNext(const std::string& bytes, std::size_t asked);
    void write(Random& random);
    std::size_t writeAtOnce(std::string_view bytes);
    std::size_t writeSingly(std::string_view bytes);
    void readBeforeFlush(Random& random);
    void replace(std::size_t position, const std::string& bytes);
    void flush();
    void compareFile();

    const std::filesystem::path file;
    const std::string name;
    Publisher& publisher;
    Totals& totals;

    std::string content;             ///< What has been written.
    std::vector<Replaced> unsettled; ///< What may not have come to the file yet, oldest first.

    bool published = false;
    boost::uuids::uuid uuid{};    ///< Of the last publication; each has its own.
    std::uint64_t generation = 0; ///< Of the publisher that did it.
    std::size_t bufferSize = 0;
    std::optional<streambuf::StreamBuffer> buffer;
    std::optional<std::size_t> next; ///< What comes next from it, where that is known.
};

} // namespace agent::orvi::remoting::test
