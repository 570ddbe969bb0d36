#include "discovery/TargetPeers.hpp"

#include "carrier/AwaitMemory.hpp"
#include "discovery/BlockedSignals.hpp"
#include "discovery/NameResolution.hpp"

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <random>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

/// What the name service says: addresses, or why there are none.
struct Answer {
    std::vector<HostPort> addresses;
    std::exception_ptr failure;
};

std::vector<HostPort> numbersOf(const HostPort& host, Resolution resolution) {
    std::vector<HostPort> numbers;
    for (const SocketAddress& address : resolve(host, resolution)) {
        numbers.push_back(address.hostPort());
    }
    return numbers;
}

Answer ask(const TargetPeers::Resolver& resolver, const HostPort& host) noexcept {
    Answer answer;
    try {
        answer.addresses = resolver(host);
        if (answer.addresses.empty()) {
            throw std::runtime_error("Address " + toText(host) + ": no addresses");
        }
    } catch (const std::exception&) {
        answer.failure = std::current_exception();
    }
    return answer;
}

/// Return the address of a host that is a number; none where it is a name, or nobody can say now.
std::vector<HostPort> numbersOfNumeric(const HostPort& host) {
    try {
        return numbersOf(host, Resolution::numeric);
    } catch (const std::system_error&) {
        return {};
    }
}

HostPort parseTarget(const std::string& text) {
    HostPort target = parseHostPort(text);
    if (target.port == 0) {
        throw std::invalid_argument("\"" + text + "\" has no port to connect to");
    }
    return target;
}

/// The way back for the threads that wait for the name service, some of which may outlive whoever
/// has asked.
struct WayBack {
    std::mutex mutex;
    boost::asio::io_context* context; // guarded by mutex; null once nobody wants to know any more
};

} // namespace

class TargetPeers::State : public std::enable_shared_from_this<State> {
public:
    State(boost::asio::io_context& context, Callbacks callbacks, Resolver resolver, Backoff backoff)
        : context(context)
        , callbacks(std::move(callbacks))
        , resolver(std::move(resolver))
        , backoff(backoff)
        , wayBack(std::make_shared<WayBack>())
        , timer(context) {
        wayBack->context = &context;
    }

    void add(const std::string& text) {
        if (!targets.contains(text)) {
            targets.try_emplace(text, parseTarget(text)).first->second.resolution.time.emplace();
        }
    }

    /// Do something later, unless this is closed then.
    template <class Action>
    void post(Action action) {
        boost::asio::post(context, [self = shared_from_this(), action = std::move(action)] {
            if (!self->closed) {
                action(*self);
            }
        });
    }

    /// Make all attempts whose time has come.
    void tryWhatIsDue() {
        const auto now = Clock::now();
        for (auto& [text, target] : targets) {
            for (auto& [number, address] : target.addresses) {
                if (!closed && address.retry.isDue(now)) {
                    takeTurn(address);
                }
            }
            if (!closed && target.resolution.isDue(now)) {
                resolve(text, target);
            }
        }
        setTimer();
    }

    void lost(const TargetAddress& value, bool wasUseful) {
        std::string number;
        awaitMemoryFor([&] { number = value.address(); });
        const auto found = turns.find(number);
        if (found == turns.end() || found->second.empty() ||
            found->second.front() != value.target) {
            return;
        }
        std::deque<std::string>& turn = found->second;
        if (wasUseful) {
            // Who has connected may be another one the next time.
            for (const std::string& target : turn) {
                addressOf(target, found->first).retry.attempts = 0;
            }
            targets.at(value.target).resolution.attempts = 0;
        }
        retryLater(addressOf(value.target, found->first).retry);
        do {
            forgetIfUnnamed(turn.front(), found->first);
            turn.pop_front();
        } while (!turn.empty() && !addressOf(turn.front(), found->first).isNamed);
        if (turn.empty()) {
            turns.erase(found);
        } else {
            give(addressOf(turn.front(), found->first).value);
        }
        Target& target = targets.at(value.target);
        if (!target.isBeingResolved && !target.resolution.time) {
            retryLater(target.resolution);
        }
        setTimer();
    }

