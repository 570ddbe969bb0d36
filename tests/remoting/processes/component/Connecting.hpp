#pragma once

#include "remoting/processes/component/Command.hpp"
#include "remoting/processes/component/Verbs.hpp"

#include "streambuf/StreamBuffer.hpp"

#include <orvi/core/Invokable.hpp>
#include <orvi/remoting/Importer.hpp>

#include <cppmicroservices/ServiceTracker.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

namespace agent::orvi::remoting::test {

/// What a component does with the streams of others.
class Connecting {
public:
    /// Add what it can be told: see Connecting.cpp.
    void addVerbs(Verbs& verbs);

    /// End everything.
    void shutDown();

private:
    using Tracker = cppmicroservices::ServiceTracker<core::Invokable>;

    std::string openImporter(const Command& command);
    std::string connect(const Command& command);
    std::string lookUp(const Command& command);
    std::string read(const Command& command);
    std::string write(const Command& command);
    streambuf::StreamBuffer& bufferOf(const Command& command);

    std::optional<Importer> importer;
    std::map<std::string, streambuf::StreamBuffer> connected;
    std::map<std::string, std::unique_ptr<Tracker>> lookUps;
};

} // namespace agent::orvi::remoting::test
