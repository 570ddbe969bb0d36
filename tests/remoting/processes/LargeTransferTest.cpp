#include "remoting/processes/ProcessTest.hpp"

#include "support/SparseDevice.hpp"

#include <payload/GenericPayload.hpp>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

using core::GenericPayload;
using streambuf::test::invokeAtOnce;
using streambuf::test::sparseCharacters;

constexpr std::int64_t gibibyte = std::int64_t{1} << 30;
constexpr std::int64_t allowedMemory = gibibyte + gibibyte / 2;

/// What a process has needed at most since `before`.
std::int64_t growthOf(pid_t process, const ProcessFigures& before) {
    return figuresOf(process).peakMemory - before.memory;
}

class LargeTransfer : public ProcessTest {
protected:
    LargeTransfer()
        : uuid((publisher.ask("open-endpoint" + where()), newUuid()))
        , importer(importing())
        , lookUp(uuid) {
        publish(publisher, "device", uuid, "kind=sparse size=" + std::to_string(gibibyte));
        service = lookUp.wait();
        forgetPeakMemory(::getpid());
        forgetPeakMemory(publisher.id());
        hereBefore = figuresOf(::getpid());
        thereBefore = figuresOf(publisher.id());
    }

    void expectMemoryForTheDataOnce() const {
        const std::int64_t here = growthOf(::getpid(), hereBefore);
        const std::int64_t there = growthOf(publisher.id(), thereBefore);
        std::cout << "1 GiB in one call took " << (here >> 20) << " MiB here and " << (there >> 20)
                  << " MiB at the publisher" << std::endl;
        EXPECT_LT(here, allowedMemory);
        EXPECT_LT(there, allowedMemory);
    }

    const boost::uuids::uuid uuid;
    Importer importer;
    LookUp lookUp;
    std::shared_ptr<core::Invokable> service;
    ProcessFigures hereBefore;
    ProcessFigures thereBefore;
};

TEST_F(LargeTransfer, ReadsAGibibyteInOneCallWithMemoryForItOnce) {
    GenericPayload answer = invokeAtOnce(*service, "read", GenericPayload::fromValues(gibibyte));
    const auto data = answer.take<std::string>(0);
    expectMemoryForTheDataOnce();
    ASSERT_EQ(static_cast<std::int64_t>(data.size()), gibibyte);
    constexpr std::size_t step = 1 << 24;
    for (std::size_t position = 0; position < data.size(); position += step) {
        const std::string expected = sparseCharacters(position, step);
        ASSERT_EQ(std::memcmp(expected.data(), data.data() + position, step), 0) << position;
    }
}

TEST_F(LargeTransfer, WritesAGibibyteInOneCallWithMemoryForItOnce) {
    std::string data = sparseCharacters(0, static_cast<std::size_t>(gibibyte));
    GenericPayload answer =
        invokeAtOnce(*service, "write", GenericPayload::fromValues(std::move(data)));
    EXPECT_EQ(answer.take<std::int64_t>(0), gibibyte);
    expectMemoryForTheDataOnce();
    EXPECT_EQ(publisher.ask("calls name=device"), "write(" + std::to_string(gibibyte) + ")");
}

} // namespace
} // namespace agent::orvi::remoting::test
