#pragma once

#include "remoting/processes/component/Command.hpp"
#include "remoting/processes/component/ControlledDevice.hpp"
#include "remoting/processes/component/Verbs.hpp"

#include <orvi/remoting/Endpoint.hpp>

#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace agent::orvi::remoting::test {

/// What a component does as a publisher.
class Publishing {
public:
    /// Add what it can be told: see Publishing.cpp.
    void addVerbs(Verbs& verbs);

    /// Let every stopped call go on and end everything.
    void shutDown();

private:
    /// What is published under one name.
    struct Publication {
        std::shared_ptr<ControlledDevice> device;
        std::shared_ptr<void> source; // what the device stands over, or what is published
        std::optional<streambuf::StreamBuffer> buffer;
    };

    std::string openEndpoint(const Command& command);
    std::string closeEndpoint();
    std::string publish(const Command& command);
    std::string publishForeign(const Command& command);
    std::string withdraw(const Command& command);
    std::string stopNext(const Command& command);
    ControlledDevice& deviceOf(const Command& command);

    std::optional<Endpoint> endpoint;
    std::optional<Endpoint> secondEndpoint;
    std::future<std::string> closing;
    std::map<std::string, Publication> publications;
};

} // namespace agent::orvi::remoting::test
