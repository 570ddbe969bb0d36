/// What the buffer size does, and a service framework of the host's own.

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/Invokable.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/string_generator.hpp>

#include <cstdint>
#include <iostream>
#include <memory>
#include <string>

using namespace agent::orvi::streambuf;

int main() {
    // [framework]
    const auto framework = std::make_shared<cppmicroservices::Framework>(
        cppmicroservices::FrameworkFactory().NewFramework());
    foundation::cppmicroservices::setFramework(framework); // before the first device is made
    // [framework]

    // [buffer]
    const auto read = [](std::int64_t count) {
        std::cout << "asked for " << count << '\n';
        return std::string(static_cast<std::size_t>(count), '.');
    };
    const boost::uuids::uuid uuid =
        boost::uuids::string_generator()("91c4e8b3-6f2a-4d57-b0e6-a5f8d7c31e40");
    StreamBuffer device =
        makeDevice(uuid, read, noWriteFunction(), noSeekOffFunction(), noSeekPosFunction(), 512);

    std::istream input(&device);
    std::string data(2000, ' ');
    input.get();                  // fills the buffer
    input.read(data.data(), 100); // is in the buffer
    input.read(data.data(), 2000);
    // [buffer]

    // [service]
    const auto found =
        framework->GetBundleContext().GetServiceReferences<agent::orvi::core::Invokable>(
            "(orvi.serviceproperty.hasRead=true)");
    for (const auto& service : found) {
        std::cout << service.GetProperty("orvi.servicename").ToString() << '\n';
    }
    // [service]
}