    void hurry() {
        for (auto& [text, target] : targets) {
            for (auto& [number, address] : target.addresses) {
                address.retry.hurry();
            }
            target.resolution.hurry();
        }
        tryWhatIsDue();
    }

    void close() noexcept {
        closed = true;
        timer.cancel();
        const std::lock_guard lock(wayBack->mutex);
        wayBack->context = nullptr;
    }

private:
    using Clock = std::chrono::steady_clock;

    /// When something is tried again.
    struct Retry {
        bool isDue(Clock::time_point now) const { return time && *time <= now; }

        void hurry() {
            if (time) {
                time.emplace();
            }
        }

        std::optional<Clock::time_point> time; // nothing while it is under way, or none is needed
        unsigned attempts = 0;                 // in vain
    };

    struct Address {
        TargetAddress value;
        Retry retry;
        bool isNamed = true; // by the target's name, when it was resolved last
    };

    struct Target {
        explicit Target(HostPort host)
            : host(std::move(host)) {}

        HostPort host;
        Retry resolution;
        bool isBeingResolved = false;
        std::map<std::string, Address> addresses; // by number
    };

    /// Connect to an address, or wait until another target does so no more.
    void takeTurn(Address& address) {
        try {
            std::deque<std::string>& turn = turns[address.value.address()];
            turn.push_back(address.value.target);
            address.retry.time.reset();
            if (turn.size() == 1) {
                give(address.value);
            }
        } catch (const std::bad_alloc&) {
            retryLater(address.retry);
        }
    }

    void give(const TargetAddress& address) {
        try {
            callbacks.due(address);
        } catch (...) {
            awaitMemoryFor([&] {
                // Nothing that takes memory to be moved.
                const auto value = std::make_shared<const TargetAddress>(address);
                post([value](State& self) { self.lost(*value, false); });
            });
        }
    }

    void resolve(const std::string& text, Target& target) {
        target.resolution.time.reset();
        try {
            if (auto numbers = numbersOfNumeric(target.host); !numbers.empty()) {
                take(text, target, {std::move(numbers), nullptr});
            } else {
                askInAThread(text, target.host);
                target.isBeingResolved = true;
            }
        } catch (const std::exception&) {
            take(text, target, {{}, std::current_exception()});
        }
    }

    void askInAThread(const std::string& text, const HostPort& host) {
        const auto answer = std::make_shared<Answer>();
        const BlockedSignals inTheThread;
        std::thread([wayBack = wayBack, weak = weak_from_this(), resolver = resolver, host, answer,
                     text = std::make_shared<const std::string>(text)] {
            *answer = ask(resolver, host);
            awaitMemoryFor([&] {
                const std::lock_guard lock(wayBack->mutex);
                if (wayBack->context != nullptr) {
                    // Nothing that takes memory to be moved.
                    boost::asio::post(*wayBack->context, [weak, text, answer = answer] {
                        if (const auto self = weak.lock(); self && !self->closed) {
                            self->take(*text, self->targets.at(*text), *answer);
                            self->setTimer();
                        }
                    });
                }
            });
        }).detach();
    }

    void take(const std::string& text, Target& target, const Answer& answer) {
        target.isBeingResolved = false;
        try {
            if (answer.failure) {
                std::rethrow_exception(answer.failure);
            }
            const std::vector<TargetAddress> addresses = addressesOf(text, target, answer);
            keepOnly(target, addresses);
            for (const TargetAddress& value : addresses) {
                const auto [known, isNew] =
                    target.addresses.try_emplace(value.address(), Address{value, {}, true});
                if (isNew && !closed) {
                    takeTurn(known->second);
                }
            }
            if (!closed) {
                callbacks.resolved(text, addresses);
            }
        } catch (const std::exception& error) {
            if (!closed) {
                retryLater(target.resolution);
                callBack(callbacks.failed, text, error.what());
            }
        }
    }

