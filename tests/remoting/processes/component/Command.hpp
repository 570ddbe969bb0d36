#pragma once

#include <charconv>
#include <cstdint>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace agent::orvi::remoting::test {

/// One line that a component is told: a verb, then settings of the form "key=value". A value.
class Command {
public:
    explicit Command(const std::string& line) {
        std::istringstream words(line);
        words >> name;
        for (std::string word; words >> word;) {
            const auto equals = word.find('=');
            if (equals == std::string::npos) {
                throw std::invalid_argument("\"" + word + "\" is no setting");
            }
            settings[word.substr(0, equals)] = word.substr(equals + 1);
        }
    }

    const std::string& verb() const noexcept { return name; }

    bool has(const std::string& key) const { return settings.contains(key); }

    std::string text(const std::string& key) const {
        const auto found = settings.find(key);
        if (found == settings.end()) {
            throw std::invalid_argument("\"" + name + "\" needs \"" + key + "\"");
        }
        return found->second;
    }

    std::int64_t number(const std::string& key) const {
        const std::string value = text(key);
        std::int64_t result = 0;
        const auto [end, error] =
            std::from_chars(value.data(), value.data() + value.size(), result);
        if (error != std::errc() || end != value.data() + value.size()) {
            throw std::invalid_argument("\"" + value + "\" is no number");
        }
        return result;
    }

    std::int64_t number(const std::string& key, std::int64_t fallback) const {
        return has(key) ? number(key) : fallback;
    }

private:
    std::string name;
    std::map<std::string, std::string> settings;
};

} // namespace agent::orvi::remoting::test
