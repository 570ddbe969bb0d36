// Ends the process in one of the orders in which a host may let go of things. It is a failure when
// the process crashes, hangs, or when a sanitizer has something to say.

#include "streambuf/StreamBuffer.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>

#include <boost/uuid/random_generator.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace {

using agent::orvi::streambuf::makeDevice;
using agent::orvi::streambuf::noCloseFunction;
using agent::orvi::streambuf::StreamBuffer;
using cppmicroservices::Framework;

const boost::uuids::uuid uuid = boost::uuids::random_generator()();

StreamBuffer publish() {
    return makeDevice(
        uuid, [](std::int64_t count) { return std::string(static_cast<std::size_t>(count), 'x'); },
        [](const std::string& data) { return static_cast<std::int64_t>(data.size()); }, {}, {}, 16);
}

StreamBuffer connect() {
    return makeDevice(uuid, noCloseFunction());
}

/// Use both directions, so that output is pending at the end.
void use(StreamBuffer& buffer) {
    if (buffer.sgetc() != 'x' || buffer.sputc('x') != 'x') {
        std::cerr << "the device cannot be used\n";
        std::_Exit(1);
    }
}

/// A framework of the host's own, in use by the library.
std::shared_ptr<Framework> hostFramework() {
    auto framework =
        std::make_shared<Framework>(cppmicroservices::FrameworkFactory().NewFramework());
    foundation::cppmicroservices::setFramework(framework);
    return framework;
}

void stop(Framework& framework) {
    framework.Stop();
    framework.WaitForStop(std::chrono::milliseconds::zero());
}

void makeStatic(bool connectedToo) {
    static std::optional<StreamBuffer> published;
    static std::optional<StreamBuffer> connected;
    published.emplace(publish());
    use(*published);
    if (connectedToo) {
        connected.emplace(connect());
        use(*connected);
    }
}

// Constructed before anything of the library is used, so destroyed after all of that.
std::optional<StreamBuffer> destroyedLast;

const std::map<std::string, std::function<void()>> orders = {
    {"static-after-framework",
     [] {
         destroyedLast.emplace(publish());
         use(*destroyedLast);
     }},
    {"static-before-framework",
     [] {
         foundation::cppmicroservices::getFramework();
         makeStatic(false);
     }},
    {"static-made-with-its-device",
     [] {
         static StreamBuffer published = publish();
         use(published);
     }},
    {"connected-outlives-publisher",
     [] {
         StreamBuffer published = publish();
         destroyedLast.emplace(connect());
         use(*destroyedLast);
     }},
    {"published-and-connected-static", [] { makeStatic(true); }},
    {"static-after-stopped-framework",
     [] {
         makeStatic(true);
         stop(*foundation::cppmicroservices::getFramework());
     }},
    {"host-framework-stopped-and-released-first",
     [] {
         std::shared_ptr<Framework> framework = hostFramework();
         destroyedLast.emplace(publish());
         makeStatic(false);
         stop(*framework);
         framework.reset();
     }},
    {"host-framework-stopped-after-use",
     [] {
         const std::shared_ptr<Framework> framework = hostFramework();
         {
             StreamBuffer published = publish();
             StreamBuffer connected = connect();
             use(published);
             use(connected);
         }
         stop(*framework);
     }},
    {"host-framework-destroyed-at-exit",
     [] {
         static std::shared_ptr<Framework> framework = hostFramework();
         destroyedLast.emplace(publish());
         makeStatic(true);
     }},
    {"thread-local",
     [] {
         thread_local std::optional<StreamBuffer> ofThread;
         ofThread.emplace(publish());
         use(*ofThread);
         destroyedLast.emplace(connect());
     }},
    {"made-on-another-thread",
     [] {
         std::thread([] {
             makeStatic(true);
             destroyedLast.emplace(connect());
             use(*destroyedLast);
         }).join();
     }},
    {"exit-from-inside-an-operation", [] {
         destroyedLast.emplace(makeDevice(
             uuid, [](std::int64_t) -> std::string { std::exit(0); }, {}, {}, {}, 4));
         StreamBuffer connected = connect();
         connected.sgetc();
         std::_Exit(1);
     }}};

} // namespace

int main(int argumentCount, char** arguments) {
    const auto order = argumentCount == 2 ? orders.find(arguments[1]) : orders.end();
    if (order == orders.end()) {
        std::cerr << "usage: exit_program ORDER\n";
        for (const auto& [name, run] : orders) {
            std::cerr << "  " << name << '\n';
        }
        return 2;
    }
    order->second();
    return 0;
}
