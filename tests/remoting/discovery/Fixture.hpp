#pragma once

#include "discovery/Housekeeper.hpp"
#include "discovery/RuntimeDirectory.hpp"
#include "remoting/discovery/DescriptorGuard.hpp"
#include "remoting/discovery/TemporaryDirectory.hpp"
#include "remoting/discovery/Waiting.hpp"

#include <boost/asio/post.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

namespace agent::orvi::remoting::test {

/// A housekeeper, which must not keep descriptors open.
class HousekeeperFixture : public testing::Test {
protected:
    /// Run something on the housekeeping thread, without waiting for it.
    void post(std::function<void()> task) {
        boost::asio::post(housekeeper.context(), std::move(task));
    }

    /// Wait until everything that was posted has run.
    void drain() {
        housekeeper.runAndWait([] {});
    }

    DescriptorGuard guard;
    details::Housekeeper housekeeper;
};

/// The same with a runtime directory.
class DirectoryFixture : public HousekeeperFixture {
protected:
    std::string directoryPath() const { return directory.path().string(); }

    TemporaryDirectory parent;
    details::RuntimeDirectory directory{parent.path / "orvi"};
};

} // namespace agent::orvi::remoting::test
