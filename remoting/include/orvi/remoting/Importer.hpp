#pragma once

#include <orvi/remoting/TlsFiles.hpp>
#include <orvi/remoting_export.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace agent::orvi::remoting {

/// What one endpoint may have an importer keep at most. One that offers more of what is looked for
/// is disconnected: calls end with `LimitExceeded`, and it is tried again ever more slowly.
struct ImporterLimits {
    std::size_t services = 262144; ///< Services that are looked for, at a time.
    std::uint64_t serviceBytes = std::uint64_t{256} << 20; ///< Bytes of their descriptions.
};

/// Where an `Importer` looks for endpoints.
struct ImporterOptions {
    /// Find the endpoints of the same user on this machine.
    bool local = true;

    /// Where local processes meet; see EndpointOptions::runtimeDirectory.
    std::filesystem::path runtimeDirectory;

    /// Endpoints on other machines, as "host:port". Each name is resolved to all its addresses,
    /// which are all used. One that cannot be reached is tried again until it can.
    std::vector<std::string> targets;

    /// Identification over TCP. Without it only loopback addresses are possible, and those only
    /// when `plainLoopback` says so.
    std::optional<TlsFiles> tls;

    /// Allow TCP without TLS on loopback addresses.
    bool plainLoopback = false;

    /// A silent peer is asked for a sign of life after this time …
    std::chrono::milliseconds keepaliveTime = std::chrono::seconds(10);
    /// … and given up when it gives none within this time.
    std::chrono::milliseconds keepaliveTimeout = std::chrono::seconds(5);

    /// How long a thread that waits for an answer asks for it before it sleeps, when answers have
    /// lately come within that time. Spares being woken, which takes longer than a small call does.
    /// 0: never. At most 10 ms. Has no effect on a single processor.
    std::chrono::microseconds busyPolling{100};

    ImporterLimits limits; ///< What one endpoint may offer at most.
};

/// One endpoint that an importer knows. A value.
struct PeerStatus {
    /// How far the connection has come.
    enum class State {
        connecting, ///< Nothing is known yet.
        connected,  ///< The endpoint is asked for what is looked for.
        failed      ///< There is none; it is tried again as long as the endpoint is to be found.
    };

    /// "unix:" and a path, or "host:port"; a target as it was given until its name is resolved.
    std::string address;
    State state = State::connecting; ///< How far the connection has come.
    std::string endpoint;            ///< The endpoint's name, once connected.
    std::string error; ///< Why it is not connected, if it failed, or why it refuses a look-up.
};

/// Makes services of other processes available in this process's service registry for as long as
/// it lives.
///
/// It asks its peers for what some listener or tracker of this process looks for by the property
/// "orvi.servicename" (or the objectclass of Invokable), and registers what they offer with
/// the properties that it has there and "service.imported", "service.imported.configs",
/// "endpoint.id" and "endpoint.framework.uuid". A service disappears when its publisher withdraws
/// it, when its process is lost and when nobody looks for it any more; service objects that are in
/// use work on.
///
/// The process's owner owns it. Close it before the framework stops. After `fork` it works in the
/// parent only.
///
/// Thread safety: thread-safe.
class ORVI_REMOTING_EXPORT Importer {
public:
    /// Start to look for endpoints. Does not wait for any.
    ///
    /// @throws std::invalid_argument for options that contradict each other or are out of range;
    ///         says which.
    /// @throws UnusableTlsFile for TLS files that do not contain what they should.
    /// @throws std::system_error for a runtime directory or a TLS file that cannot be used.
    explicit Importer(const ImporterOptions& options = {});

    /// Close, as `close` does.
    ~Importer();

    /// Take over what `other` does; it may only be destroyed or assigned to then.
    Importer(Importer&& other) noexcept;

    /// Close this importer, then take over what `other` does, as construction does.
    Importer& operator=(Importer&& other) noexcept;
    Importer(const Importer&) = delete;
    Importer& operator=(const Importer&) = delete;

    /// Unregister what was imported and disconnect. Calls in flight end with `PeerLost`, as do all
    /// later ones. Blocks for at most two seconds. Nothing happens the second time.
    void close() noexcept;

    /// Return the endpoints known at this moment.
    std::vector<PeerStatus> peers() const;

    /// Block until every endpoint that is known at this moment has either offered what is looked
    /// for or failed, or the time is over.
    ///
    /// @return whether it was in time.
    bool waitUntilSettled(std::chrono::milliseconds time) const;

private:
    class Impl;

    void end() noexcept;

    std::shared_ptr<Impl> impl;
};

} // namespace agent::orvi::remoting
