#include "contract/StreamContract.hpp"

#include "remoting/discovery/TemporaryDirectory.hpp"
#include "remoting/processes/DeviceRelay.hpp"
#include "remoting/processes/RemoteComponent.hpp"
#include "support/Registry.hpp"

#include <orvi/remoting/Importer.hpp>

#include <boost/uuid/uuid_io.hpp>

#include <memory>
#include <optional>

/// The stream is published by another process, to which the device is lent; it is used here.
namespace agent::orvi::streambuf::test {
namespace {

namespace remotingTest = agent::orvi::remoting::test;

/// The other process, and the way to it. One for all cases.
class OtherProcess : public testing::Environment {
public:
    static OtherProcess& instance() { return *only; }

    void SetUp() override {
        only = this;
        component.emplace();
        component->ask("open-endpoint directory=" + directory.path.string());
        remoting::ImporterOptions options;
        options.runtimeDirectory = directory.path;
        importer.emplace(options);
    }

    void TearDown() override {
        importer.reset();
        component.reset();
    }

    remotingTest::RemoteComponent& process() { return *component; }

    /// Return a name that nothing has had so far.
    std::string newName() { return "stream" + std::to_string(++streams); }

    std::string socketPath(const std::string& name) const { return directory.path / name; }

private:
    inline static OtherProcess* only = nullptr;

    int streams = 0;
    remotingTest::TemporaryDirectory directory;
    std::optional<remotingTest::RemoteComponent> component;
    std::optional<remoting::Importer> importer;
};

const auto* const environment = testing::AddGlobalTestEnvironment(new OtherProcess);

std::string modesOf(const Operations& device) {
    std::string modes;
    modes += device.read ? "r" : "";
    modes += device.write ? "w" : "";
    modes += device.seekoff ? "o" : "";
    modes += device.seekpos ? "p" : "";
    return modes;
}

class RemoteStream : public OpenStream {
public:
    RemoteStream(const Operations& device, std::size_t bufferSize)
        : uuid(newUuid())
        , name(other.newName())
        , relay(device, other.socketPath(name)) {
        other.process().ask(
            "publish name=" + name + " kind=relayed uuid=" + boost::uuids::to_string(uuid) +
            " socket=" + other.socketPath(name) + " modes=" + modesOf(device) +
            " buffer=" + std::to_string(bufferSize));
        connected.emplace(makeDevice(uuid, noCloseFunction()));
    }

    ~RemoteStream() override {
        connected.reset();
        other.process().ask("withdraw name=" + name);
    }

    std::streambuf& buffer() override { return *connected; }

private:
    OtherProcess& other = OtherProcess::instance();
    const boost::uuids::uuid uuid;
    const std::string name;
    remotingTest::DeviceRelay relay;
    std::optional<StreamBuffer> connected;
};

const auto parameters =
    contractParameters({{"Remote", [](const Operations& device, std::size_t bufferSize) {
                             return std::make_unique<RemoteStream>(device, bufferSize);
                         }}});

INSTANTIATE_TEST_SUITE_P(AcrossProcesses, ReadingContract, parameters, contractName);
INSTANTIATE_TEST_SUITE_P(AcrossProcesses, WritingContract, parameters, contractName);
INSTANTIATE_TEST_SUITE_P(AcrossProcesses, SeekingContract, parameters, contractName);
INSTANTIATE_TEST_SUITE_P(AcrossProcesses, MixedContract, parameters, contractName);

} // namespace
} // namespace agent::orvi::streambuf::test
