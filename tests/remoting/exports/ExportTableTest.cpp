#include "exports/ExportTable.hpp"

#include "support/Registry.hpp"

#include <orvi/core/Invokable.hpp>

#include <cppmicroservices/ServiceProperties.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <list>
#include <malloc.h>
#include <memory>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using cppmicroservices::ServiceProperties;
using Registration = cppmicroservices::ServiceRegistration<core::Invokable>;

/// Runs nothing: the table only hands it on.
class NoExecutor final : public Executor {
public:
    void post(Task) override {}

    void postPrepared(std::list<Task>&) noexcept override {}

    void postBrief(Task) override {}

    bool wait(Wait&, std::optional<TimePoint>) override { return false; }

    void finish(Wait&) override {}
};

/// A service that is asked for its description first when it is exported.
class Described final : public core::Invokable {
public:
    explicit Described(std::function<void()> whenAsked = [] {})
        : whenAsked(std::move(whenAsked)) {}

    const core::ServiceInterface& serviceInterface() const override {
        whenAsked();
        return description;
    }

    bool hasMethod(const std::string&) const override { return false; }

    void invoke(
        std::optional<std::chrono::milliseconds>, std::string, core::CompletionHandler,
        core::GenericPayload, bool) override {}

private:
    const std::function<void()> whenAsked;
    const core::ServiceInterface description{"described", {1, 0}, {}, {}};
};

ServiceProperties properties(const std::string& name, bool isExported) {
    ServiceProperties all;
    if (!name.empty()) {
        all["orvi.servicename"] = name;
    }
    if (isExported) {
        all["service.exported.interfaces"] = std::string("*");
    }
    return all;
}

Registration
registerService(const std::shared_ptr<core::Invokable>& service, const std::string& name) {
    return streambuf::test::registryContext().RegisterService<core::Invokable>(
        service, properties(name, true));
}

class RecordingAudience final : public Audience {
public:
    void offered(std::uint64_t service) override { services.insert(service); }

    void withdrawn(std::uint64_t service, bool) override { services.erase(service); }

    std::set<std::uint64_t> services;
};

/// A property value that looks whether the table can be used whenever one of its copies ends.
class Probe {
public:
    explicit Probe(std::function<void()> look)
        : look(std::make_shared<std::function<void()>>(std::move(look))) {}

    Probe(const Probe&) = default;
    Probe& operator=(const Probe&) = default;

    ~Probe() {
        if (*look) {
            (*look)();
        }
    }

    /// Have none of the copies look any more.
    void disarm() const { *look = nullptr; }

    friend std::ostream& operator<<(std::ostream& stream, const Probe&) { return stream; }

    friend bool operator==(const Probe&, const Probe&) { return true; }

private:
    std::shared_ptr<std::function<void()>> look;
};

class ExportTableTest : public testing::Test {
protected:
    ~ExportTableTest() override { table->close(); }

    /// Return the only service that is offered.
    std::shared_ptr<ExportedService> onlyService() {
        RecordingAudience audience;
        table->want(audience, 1, "(service.imported=true)");
        table->leave(audience);
        return audience.services.size() == 1 ? table->find(*audience.services.begin()) : nullptr;
    }

    const std::shared_ptr<NoExecutor> executor = std::make_shared<NoExecutor>();
    const std::shared_ptr<ExportTable> table =
        ExportTable::open(streambuf::test::registryContext(), "endpoint", executor);
};

TEST_F(ExportTableTest, OffersAServiceThatGoesAndReturnsWhileAnotherOneIsLookedAt) {
    Registration returning = registerService(std::make_shared<Described>(), "returning");
    RecordingAudience audience;
    table->want(audience, 1, "(orvi.servicename=returning)");
    ASSERT_EQ(audience.services.size(), 1U);

    std::promise<void> asked;
    std::promise<void> answer;
    bool isFirst = true;
    const auto slow = std::make_shared<Described>([&] {
        if (std::exchange(isFirst, false)) {
            asked.set_value();
            answer.get_future().wait();
        }
    });
    auto adding = std::async(std::launch::async, [&] { return registerService(slow, ""); });
    asked.get_future().wait();
    returning.SetProperties(properties("returning", false));
    EXPECT_TRUE(audience.services.empty());
    returning.SetProperties(properties("returning", true));
    EXPECT_EQ(audience.services.size(), 1U);
    answer.set_value();
    adding.get().Unregister();
    EXPECT_EQ(audience.services.size(), 1U);
    table->leave(audience);
    returning.Unregister();
}

TEST_F(ExportTableTest, DoesNotOfferAServiceThatGoesWhileItIsLookedAt) {
    Registration registration;
    const auto service = std::make_shared<Described>([&] {
        if (auto gone = std::exchange(registration, {})) {
            gone.Unregister();
        }
    });
    registration = registerService(service, "named"); // not asked: it has a name
    RecordingAudience audience;
    table->want(audience, 1, "(orvi.servicename=*)");
    ASSERT_EQ(audience.services.size(), 1U);
    registration.SetProperties(properties("", true));
    EXPECT_TRUE(audience.services.empty());
    table->leave(audience);
}

