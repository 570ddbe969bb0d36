#pragma once

#include "cppmicroservices/ServiceException.h"

#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <utility>

namespace cppmicroservices::detail {

/// Returns the readable name of a type.
ORVI_PLATFORM_EXPORT std::string GetDemangledName(std::type_info const& typeInfo);

} // namespace cppmicroservices::detail

/// Returns the name that identifies interface T: the name of the type, or what
/// CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE gave it.
template <class T>
std::string const& us_service_interface_iid() {
    static std::string const name = cppmicroservices::detail::GetDemangledName(typeid(T));
    return name;
}

template <>
inline std::string const& us_service_interface_iid<void>() {
    static std::string const name;
    return name;
}

namespace cppmicroservices {

class ServiceFactory;

/// The interfaces of a service object, by interface name.
using InterfaceMap = std::unordered_map<std::string, std::shared_ptr<void>>;
using InterfaceMapPtr = std::shared_ptr<InterfaceMap>;
using InterfaceMapConstPtr = std::shared_ptr<InterfaceMap const>;

namespace detail {

/// Tells whether T is one of List.
template <class T, class... List>
struct Contains : std::disjunction<std::is_same<T, List>...> {};

} // namespace detail
} // namespace cppmicroservices

/// Gives an interface type a name of its own. Use it in the global namespace, beside the type.
#define CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(interface_type, interface_id)                   \
    template <>                                                                                    \
    inline std::string const& us_service_interface_iid<interface_type>() {                         \
        static std::string const name(interface_id);                                               \
        return name;                                                                               \
    }

namespace cppmicroservices {

/// Makes the interface map of a service object or of a service factory; converts to
/// InterfaceMapPtr.
template <class... Interfaces>
class MakeInterfaceMap {
public:
    /// Offers @p impl through each of Interfaces.
    template <class Impl>
    MakeInterfaceMap(std::shared_ptr<Impl> const& impl)
        : interfaces_(std::static_pointer_cast<Interfaces>(impl)...) {}

    /// Offers the objects that @p factory will make.
    /// @throws ServiceException if @p factory is null.
    MakeInterfaceMap(std::shared_ptr<ServiceFactory> factory)
        : factory_(std::move(factory)) {
        if (!factory_) {
            throw ServiceException("The service factory argument must not be nullptr.");
        }
    }

    operator InterfaceMapPtr() { return make(); }

    operator InterfaceMapConstPtr() { return make(); }

private:
    InterfaceMapPtr make() const {
        auto map = std::make_shared<InterfaceMap>();
        std::apply(
            [&map](auto const&... pointers) {
                (map->emplace(
                     us_service_interface_iid<
                         typename std::decay_t<decltype(pointers)>::element_type>(),
                     std::static_pointer_cast<void>(pointers)),
                 ...);
            },
            interfaces_);
        if (factory_) {
            map->emplace("org.cppmicroservices.factory", factory_);
        }
        return map;
    }

    std::shared_ptr<ServiceFactory> factory_;
    std::tuple<std::shared_ptr<Interfaces>...> interfaces_;
};

/// Returns the interface named @p interfaceId, any of them if the name is empty, null if absent.
inline std::shared_ptr<void>
ExtractInterface(InterfaceMapConstPtr const& map, std::string const& interfaceId) {
    if (!map) {
        return nullptr;
    }
    auto const found = interfaceId.empty() ? map->begin() : map->find(interfaceId);
    return found == map->end() ? nullptr : found->second;
}

/// Returns the interface of type Interface, null if absent. @p map must not be null.
template <class Interface>
std::shared_ptr<Interface> ExtractInterface(InterfaceMapConstPtr const& map) {
    auto const found = map->find(us_service_interface_iid<Interface>());
    return found == map->end() ? nullptr : std::static_pointer_cast<Interface>(found->second);
}

/// Selects the registration of a factory in BundleContext::RegisterService().
template <class T>
std::shared_ptr<ServiceFactory> ToFactory(std::shared_ptr<T> const& factory) {
    return std::static_pointer_cast<ServiceFactory>(factory);
}

} // namespace cppmicroservices
