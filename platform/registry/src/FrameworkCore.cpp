#include "FrameworkCore.hpp"

#include "HookTracker.hpp"

#include "cppmicroservices/Constants.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <utility>

namespace cppmicroservices::detail {

namespace {

/// The release whose API and behaviour this follows.
constexpr char const* version = "3.8.12";

int nextNumber() {
    static std::atomic<int> last{0};
    return last++;
}

FrameworkConfiguration completed(FrameworkConfiguration configuration) {
    configuration.emplace(Constants::FRAMEWORK_LOG, false);
    configuration.emplace(Constants::FRAMEWORK_STORAGE, std::string("fwdir"));
    configuration.emplace(
        Constants::FRAMEWORK_WORKING_DIR, std::filesystem::current_path().string());
    configuration[Constants::FRAMEWORK_THREADING_SUPPORT] = Constants::FRAMEWORK_THREADING_MULTI;
    configuration[Constants::FRAMEWORK_VERSION] = std::string(version);
    configuration[Constants::FRAMEWORK_VENDOR] = std::string("orvi");
    return configuration;
}

AnyMap systemBundleHeaders() {
    return AnyMap(
        any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS,
        {{Constants::BUNDLE_SYMBOLICNAME, Constants::SYSTEM_BUNDLE_SYMBOLICNAME},
         {Constants::BUNDLE_NAME, Constants::SYSTEM_BUNDLE_LOCATION},
         {Constants::BUNDLE_VERSION, std::string(version)},
         {Constants::BUNDLE_MANIFESTVERSION, std::string("2")},
         {Constants::BUNDLE_VENDOR, std::string("orvi")},
         {Constants::BUNDLE_DESCRIPTION,
          std::string("System bundle of the embedded service registry")}});
}

std::string randomUuid() {
    std::random_device device;
    std::uniform_int_distribution<int> digit(0, 15);
    std::string uuid = "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx";
    for (char& c : uuid) {
        if (c == 'x') {
            c = "0123456789abcdef"[digit(device)];
        } else if (c == 'y') {
            c = "89ab"[digit(device) / 4];
        }
    }
    return uuid;
}

/// What std::condition_variable can add to the present without overflow.
constexpr std::chrono::hours longestWait(24 * 365 * 10);

std::string stateError(Bundle::State state) {
    return "INTERNAL ERROR, Illegal state, " + std::to_string(static_cast<std::uint32_t>(state));
}

} // namespace

std::shared_ptr<FrameworkCore> ContextData::check(std::shared_ptr<ContextData> const& context) {
    auto core = context && context->valid ? context->core.lock() : nullptr;
    if (!core) {
        throw IllegalStateException("The bundle context is no longer valid");
    }
    return core;
}

FrameworkCore::FrameworkCore(FrameworkConfiguration const& configuration, std::ostream* logger)
    : number_(nextNumber())
    , logger_(logger ? logger : &std::clog)
    , logs_(
          configuration.count(Constants::FRAMEWORK_LOG) != 0 &&
          any_cast<bool>(configuration.at(Constants::FRAMEWORK_LOG)))
    , headers_(systemBundleHeaders())
    , properties_(completed(configuration))
    , initialised_(std::chrono::steady_clock::now()) {}

FrameworkCore::~FrameworkCore() {
    if (stopper_.joinable() && stopper_.get_id() == std::this_thread::get_id()) {
        stopper_.detach();
    }
    join();
}

void FrameworkCore::join() {
    std::thread finished;
    {
        std::lock_guard const lock(mutex_);
        if (stopper_.joinable() && stopper_.get_id() != std::this_thread::get_id()) {
            finished = std::move(stopper_);
        }
    }
    if (finished.joinable()) {
        finished.join();
    }
}

/// Needs the lock. The hooks cannot be opened under it, which leaves that to openHooks().
void FrameworkCore::prepare() {
    auto context = std::make_shared<ContextData>(weak_from_this());
    auto hooks = std::make_shared<HookTracker>(weak_from_this(), BundleContext(context));
    properties_[Constants::FRAMEWORK_UUID] = randomUuid();
    initialised_ = std::chrono::steady_clock::now();
    context_ = std::move(context);
    hooks_ = std::move(hooks);
    state_ = Bundle::STATE_STARTING;
}

/// Be as before prepare().
void FrameworkCore::unprepare() {
    std::shared_ptr<HookTracker> hooks;
    std::lock_guard const lock(mutex_);
    if (state_ == Bundle::STATE_STARTING) {
        hooks.swap(hooks_);
        context_->valid = false;
        context_.reset();
        state_ = Bundle::STATE_RESOLVED;
    }
}

std::shared_ptr<HookTracker> FrameworkCore::hooks() const {
    std::lock_guard const lock(mutex_);
    return hooks_;
}

void FrameworkCore::openHooks() {
    try {
        if (auto const tracker = hooks()) {
            tracker->open();
        }
    } catch (IllegalStateException const&) {
        // Another thread has stopped the framework already.
    } catch (...) {
        unprepare();
        throw;
    }
}

void FrameworkCore::init() {
    {
        std::lock_guard const lock(mutex_);
        if (state_ == Bundle::STATE_STARTING || state_ == Bundle::STATE_ACTIVE) {
            return;
        }
        if (!isStopped()) {
            throw std::logic_error(stateError(state_));
        }
        prepare();
    }
    openHooks();
}

void FrameworkCore::start() {
    bool prepared = false;
    {
        std::lock_guard const lock(mutex_);
        if (state_ == Bundle::STATE_ACTIVE) {
            return;
        }
        if (state_ == Bundle::STATE_STOPPING) {
            throw std::runtime_error(stateError(state_));
        }
        prepared = isStopped();
        if (prepared) {
            prepare();
        }
    }
    if (prepared) {
        openHooks();
    }
    {
        std::lock_guard const lock(mutex_);
        if (state_ != Bundle::STATE_STARTING) {
            return;
        }
        state_ = Bundle::STATE_ACTIVE;
    }
    send(FrameworkEvent(FrameworkEvent::FRAMEWORK_STARTED, bundle(), std::string()));
}

void FrameworkCore::stop() {
    {
        std::lock_guard const lock(mutex_);
        if (isStopped()) {
            stopResult_ = FrameworkEvent::FRAMEWORK_STOPPED;
            return;
        }
        if (state_ == Bundle::STATE_STOPPING) {
            return;
        }
        state_ = Bundle::STATE_STOPPING;
    }
    join();
    std::lock_guard const lock(mutex_);
    stopper_ = std::thread([self = shared_from_this()] { self->shutDown(); });
}

void FrameworkCore::shutDown() {
    send(BundleEvent(BundleEvent::BUNDLE_STOPPING, bundle()));
    hooks()->close();
    std::shared_ptr<ContextData> context;
    {
        std::lock_guard const lock(mutex_);
        hooks_.reset();
        context.swap(context_);
        context->valid = false;
    }
    services_.clear();
    serviceListeners_.clear();
    bundleListeners_.clear();
    frameworkListeners_.clear();
    std::lock_guard const lock(mutex_);
    state_ = Bundle::STATE_RESOLVED;
    stopResult_ = FrameworkEvent::FRAMEWORK_STOPPED;
    ++stops_;
    stopped_.notify_all();
}

FrameworkEvent FrameworkCore::waitForStop(std::chrono::milliseconds timeout) {
    FrameworkEvent::Type result{};
    {
        std::unique_lock lock(mutex_);
        // It may be started again before this thread wakes up.
        auto const hasStopped = [this, before = stops_] { return isStopped() || stops_ != before; };
        if (timeout == std::chrono::milliseconds::zero()) {
            stopped_.wait(lock, hasStopped);
        } else if (!stopped_.wait_for(
                       lock, std::min<std::chrono::milliseconds>(timeout, longestWait),
                       hasStopped)) {
            lock.unlock();
            return FrameworkEvent(FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT, bundle(), std::string());
        }
        result = stopResult_;
    }
    join();
    runShutdownFunction();
    return FrameworkEvent(result, bundle(), std::string());
}

void FrameworkCore::stopAbandoned() {
    bool running = false;
    {
        std::unique_lock lock(mutex_);
        running = state_ == Bundle::STATE_STARTING || state_ == Bundle::STATE_ACTIVE;
        if (running) {
            state_ = Bundle::STATE_STOPPING;
        } else if (stopper_.get_id() == std::this_thread::get_id()) {
            return;
        } else {
            stopped_.wait(lock, [this] { return isStopped(); });
        }
    }
    if (running) {
        shutDown();
    }
    join();
    runShutdownFunction();
}

void FrameworkCore::runShutdownFunction() const {
    auto const function = property(Constants::FRAMEWORK_EXTRA_SHUTDOWN_FUNC);
    if (!function.Empty()) {
        any_cast<std::function<void()>>(function)();
    }
}

Bundle::State FrameworkCore::state() const {
    std::lock_guard const lock(mutex_);
    return state_;
}

std::chrono::steady_clock::time_point FrameworkCore::initialised() const {
    std::lock_guard const lock(mutex_);
    return initialised_;
}

Any FrameworkCore::property(std::string const& key) const {
    std::lock_guard const lock(mutex_);
    auto const found = properties_.find(key);
    return found == properties_.end() ? Any() : found->second;
}

AnyMap FrameworkCore::properties() const {
    std::lock_guard const lock(mutex_);
    return properties_;
}

BundleContext FrameworkCore::context() const {
    std::lock_guard const lock(mutex_);
    return BundleContext(context_);
}

void FrameworkCore::log(std::string const& line) {
    if (logs_) {
        std::lock_guard const lock(logMutex_);
        *logger_ << line << '\n';
    }
}

} // namespace cppmicroservices::detail
