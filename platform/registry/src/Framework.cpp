#include "cppmicroservices/Framework.h"

#include "FrameworkCore.hpp"

#include "cppmicroservices/FrameworkFactory.h"

#include <utility>

namespace cppmicroservices {

Framework::Framework(Bundle bundle)
    : Bundle(std::move(bundle)) {
    core();
}

Framework::Framework(std::shared_ptr<detail::FrameworkCore> core)
    : Bundle(std::move(core)) {}

void Framework::Init() {
    core().init();
}

FrameworkEvent Framework::WaitForStop(std::chrono::milliseconds const& timeout) {
    return core().waitForStop(timeout);
}

Framework
FrameworkFactory::NewFramework(FrameworkConfiguration const& configuration, std::ostream* logger) {
    auto const core = std::make_shared<detail::FrameworkCore>(configuration, logger);
    auto const owner = std::make_shared<detail::FrameworkOwner>(core);
    core->setOwner(owner);
    return Framework(core);
}

Framework FrameworkFactory::NewFramework() {
    return NewFramework(FrameworkConfiguration());
}

Framework FrameworkFactory::NewFramework(
    std::map<std::string, Any> const& configuration, std::ostream* logger) {
    return NewFramework(FrameworkConfiguration(configuration.begin(), configuration.end()), logger);
}

} // namespace cppmicroservices
