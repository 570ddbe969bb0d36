#pragma once

#include "carrier/Carrier.hpp"
#include "imports/Wants.hpp"
#include "wire/Messages.hpp"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace agent::orvi::remoting::details {

/// The control stream to one endpoint: tells it what is looked for and hears what it has.
///
/// Thread safety: thread-safe.
class PeerLink final : public StreamEvents, public std::enable_shared_from_this<PeerLink> {
public:
    /// Receives the peer's news, one at a time and in order. It must not wait; `digested` says when
    /// an offer, a withdrawal or a settling has been dealt with.
    class Receiver {
    public:
        /// The peer has said who it is: the moment to say what is looked for.
        virtual void greeted(PeerLink& link) = 0;

        /// The link is ready, or the peer takes other look-ups than before.
        virtual void connected(PeerLink& link) = 0;
        virtual void offered(PeerLink& link, std::shared_ptr<const v1::Offer> offer) = 0;
        virtual void withdrawn(PeerLink& link, const v1::Withdrawal& withdrawal) = 0;
        virtual void settled(PeerLink& link) = 0;
        virtual void lost(PeerLink& link) noexcept = 0;

    protected:
        ~Receiver() = default;
    };

    /// @param address names the peer.
    /// @param framework this process's own framework, whose services are not imported.
    PeerLink(
        std::shared_ptr<Connection> connection, std::shared_ptr<Receiver> receiver,
        std::string address, std::string framework);

    /// Open the stream. `lost` is the last that is heard.
    void open();

    /// Tell the peer that a filter is looked with, or no more. The link is lost when there is no
    /// memory for that.
    void change(const Wants::Want& want, bool wanted) noexcept;

    /// One piece of news has been dealt with. While many have not, no more are read.
    void digested();

    /// Say whether the peer has offered what is looked for.
    bool isSettled();

    /// Return why the peer does not look for some of it, nothing while it looks for everything.
    std::string refusal();

    const std::shared_ptr<Connection>& connection() const noexcept { return peerConnection; }

    const std::string& address() const noexcept { return peerAddress; }

    /// Return the names that the peer has given. Once it has greeted.
    const std::string& endpoint() const noexcept { return endpointId; }

    const std::string& peerFramework() const noexcept { return frameworkId; }

    /// Return how the stream has ended. Once the link is lost.
    const StreamEnd& end() const noexcept { return streamEnd; }

    void received(google::protobuf::io::ZeroCopyInputStream& input, std::size_t size) override;
    void sent() override;
    void ended(const StreamEnd& end) override;

private:
    void greeted(const v1::Hello& hello);
    void tell(const Wants::Want& want, bool wanted);
    template <class Action>
    void orEnd(const Action& action) noexcept;
    void settled(const v1::Settled& settled);
    void ask(const Wants::Want& want);
    void sendNext();

    const std::shared_ptr<Connection> peerConnection;
    const std::shared_ptr<Receiver> receiver;
    const std::string peerAddress;
    const std::string ownFramework;

    // Of the events, one at a time:
    v1::Frame frame;
    bool isGreeted = false;
    std::string endpointId;
    std::string frameworkId;
    StreamEnd streamEnd;

    std::mutex mutex;
    std::shared_ptr<Stream> stream;
    std::deque<v1::Frame> outgoing;
    bool sending = false;
    std::size_t undigested = 0;
    bool deaf = false;  // until there are fewer of them
    bool ready = false; // the peer has greeted
    bool over = false;
    bool incomplete = false;                        // the peer has not heard everything
    std::map<std::uint64_t, std::string> unsettled; // filters
    std::map<std::uint64_t, std::string> refused;   // filters that may be taken some day
    std::string lastRefusal;
};

} // namespace agent::orvi::remoting::details
