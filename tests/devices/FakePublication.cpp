#include "FakePublication.hpp"

#include <utility>

namespace agent::orvi::streambuf {
namespace test {
namespace {

FakePublication* current = nullptr;

} // namespace

FakePublication::FakePublication() {
    current = this;
}

FakePublication::~FakePublication() {
    current = nullptr;
}

} // namespace test

StreamBuffer makeDevice(
    const boost::uuids::uuid& uuid, ReadFunction read, WriteFunction write, SeekOffFunction seekoff,
    SeekPosFunction seekpos, std::size_t bufferSize) {
    test::FakePublication& publication = *test::current;
    if (publication.refusal) {
        std::rethrow_exception(publication.refusal);
    }
    publication.calls.push_back(
        {uuid,
         {std::move(read), std::move(write), std::move(seekoff), std::move(seekpos), {}},
         bufferSize});
    return test::makeBuffer({}, bufferSize, uuid);
}

} // namespace agent::orvi::streambuf
