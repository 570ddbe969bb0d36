#include "discovery/FreshFiles.hpp"

#include "carrier/AwaitMemory.hpp"

#include <boost/asio/steady_timer.hpp>

#include <exception>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

namespace agent::orvi::remoting::details {

class FreshFiles::State : public std::enable_shared_from_this<State> {
public:
    State(
        boost::asio::io_context& context, RuntimeDirectory directory,
        std::vector<std::string> files, std::chrono::milliseconds interval)
        : directory(std::move(directory))
        , files(std::move(files))
        , interval(interval)
        , timer(context) {}

    void wait() {
        timer.expires_after(interval);
        timer.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
            if (!error && !self->closed) {
                self->refresh();
                awaitMemoryFor([&] { self->wait(); });
            }
        });
    }

    void close() noexcept {
        closed = true;
        timer.cancel();
    }

private:
    void refresh() const {
        try {
            const Descriptor opened = directory.open();
            for (const std::string& file : files) {
                ::utimensat(opened.get(), file.c_str(), nullptr, AT_SYMLINK_NOFOLLOW);
            }
        } catch (const std::exception&) {
            // Without a directory there is nothing to be cleaned up, and without memory later is
            // early enough.
        }
    }

    const RuntimeDirectory directory;
    const std::vector<std::string> files;
    const std::chrono::milliseconds interval;
    boost::asio::steady_timer timer;
    bool closed = false;
};

FreshFiles::FreshFiles(
    Housekeeper& housekeeper, const RuntimeDirectory& directory, std::vector<std::string> files,
    std::chrono::milliseconds interval)
    : state(
          housekeeper,
          std::make_shared<State>(housekeeper.context(), directory, std::move(files), interval)) {
    state->wait();
}

FreshFiles::~FreshFiles() = default;

} // namespace agent::orvi::remoting::details
