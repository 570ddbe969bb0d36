#include "platform/registry/RegistryFixture.hpp"

#include <cppmicroservices/LDAPFilter.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace registry_test {
namespace {

/// Look-ups among so many services that a registry does not want to look at each.
class ManyServicesTest : public RegistryTest {
protected:
    ManyServicesTest() {
        for (std::size_t index = 0; index < count; ++index) {
            registrations.push_back(registerCodec({{"name", "service " + std::to_string(index)}}));
        }
    }

    std::vector<long> found(std::string const& filter) {
        std::vector<long> ids;
        for (auto const& reference : context.GetServiceReferences("", filter)) {
            ids.push_back(idOf(reference));
        }
        return ids;
    }

    std::vector<long> foundCodecs(std::string const& filter) {
        std::vector<long> ids;
        for (auto const& reference : context.GetServiceReferences<Codec>(filter)) {
            ids.push_back(idOf(reference));
        }
        return ids;
    }

    long id(std::size_t index) const { return idOf(registrations.at(index).GetReference()); }

    static constexpr std::size_t count = 100;
    std::vector<ServiceRegistration<Codec>> registrations;
};

using Ids = std::vector<long>;

TEST_F(ManyServicesTest, AreFoundByATextOfTheirs) {
    for (int times = 0; times < 2; ++times) {
        for (std::size_t index = 0; index < count; ++index) {
            EXPECT_EQ(found("(name=service " + std::to_string(index) + ")"), Ids{id(index)});
        }
    }
    EXPECT_EQ(found("(name=another)"), Ids{});
    EXPECT_EQ(found("(another=service 1)"), Ids{});
}

TEST_F(ManyServicesTest, AreFoundByANameInAnyCase) {
    EXPECT_EQ(found("(NAME=service 7)"), Ids{id(7)});
    EXPECT_EQ(found("(name=service 7)"), Ids{id(7)});
    EXPECT_EQ(found("(name=SERVICE 7)"), Ids{});
}

TEST_F(ManyServicesTest, AreFoundByTheTextThatTheyHaveNow) {
    EXPECT_EQ(found("(name=service 7)"), Ids{id(7)});
    registrations[7].SetProperties({{"name", std::string("renamed")}});
    EXPECT_EQ(found("(name=service 7)"), Ids{});
    EXPECT_EQ(found("(name=renamed)"), Ids{id(7)});
    registrations[7].SetProperties({});
    EXPECT_EQ(found("(name=renamed)"), Ids{});
    registrations[7].SetProperties({{"Name", std::string("service 8")}});
    EXPECT_EQ(found("(name=service 8)"), (Ids{id(7), id(8)}));
}

TEST_F(ManyServicesTest, AreNotFoundWhenTheyAreGone) {
    EXPECT_EQ(found("(name=service 7)"), Ids{id(7)});
    registrations[7].Unregister();
    EXPECT_EQ(found("(name=service 7)"), Ids{});
}

TEST_F(ManyServicesTest, AreFoundByAValueThatIsNoText) {
    EXPECT_EQ(found("(name=7)"), Ids{});
    registrations[1].SetProperties({{"name", 7}});
    registrations[2].SetProperties({{"name", std::vector<std::string>{"6", "7"}}});
    registrations[3].SetProperties({{"name", std::string("7")}});
    registrations[4].SetProperties({{"name", Any()}});
    EXPECT_EQ(found("(name=7)"), (Ids{id(1), id(2), id(3)}));
    EXPECT_EQ(found("(&(name=7)(name=6))"), Ids{id(2)});
    registrations[1].SetProperties({{"name", 8}});
    EXPECT_EQ(found("(name=7)"), (Ids{id(2), id(3)}));
}

TEST_F(ManyServicesTest, OfAnInterfaceAreFoundInOrderOfPreference) {
    auto const other = context.RegisterService<Encoder>(codec(), {{"name", std::string("same")}});
    for (std::size_t const index : {5U, 3U, 9U}) {
        registrations[index].SetProperties({{"name", std::string("same")}});
    }
    EXPECT_EQ(foundCodecs("(name=same)"), (Ids{id(3), id(5), id(9)}));
    registrations[9].SetProperties({{"name", std::string("same")}, {"service.ranking", 1}});
    registrations[3].SetProperties({{"name", std::string("same")}, {"service.ranking", -1}});
    EXPECT_EQ(foundCodecs("(name=same)"), (Ids{id(9), id(5), id(3)}));
    auto all = found("(name=same)");
    std::sort(all.begin(), all.end());
    EXPECT_EQ(all, (Ids{id(3), id(5), id(9), idOf(other.GetReference())}));
}

TEST_F(ManyServicesTest, AreFoundByMoreKindsOfTextsThanAnyoneCounts) {
    for (int kind = 0; kind < 50; ++kind) {
        std::string const key = "key" + std::to_string(kind);
        EXPECT_EQ(found("(" + key + "=here)"), Ids{});
        registrations[7].SetProperties({{key, std::string("here")}});
        EXPECT_EQ(found("(" + key + "=here)"), Ids{id(7)});
    }
}

TEST_F(ManyServicesTest, MayBeLookedUpWhereAValueOfAPropertyEnds) {
    std::size_t matches = 0;
    std::shared_ptr<void> value(
        nullptr, [&](void*) { matches = found("(name=service 8)").size(); });
    registrations[7].SetProperties({{"value", std::move(value)}});
    registrations[7].SetProperties({});
    EXPECT_EQ(matches, 1U);
}

/// A registry with random services, and all of them looked at one by one.
class RandomServices {
public:
    RandomServices(BundleContext context, unsigned int seed)
        : context(std::move(context))
        , random(seed) {}