TEST_F(ExportTableTest, PassesOverAServiceThatGoesAfterItWasListed) {
    bool isListing = false;
    Registration first;
    Registration second;
    const auto withdrawing = [&](Registration& other) {
        return std::make_shared<Described>([&] {
            if (std::exchange(isListing, false)) {
                std::exchange(other, {}).Unregister();
            }
        });
    };
    first = registerService(withdrawing(second), "");
    second = registerService(withdrawing(first), "");
    Registration last = registerService(std::make_shared<Described>(), "last");
    isListing = true;
    const auto listing = ExportTable::open(streambuf::test::registryContext(), "listing", executor);
    EXPECT_FALSE(isListing);
    RecordingAudience audience;
    listing->want(audience, 1, "(service.imported=true)");
    EXPECT_EQ(audience.services.size(), 2U); // the last one, and the one that stayed
    listing->leave(audience);
    listing->close();
    (first ? first : second).Unregister();
    last.Unregister();
}

TEST_F(ExportTableTest, PassesOverServicesThatCannotDescribeThemselves) {
    bool isMended = false;
    const auto broken = [&] {
        return std::make_shared<Described>([&] {
            if (!isMended) {
                throw std::runtime_error("The service's own trouble");
            }
        });
    };
    Registration first = registerService(broken(), "");
    Registration second = registerService(std::make_shared<Described>(), "second");
    Registration third;
    EXPECT_NO_THROW(third = registerService(broken(), "")); // the table hears of it
    const auto listing = ExportTable::open(streambuf::test::registryContext(), "listing", executor);
    RecordingAudience audience;
    for (ExportTable& each : {std::ref(*listing), std::ref(*table)}) {
        each.want(audience, 1, "(service.imported=true)");
        EXPECT_EQ(audience.services.size(), 1U);
        each.leave(audience);
        audience.services.clear();
    }
    isMended = true;
    third.SetProperties(properties("", true));
    table->want(audience, 1, "(service.imported=true)");
    EXPECT_EQ(audience.services.size(), 2U);
    table->leave(audience);
    listing->close();
    for (Registration* const registration : {&first, &second, &third}) {
        registration->Unregister();
    }
}

TEST_F(ExportTableTest, PutsCallsInOrderAcrossChangesOfProperties) {
    Registration registration = registerService(std::make_shared<Described>(), "changing");
    const auto before = onlyService();
    ASSERT_NE(before, nullptr);
    ServiceProperties changed = properties("changing", true);
    changed["size"] = 1;
    registration.SetProperties(changed);
    const auto after = onlyService();
    ASSERT_NE(after, nullptr);
    EXPECT_NE(after, before);
    EXPECT_EQ(after->turns, before->turns);
    registration.SetProperties(properties("changing", false));
    EXPECT_EQ(onlyService(), nullptr);
    registration.SetProperties(properties("changing", true));
    ASSERT_NE(onlyService(), nullptr);
    EXPECT_EQ(onlyService()->turns, before->turns);
    registration.Unregister();
}

TEST_F(ExportTableTest, KeepsNoOrderOfServicesThatNobodyCalls) {
    const auto use = [&] {
        for (int count = 0; count < 10000; ++count) {
            registerService(std::make_shared<Described>(), "brief").Unregister();
        }
    };
    use();
    const auto before = ::mallinfo2().uordblks;
    use();
    EXPECT_LT(::mallinfo2().uordblks, before + 100000);
}

TEST_F(ExportTableTest, LetsGoOfWhatItHasHeldWhereItCanBeUsed) {
    std::size_t looks = 0;
    const Probe probe([&] {
        ++looks;
        const auto found = std::async(std::launch::async, [&] { table->find(0); });
        EXPECT_EQ(found.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    });
    ServiceProperties probing = properties("probing", true);
    probing["probe"] = probe;
    Registration registration = streambuf::test::registryContext().RegisterService<core::Invokable>(
        std::static_pointer_cast<core::Invokable>(std::make_shared<Described>()), probing);
    looks = 0;
    registration.SetProperties(properties("probing", true));
    EXPECT_GT(looks, 0U);
    registration.SetProperties(probing);
    registration.Unregister();
    registration = streambuf::test::registryContext().RegisterService<core::Invokable>(
        std::static_pointer_cast<core::Invokable>(std::make_shared<Described>()), probing);
    looks = 0;
    table->close();
    EXPECT_GT(looks, 0U);
    probe.disarm();
    registration.Unregister();
}

TEST_F(ExportTableTest, KeepsNothingOfAnAudienceThatHasLeft) {
    const auto look = [&] {
        std::vector<RecordingAudience> audiences(100000);
        for (RecordingAudience& audience : audiences) {
            table->want(audience, 1, "(a=b)");
            table->leave(audience);
            EXPECT_FALSE(table->unwant(audience, 1)); // it was on its way
        }
    };
    look();
    const auto before = ::mallinfo2().uordblks;
    look();
    look();
    EXPECT_LT(::mallinfo2().uordblks, before + 1000000);
    // The addresses of those that are gone may be those of others.
    RecordingAudience audience;
    table->want(audience, 1, "(a=b)");
    EXPECT_TRUE(table->unwant(audience, 1));
    EXPECT_FALSE(table->unwant(audience, 1));
    table->leave(audience);
}

} // namespace
} // namespace agent::orvi::remoting::details::test
