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

GenericPayload::GenericPayload(const GenericPayload& other)
    : typeHashes(other.typeHashes)
    , cloners(other.cloners)
    , futureFlags(other.futureFlags)
    , packedFlags(other.packedFlags) {
    for (std::size_t index = 0; index < other.values.size(); ++index) {
        const std::shared_ptr<void>& value = other.values[index];
        values.push_back(value ? (*cloners[index])(value) : nullptr);
    }
}

GenericPayload& GenericPayload::operator=(const GenericPayload& other) {
    GenericPayload copy(other);
    return *this = std::move(copy);
}

void GenericPayload::append(GenericPayload&& other) {
    reserve(size() + other.size());
    GenericPayload added = std::exchange(other, GenericPayload());
    for (std::size_t index = 0; index < added.size(); ++index) {
        addSlot(
            added.typeHashes[index], std::move(added.values[index]), *added.cloners[index],
            added.futureFlags.at(index), added.packedFlags.at(index));
    }
}

GenericPayload GenericPayload::takeSlot(std::size_t index) {
    checkIndex(index);
    GenericPayload slot;
    slot.addSlot(
        typeHashes[index], std::move(values[index]), *cloners[index], futureFlags.at(index),
        packedFlags.at(index));
    return slot;
}

void GenericPayload::checkIndex(std::size_t index) const {
    if (index >= values.size()) {
        throw std::out_of_range("Invalid GenericPayload index");
    }
}

void GenericPayload::check(std::size_t index, std::uint64_t typeHash, bool forbidFutures) const {
    checkIndex(index);
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

std::shared_ptr<void> GenericPayload::refuseToClone(const std::shared_ptr<void>&) {
    throw std::logic_error("A GenericPayload that holds a future cannot be copied.");
}

void GenericPayload::reserve(std::size_t slots) {
    typeHashes.reserve(slots);
    values.reserve(slots);
    cloners.reserve(slots);
    futureFlags.reserve(slots);
    packedFlags.reserve(slots);
}

void GenericPayload::addSlot(
    std::uint64_t typeHash, std::shared_ptr<void> value, const Cloner& cloner, bool future,
    bool packed) {
    reserve(values.size() + 1);
    typeHashes.push_back(typeHash);
    values.push_back(std::move(value));
    cloners.push_back(&cloner);
    futureFlags.push_back(future);
    packedFlags.push_back(packed);
}

} // namespace agent::orvi::core
