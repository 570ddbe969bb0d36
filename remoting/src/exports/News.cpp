#include "exports/News.hpp"

#include <iterator>
#include <utility>

namespace agent::orvi::remoting::details {

void News::add(const Item& item) {
    if (const auto* withdrawn = std::get_if<Withdrawn>(&item)) {
        if (const auto offer = offers.extract(withdrawn->service)) {
            items.erase(offer.mapped());
            return;
        }
    }
    items.push_back(item);
    if (const auto* offered = std::get_if<Offered>(&item)) {
        offers[offered->service] = std::prev(items.end());
    }
}

std::optional<News::Item> News::take() {
    if (items.empty()) {
        return std::nullopt;
    }
    const Item first = items.front();
    items.pop_front();
    if (const auto* offered = std::get_if<Offered>(&first)) {
        offers.erase(offered->service);
    }
    return first;
}

void News::clear() noexcept {
    items.clear();
    offers.clear();
}

} // namespace agent::orvi::remoting::details
