#include "remoting/safety/NameService.hpp"

#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include <dlfcn.h>
#include <netdb.h>

namespace agent::orvi::remoting::test {
namespace {

struct Entry {
    std::vector<std::string> addresses;
    std::function<void()> whenAsked;
};

std::mutex mutex;
std::map<std::string, Entry> entries; // guarded by mutex

/// Return what is said of a name; nothing when the system is to be asked, as for numeric addresses.
std::optional<Entry> entryOf(const char* name, const addrinfo* hints) {
    if (name == nullptr || (hints != nullptr && (hints->ai_flags & AI_NUMERICHOST) != 0)) {
        return std::nullopt;
    }
    const std::lock_guard lock(mutex);
    const auto entry = entries.find(name);
    return entry == entries.end() ? std::nullopt : std::optional(entry->second);
}

} // namespace

NameService::NameService(std::string name)
    : name(std::move(name)) {
    const std::lock_guard lock(mutex);
    entries[this->name] = {};
}

NameService::~NameService() {
    const std::lock_guard lock(mutex);
    entries.erase(name);
}

void NameService::set(const std::vector<std::string>& addresses) {
    const std::lock_guard lock(mutex);
    entries[name].addresses = addresses;
}

void NameService::callWhenAsked(std::function<void()> callback) {
    const std::lock_guard lock(mutex);
    entries[name].whenAsked = std::move(callback);
}

} // namespace agent::orvi::remoting::test

extern "C" __attribute__((visibility("default"))) int
getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    using namespace agent::orvi::remoting::test;
    static const auto real =
        reinterpret_cast<decltype(&::getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    const auto entry = entryOf(node, hints);
    if (!entry) {
        return real(node, service, hints, result);
    }
    if (entry->whenAsked) {
        entry->whenAsked();
    }
    int error = EAI_NONAME;
    for (const std::string& address : entryOf(node, hints).value_or(*entry).addresses) {
        error = real(address.c_str(), service, hints, result);
        if (error != 0) {
            return error;
        }
        while (*result != nullptr) {
            result = &(*result)->ai_next;
        }
    }
    return error;
}
