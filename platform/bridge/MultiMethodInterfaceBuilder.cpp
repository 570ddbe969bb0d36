#include <orvi/core/MultiMethodInterfaceBuilder.hpp>

#include <boost/algorithm/string/predicate.hpp>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace agent::orvi::core {

MultiMethodInterfaceBuilder::MultiMethodInterfaceBuilder(std::string name, APIVersion version)
    : name(std::move(name))
    , version(version) {}

MultiMethodInterfaceBuilder&
MultiMethodInterfaceBuilder::addMetadata(std::string key, std::string value) {
    if (key.empty()) {
        throw std::invalid_argument("A metadata key must not be empty.");
    }
    // Service properties, which the entries become, do not tell case apart.
    if (std::any_of(metadata.begin(), metadata.end(), [&](const auto& entry) {
            return boost::algorithm::iequals(entry.first, key, std::locale::classic());
        })) {
        throw std::invalid_argument("Metadata key \"" + key + "\" is recorded already.");
    }
    metadata.emplace_back(std::move(key), std::move(value));
    return *this;
}

MultiMethodInterfaceBuilder& MultiMethodInterfaceBuilder::addMethod(ExportedFunction method) {
    if (method.name().empty()) {
        throw std::invalid_argument("A method must have a name.");
    }
    if (std::any_of(methods.begin(), methods.end(), [&](const ExportedFunction& other) {
            return other.name() == method.name();
        })) {
        throw std::invalid_argument("Method \"" + method.name() + "\" is recorded already.");
    }
    methods.push_back(std::move(method));
    return *this;
}

ServiceInterface MultiMethodInterfaceBuilder::build() const {
    return {name, version, metadata, methods};
}

} // namespace agent::orvi::core
