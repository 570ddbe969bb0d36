#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>

namespace agent::orvi::remoting::details {

/// What a peer is to be told on its control stream, in order.
///
/// It has no more about a service than its withdrawal and an offer after that, however often the
/// service comes and goes while the peer does not listen.
///
/// Thread safety: single-thread.
class News {
public:
    struct Greeting {};

    struct Offered {
        std::uint64_t service;
    };

    struct Withdrawn {
        std::uint64_t service;
        bool unwanted;
    };

    struct Settled {
        std::uint64_t want;
        std::string refusal{}; ///< Why it is not looked with; empty when it is.
    };

    struct Goodbye {};

    using Item = std::variant<Greeting, Offered, Withdrawn, Settled, Goodbye>;

    /// Add what comes last. Of a withdrawal after an offer that has not been taken nothing remains.
    void add(const Item& item);

    /// Take what comes first, if there is anything.
    std::optional<Item> take();

    std::size_t size() const noexcept { return items.size(); }

    void clear() noexcept;

private:
    std::list<Item> items;
    std::unordered_map<std::uint64_t, std::list<Item>::iterator> offers; // by service
};

} // namespace agent::orvi::remoting::details