    static std::vector<TargetAddress>
    addressesOf(const std::string& text, const Target& target, const Answer& answer) {
        const std::string name = target.host.host.substr(0, target.host.host.find('%'));
        std::vector<TargetAddress> addresses;
        for (const HostPort& numeric : answer.addresses) {
            addresses.push_back({text, name, numeric});
        }
        return addresses;
    }

    /// Forget the addresses that a target has no more, except while they are used.
    void keepOnly(Target& target, const std::vector<TargetAddress>& addresses) {
        for (auto& [number, address] : target.addresses) {
            address.isNamed =
                std::find(addresses.begin(), addresses.end(), address.value) != addresses.end();
        }
        std::erase_if(target.addresses, [](const auto& entry) {
            return !entry.second.isNamed && entry.second.retry.time;
        });
    }

    void forgetIfUnnamed(const std::string& target, const std::string& number) {
        if (!addressOf(target, number).isNamed) {
            targets.at(target).addresses.erase(number);
        }
    }

    Address& addressOf(const std::string& target, const std::string& number) {
        return targets.at(target).addresses.at(number);
    }

    void retryLater(Retry& retry) {
        auto delay = backoff.initial;
        for (unsigned i = 0; i < retry.attempts && delay < backoff.longest; ++i) {
            delay *= 2;
        }
        ++retry.attempts;
        std::uniform_real_distribution<double> variation(0.8, 1.2);
        const auto varied = static_cast<double>(delay.count()) * variation(random);
        retry.time =
            Clock::now() +
            std::min(std::chrono::milliseconds(static_cast<std::int64_t>(varied)), backoff.longest);
    }

    /// Wait for the next attempt.
    void setTimer() {
        std::optional<Clock::time_point> next;
        const auto consider = [&](const Retry& retry) {
            if (retry.time && (!next || *retry.time < *next)) {
                next = retry.time;
            }
        };
        for (const auto& [text, target] : targets) {
            for (const auto& [number, address] : target.addresses) {
                consider(address.retry);
            }
            consider(target.resolution);
        }
        if (!next || closed) {
            timer.cancel();
            return;
        }
        awaitMemoryFor([&] {
            timer.expires_at(*next);
            timer.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
                if (!error && !self->closed) {
                    self->tryWhatIsDue();
                }
            });
        });
    }

    boost::asio::io_context& context;
    const Callbacks callbacks;
    const Resolver resolver;
    const Backoff backoff;
    const std::shared_ptr<WayBack> wayBack;
    boost::asio::steady_timer timer;
    std::map<std::string, Target> targets;
    /// By number: the targets that have an address, the one first that is connecting or connected.
    std::map<std::string, std::deque<std::string>> turns;
    std::minstd_rand random{std::random_device{}()};
    bool closed = false;
};

TargetPeers::TargetPeers(
    Housekeeper& housekeeper, const std::vector<std::string>& targets, Callbacks callbacks)
    : TargetPeers(
          housekeeper, targets, std::move(callbacks),
          [](const HostPort& host) { return numbersOf(host, Resolution::connect); }, Backoff{}) {}

TargetPeers::TargetPeers(
    Housekeeper& housekeeper, const std::vector<std::string>& targets, Callbacks callbacks,
    Resolver resolver, Backoff backoff)
    : state(
          housekeeper,
          std::make_shared<State>(
              housekeeper.context(), std::move(callbacks), std::move(resolver), backoff)) {
    for (const std::string& target : targets) {
        state->add(target);
    }
    state->post([](State& self) { self.tryWhatIsDue(); });
}

TargetPeers::~TargetPeers() = default;

void TargetPeers::lost(const TargetAddress& address, bool wasUseful) {
    const auto value = std::make_shared<const TargetAddress>(address);
    state->post([value, wasUseful](State& self) { self.lost(*value, wasUseful); });
}

void TargetPeers::hurry() {
    state->post([](State& self) { self.hurry(); });
}

} // namespace agent::orvi::remoting::details
