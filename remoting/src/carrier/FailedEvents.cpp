#include "carrier/FailedEvents.hpp"

#include <exception>
#include <new>

namespace agent::orvi::remoting::details {

StreamEnd outOfMemory() noexcept {
    return {StreamEnd::Kind::disconnected, "No memory left."}; // a string has room for it in itself
}

StreamEnd endOfFailedEvent() noexcept {
    try {
        try {
            throw;
        } catch (const std::bad_alloc&) {
            return outOfMemory();
        } catch (const std::exception& error) {
            return {StreamEnd::Kind::protocolError, error.what()};
        }
    } catch (const std::bad_alloc&) {
        return outOfMemory(); // not even for the text
    } catch (...) {
        return {StreamEnd::Kind::protocolError, {}};
    }
}

} // namespace agent::orvi::remoting::details
