#include "ServiceRecord.hpp"

#include <stdexcept>
#include <utility>

namespace cppmicroservices::detail {

namespace {

std::string scopeName(Scope scope) {
    switch (scope) {
    case Scope::Bundle:
        return "bundle";
    case Scope::Prototype:
        return "prototype";
    default:
        return "singleton";
    }
}

} // namespace

std::shared_ptr<AnyMap const> ServiceRecord::properties() const {
    std::lock_guard const lock(mutex);
    return properties_;
}

int ServiceRecord::ranking() const {
    std::lock_guard const lock(mutex);
    return ranking_;
}

void ServiceRecord::setProperties(ServiceProperties const& given) {
    auto complete = given;
    complete["objectclass"] = classes;
    complete["service.id"] = id;
    complete["service.scope"] = scopeName(scope);

    any_map::unordered_any_cimap map(complete.size());
    for (auto& property : complete) {
        auto const [known, added] = map.emplace(property.first, std::move(property.second));
        if (!added) {
            throw std::runtime_error(
                "Properties contain case variants of the key: " + known->first);
        }
    }
    int ranking = 0;
    if (auto const found = map.find("service.ranking"); found != map.end()) {
        try {
            ranking = any_cast<int>(found->second);
        } catch (BadAnyCastException const& e) {
            throw std::invalid_argument(
                std::string("SERVICE_RANKING property has unexpected value type. ") + e.what());
        }
    }
    auto properties = std::make_shared<AnyMap const>(std::move(map));
    std::lock_guard const lock(mutex);
    ranking_ = ranking;
    properties_.swap(properties);
}

} // namespace cppmicroservices::detail
