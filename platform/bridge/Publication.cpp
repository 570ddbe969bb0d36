#include "bridge/Publication.hpp"

#include "bridge/InterfaceDirectory.hpp"

#include <utility>

namespace agent::orvi::core::detail {

Publication::Publication(
    InterfaceDirectory& directory, std::uint64_t number, std::shared_ptr<const Offer> offer)
    : directory(directory)
    , serviceName(offer->description.name())
    , number(number)
    , offerNumber(offer->number)
    , published(std::move(offer)) {}

void Publication::lastCallEnded() noexcept {
    published.reset();
    directory.forget(*this);
}

} // namespace agent::orvi::core::detail
