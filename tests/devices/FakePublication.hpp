#pragma once

#include "support/StreamBuffers.hpp"

#include <boost/uuid/uuid.hpp>

#include <cstddef>
#include <exception>
#include <vector>

namespace agent::orvi::streambuf::test {

/// What an adapter handed to the publishing `makeDevice`.
struct Published {
    boost::uuids::uuid uuid;
    Operations operations;
    std::size_t bufferSize;
};

/// Stands for the publishing `makeDevice` in this program: keeps what it is given, publishes
/// nothing, and returns a stream buffer without operations. One exists at a time.
class FakePublication {
public:
    FakePublication();
    ~FakePublication();

    FakePublication(const FakePublication&) = delete;
    FakePublication& operator=(const FakePublication&) = delete;

    std::vector<Published> calls;
    std::exception_ptr refusal; ///< Thrown instead, when set.
};

} // namespace agent::orvi::streambuf::test
