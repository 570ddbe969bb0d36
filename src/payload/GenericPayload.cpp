#include "payload/GenericPayload.hpp"

#include <stdexcept>

namespace agent::orvi::core {

BadAnyCast::~BadAnyCast() = default;

const char* BadAnyCast::what() const noexcept {
    return "Bad any_cast";
}

void detail::FlagArray::throwInvalidSubscript() {
    throw std::out_of_range("invalid vector<bool> subscript");
}

GenericPayload::GenericPayload() noexcept = default;

GenericPayload::GenericPayload(const GenericPayload& other)
    : typeHashes(other.typeHashes)
    , cloners(other.cloners)
    , futureFlags(other.futureFlags)
    , packedFlags(other.packedFlags) {
    values.reserve(other.values.size());
    for (std::size_t index = 0; index < other.values.size(); ++index) {
        const std::shared_ptr<void>& value = other.values[index];
        values.push_back(value ? cloners.at(index)(value) : nullptr);
    }
}

GenericPayload::GenericPayload(GenericPayload&& other) noexcept
    : typeHashes(std::move(other.typeHashes))
    , values(std::move(other.values))
    , cloners(std::move(other.cloners))
    , futureFlags(std::move(other.futureFlags))
    , packedFlags(std::move(other.packedFlags)) {
    other.clear();
}

GenericPayload& GenericPayload::operator=(const GenericPayload& other) {
    GenericPayload copy(other);
    return *this = std::move(copy);
}

GenericPayload& GenericPayload::operator=(GenericPayload&& other) noexcept {
    if (this != &other) {
        typeHashes = std::move(other.typeHashes);
        values = std::move(other.values);
        cloners = std::move(other.cloners);
        futureFlags = std::move(other.futureFlags);
        packedFlags = std::move(other.packedFlags);
        other.clear();
    }
    return *this;
}

GenericPayload::~GenericPayload() = default;

void GenericPayload::clear() noexcept {
    typeHashes.clear();
    values.clear();
    cloners.clear();
    futureFlags.clear();
    packedFlags.clear();
}

void GenericPayload::check(std::size_t index, std::uint64_t typeHash, bool forbidFutures) const {
    if (index >= values.size()) {
        throw std::out_of_range("Invalid GenericPayload index");
    }
    if (!values[index]) {
        throw std::runtime_error("GenericPayload empty at index");
    }
    if (index >= typeHashes.size()) {
        throw std::out_of_range("invalid vector subscript");
    }
    if (typeHashes[index] != typeHash) {
        throw BadAnyCast();
    }
    if (forbidFutures && futureFlags.at(index)) {
        throw std::runtime_error("Polymorphic types are not supported with futures");
    }
}

std::shared_ptr<void> GenericPayload::refuseToCopyFuture(const std::shared_ptr<void>&) {
    throw std::logic_error("A GenericPayload that holds a future cannot be copied.");
}

void GenericPayload::addSlot(
    std::uint64_t typeHash, std::shared_ptr<void> value, Cloner cloner, bool future, bool packed) {
    typeHashes.push_back(typeHash);
    values.push_back(std::move(value));
    cloners.push_back(std::move(cloner));
    futureFlags.push_back(future);
    packedFlags.push_back(packed);
}

} // namespace agent::orvi::core
