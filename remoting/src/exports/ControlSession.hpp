#pragma once

#include "carrier/Carrier.hpp"
#include "exports/ExportTable.hpp"
#include "exports/News.hpp"
#include "wire/Messages.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace agent::orvi::remoting::details {

/// How an endpoint introduces itself.
struct EndpointName {
    std::string framework;
    std::string endpoint;
};

/// One peer's control stream on the exporting side: it says what it looks for and hears what there
/// is.
class ControlSession final : public StreamEvents,
                             public Audience,
                             public std::enable_shared_from_this<ControlSession> {
public:
    ControlSession(
        std::shared_ptr<Stream> stream, std::shared_ptr<ExportTable> table, EndpointName name,
        std::size_t maximumWants, Executor& executor);

    void received(google::protobuf::io::ZeroCopyInputStream& input, std::size_t size) override;
    void sent() override;
    void ended(const StreamEnd& end) override;

    /// End the stream once the peer has heard all that was to be told.
    void sayGoodbye();

    void offered(std::uint64_t service) override;
    void withdrawn(std::uint64_t service, bool unwanted) override;

private:
    void greet(const v1::Frame& frame);
    void handle(const v1::Frame& frame);
    void want(const v1::Want& want);
    std::string whyNot(const v1::Want& want) const;
    void listen();
    void tell(const News::Item& item) noexcept;
    void sendNext() noexcept;
    void trySendNext();
    template <class Action>
    void orEnd(const Action& action) noexcept;
    bool encode(const News::Item& item, OutgoingFrame& outgoing);

    const std::shared_ptr<Stream> stream;
    const std::shared_ptr<ExportTable> table;
    const EndpointName name;
    const std::size_t maximumWants;
    Executor& executor;

    // Of the events and the tasks that they post, one at a time:
    bool greeted = false;
    std::size_t wants = 0;

    std::mutex mutex;
    News news;
    bool sending = false;
    bool deaf = false; // it listens when the peer does
    bool over = false;
};

} // namespace agent::orvi::remoting::details
