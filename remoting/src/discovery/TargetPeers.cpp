#include "discovery/TargetPeers.hpp"

#include "carrier/AwaitMemory.hpp"
#include "discovery/BlockedSignals.hpp"
#include "discovery/NameResolution.hpp"

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <new>
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
    std::string failure;
};

std::vector<HostPort> numbersOf(const HostPort& host, Resolution resolution) {
    std::vector<HostPort> numbers;
    for (const SocketAddress& address : resolve(host, resolution)) {
        numbers.push_back(address.hostPort());
    }
    return numbers;
}

/// Return the text of an error, or of the one that there is no memory for it.
std::string textOf(const std::exception& error) noexcept {
    try {
        return error.what();
    } catch (const std::bad_alloc&) {
        return "No memory left."; // a string has room for it in itself
    }
}

Answer ask(const TargetPeers::Resolver& resolver, const HostPort& host) noexcept {
    Answer answer;
    try {
        answer.addresses = resolver(host);
        if (answer.addresses.empty()) {
            answer.failure = "Address " + toText(host) + ": no addresses";
        }
    } catch (const std::exception& error) {
        answer.failure = textOf(error);
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
    State(
        boost::asio::io_context& context, Resolved resolved, Failed failed, Resolver resolver,
        Backoff backoff)
        : context(context)
        , resolved(std::move(resolved))
        , failed(std::move(failed))
        , resolver(std::move(resolver))
        , backoff(backoff)
        , wayBack(std::make_shared<WayBack>()) {
        wayBack->context = &context;
    }

    void add(const std::string& text) {
        if (!targets.contains(text)) {
            targets.try_emplace(text, parseTarget(text), context);
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

    void resolveAll() {
        for (auto& [text, target] : targets) {
            if (!closed) {
                resolveNow(text, target);
            }
        }
    }

    void retry(const std::string& text) {
        const auto found = targets.find(text);
        if (found != targets.end() && !found->second.busy) {
            resolveLater(found->first, found->second);
        }
    }

    void connected(const std::string& text) {
        const auto found = targets.find(text);
        if (found != targets.end()) {
            found->second.attempts = 0;
        }
    }

    void close() noexcept {
        closed = true;
        for (auto& [text, target] : targets) {
            target.timer.cancel();
        }
        const std::lock_guard lock(wayBack->mutex);
        wayBack->context = nullptr;
    }

private:
    struct Target {
        Target(HostPort host, boost::asio::io_context& context)
            : host(std::move(host))
            , timer(context) {}

        HostPort host;
        boost::asio::steady_timer timer;
        unsigned attempts = 0;
        bool busy = false; // being resolved, or waiting for it
    };

    void resolveNow(const std::string& text, Target& target) {
        target.busy = true;
        try {
            if (auto numbers = numbersOfNumeric(target.host); !numbers.empty()) {
                take(text, {std::move(numbers), {}});
            } else {
                askInAThread(text, target.host);
            }
        } catch (const std::exception& error) {
            fail(text, textOf(error));
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
                            self->take(*text, *answer);
                        }
                    });
                }
            });
        }).detach();
    }

    void resolveLater(const std::string& text, Target& target) {
        target.busy = true;
        target.timer.expires_after(nextDelay(target));
        target.timer.async_wait(
            [self = shared_from_this(), &text, &target](const boost::system::error_code& error) {
                if (!error && !self->closed) {
                    self->resolveNow(text, target);
                }
            });
    }

    std::chrono::milliseconds nextDelay(Target& target) {
        auto delay = backoff.initial;
        for (unsigned i = 0; i < target.attempts && delay < backoff.longest; ++i) {
            delay *= 2;
        }
        ++target.attempts;
        std::uniform_real_distribution<double> variation(0.8, 1.2);
        const auto varied = static_cast<double>(delay.count()) * variation(random);
        return std::min(
            std::chrono::milliseconds(static_cast<std::int64_t>(varied)), backoff.longest);
    }

    void take(const std::string& text, const Answer& answer) {
        if (answer.addresses.empty()) {
            fail(text, answer.failure);
            return;
        }
        Target& target = targets.at(text);
        target.busy = false;
        try {
            std::vector<TargetAddress> addresses;
            for (const HostPort& numeric : answer.addresses) {
                const std::string name = target.host.host.substr(0, target.host.host.find('%'));
                addresses.push_back({text, name, numeric});
            }
            resolved(text, addresses);
        } catch (const std::exception& error) {
            if (!closed) {
                fail(text, textOf(error));
            }
        }
    }

    void fail(const std::string& text, const std::string& reason) {
        const auto target = targets.find(text);
        awaitMemoryFor([&] { resolveLater(target->first, target->second); });
        callBack(failed, text, reason);
    }

    boost::asio::io_context& context;
    const Resolved resolved;
    const Failed failed;
    const Resolver resolver;
    const Backoff backoff;
    const std::shared_ptr<WayBack> wayBack;
    std::map<std::string, Target> targets;
    std::minstd_rand random{std::random_device{}()};
    bool closed = false;
};

TargetPeers::TargetPeers(
    Housekeeper& housekeeper, const std::vector<std::string>& targets, Resolved resolved,
    Failed failed)
    : TargetPeers(
          housekeeper, targets, std::move(resolved), std::move(failed),
          [](const HostPort& host) { return numbersOf(host, Resolution::connect); }, Backoff{}) {}

TargetPeers::TargetPeers(
    Housekeeper& housekeeper, const std::vector<std::string>& targets, Resolved resolved,
    Failed failed, Resolver resolver, Backoff backoff)
    : state(
          housekeeper, std::make_shared<State>(
                           housekeeper.context(), std::move(resolved), std::move(failed),
                           std::move(resolver), backoff)) {
    for (const std::string& target : targets) {
        state->add(target);
    }
    state->post([](State& self) { self.resolveAll(); });
}

TargetPeers::~TargetPeers() = default;

void TargetPeers::retry(const std::string& target) {
    state->post([target = std::string(target)](State& self) { self.retry(target); });
}

void TargetPeers::connected(const std::string& target) {
    state->post([target = std::string(target)](State& self) { self.connected(target); });
}

} // namespace agent::orvi::remoting::details
