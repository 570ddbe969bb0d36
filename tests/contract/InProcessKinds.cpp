#include "contract/StreamContract.hpp"

#include "support/Registry.hpp"

namespace agent::orvi::streambuf::test {
namespace {

StreamBuffer
publish(const boost::uuids::uuid& uuid, const Operations& device, std::size_t bufferSize) {
    return makeDevice(uuid, device.read, device.write, device.seekoff, device.seekpos, bufferSize);
}

/// The publisher's own stream buffer.
class LocalStream : public OpenStream {
public:
    LocalStream(const Operations& device, std::size_t bufferSize)
        : published(publish(newUuid(), device, bufferSize)) {}

    std::streambuf& buffer() override { return published; }

private:
    StreamBuffer published;
};

/// A connection to the device of a publisher in the same process.
class ConnectedStream : public OpenStream {
public:
    ConnectedStream(const Operations& device, std::size_t bufferSize)
        : uuid(newUuid())
        , published(publish(uuid, device, bufferSize))
        , connected(makeDevice(uuid, noCloseFunction())) {}

    std::streambuf& buffer() override { return connected; }

private:
    boost::uuids::uuid uuid;
    StreamBuffer published;
    StreamBuffer connected;
};

template <class Stream>
StreamKind kind(const std::string& name) {
    return {name, [](const Operations& device, std::size_t bufferSize) {
                return std::make_unique<Stream>(device, bufferSize);
            }};
}

const auto parameters =
    contractParameters({kind<LocalStream>("Local"), kind<ConnectedStream>("Connected")});

INSTANTIATE_TEST_SUITE_P(InProcess, ReadingContract, parameters, contractName);
INSTANTIATE_TEST_SUITE_P(InProcess, WritingContract, parameters, contractName);
INSTANTIATE_TEST_SUITE_P(InProcess, SeekingContract, parameters, contractName);
INSTANTIATE_TEST_SUITE_P(InProcess, MixedContract, parameters, contractName);

} // namespace
} // namespace agent::orvi::streambuf::test
