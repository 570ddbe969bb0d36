/// Says which endpoints an importer knows, and why it is not connected to one: guide-peers TARGET

#include <orvi/remoting/Importer.hpp>

#include <chrono>
#include <exception>
#include <iostream>

using namespace agent::orvi;

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::cerr << "Usage: guide-peers TARGET\n";
        return 2;
    }
    try {
        remoting::ImporterOptions options;
        options.targets = {arguments[1]};
        options.tls = {"reader.pem", "reader.key", "authority.pem"};
        const remoting::Importer importer(options);
        // [peers]
        importer.waitUntilSettled(std::chrono::seconds(5));
        for (const remoting::PeerStatus& peer : importer.peers()) {
            const bool connected = peer.state == remoting::PeerStatus::State::connected;
            std::cout << peer.address << ' ' << (connected ? "connected" : peer.error) << '\n';
        }
        // [peers]
    } catch (const std::exception& error) {
        std::cerr << "guide-peers: " << error.what() << '\n';
        return 1;
    }
}