    void change() {
        auto const action = below(10);
        if (action < 4 || registrations.size() < 20) {
            registrations.push_back(
                below(2) == 0
                    ? ServiceRegistrationU(context.RegisterService<Codec>(codec(), properties()))
                    : ServiceRegistrationU(
                          context.RegisterService<Encoder>(codec(), properties())));
        } else if (action < 6) {
            auto const gone =
                registrations.begin() + static_cast<std::ptrdiff_t>(below(registrations.size()));
            gone->Unregister();
            registrations.erase(gone);
        } else {
            registrations[below(registrations.size())].SetProperties(properties());
        }
    }

    void check() {
        std::string const filter =
            below(3) == 0   ? "(&(objectclass=" + std::string(codecName) + ")" + test() + ")"
            : below(2) == 0 ? "(&" + test() + test() + ")"
                            : test();
        LDAPFilter const parsed(filter);
        bool const onlyCodecs = below(4) == 0;
        Ids wanted;
        for (auto const& registration : registrations) {
            auto const reference = registration.GetReference();
            auto const classes =
                any_cast<std::vector<std::string>>(reference.GetProperty("objectclass"));
            if (parsed.Match(reference) && (!onlyCodecs || classes.front() == codecName)) {
                wanted.push_back(idOf(reference));
            }
        }
        Ids found;
        for (auto const& reference :
             context.GetServiceReferences(onlyCodecs ? codecName : "", filter)) {
            found.push_back(idOf(reference));
        }
        std::sort(wanted.begin(), wanted.end());
        std::sort(found.begin(), found.end());
        ASSERT_EQ(found, wanted) << filter;
        matches += found.size();
    }

    std::size_t matches = 0;

private:
    std::size_t below(std::size_t limit) { return random() % limit; }

    std::string key() { return std::string("k") + static_cast<char>('0' + below(3)); }

    std::string text() { return std::to_string(below(5)); }

    std::string test() { return "(" + key() + "=" + text() + (below(8) == 0 ? "*)" : ")"); }

    Any value() {
        switch (below(6)) {
        case 0:
            return static_cast<int>(below(5));
        case 1:
            return std::vector<std::string>{text(), text()};
        default:
            return text();
        }
    }

    ServiceProperties properties() {
        ServiceProperties result;
        for (std::size_t count = below(4); count > 0; --count) {
            result[key()] = value();
        }
        if (below(4) == 0) {
            result["service.ranking"] = static_cast<int>(below(3));
        }
        return result;
    }

    BundleContext context;
    std::mt19937 random;
    std::vector<ServiceRegistrationU> registrations;
};

TEST_F(RegistryTest, FindsWhatLookingAtEachServiceFinds) {
    char const* const given = std::getenv("ORVI_TEST_SEED");
    auto const seed = given ? static_cast<unsigned int>(std::stoul(given)) : std::random_device{}();
    SCOPED_TRACE(testing::Message() << "replay with ORVI_TEST_SEED=" << seed);
    RandomServices services(context, seed);
    for (int step = 0; step < 1000 && !HasFatalFailure(); ++step) {
        services.change();
        services.check();
    }
    EXPECT_GT(services.matches, 1000U);
}

} // namespace
} // namespace registry_test
