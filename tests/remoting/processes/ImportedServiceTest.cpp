#include "remoting/processes/ProcessTest.hpp"

#include <gmock/gmock.h>

#include <cppmicroservices/Any.h>

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

using cppmicroservices::any_cast;
using cppmicroservices::ServiceReference;

using Properties = std::map<std::string, std::string>;

/// Return the properties of a service as texts.
Properties propertiesOf(const ServiceReference<core::Invokable>& reference) {
    Properties properties;
    for (const std::string& key : reference.GetPropertyKeys()) {
        const cppmicroservices::Any value = reference.GetProperty(key);
        properties[key] =
            value.Type() == typeid(std::string) ? any_cast<std::string>(value) : value.ToString();
    }
    return properties;
}

class ImportedService : public ProcessTest {
protected:
    ImportedService() {
        const std::string answer = publisher.ask("open-endpoint" + where());
        endpoint = answer.substr(0, answer.find(' '));
    }

    std::string endpoint;
};

TEST_F(ImportedService, HasThePropertiesOfTheExportedOneAndThoseThatSayWhereItIs) {
    const auto uuid = publish(publisher, "device", "kind=memory size=10 buffer=77 modes=ro");
    const Importer importer(importing());
    LookUp lookUp(uuid);
    ASSERT_NE(lookUp.wait(), nullptr);
    ASSERT_EQ(lookUp.found().size(), 1u);
    const auto reference = lookUp.found().front();
    Properties properties = propertiesOf(reference);

    EXPECT_THAT(properties.extract("endpoint.id").mapped(), testing::StartsWith(endpoint + "/"));
    const std::string framework = properties.extract("endpoint.framework.uuid").mapped();
    EXPECT_EQ(framework.size(), 36u);
    EXPECT_NE(
        framework, any_cast<std::string>(streambuf::test::registryContext().GetProperty(
                       "org.cppmicroservices.framework.uuid")));
    EXPECT_EQ(any_cast<bool>(reference.GetProperty("service.imported")), true);
    EXPECT_EQ(
        any_cast<std::vector<std::string>>(reference.GetProperty("service.imported.configs")),
        std::vector<std::string>{"orvi.grpc"});
    for (const char* const own :
         {"service.imported", "service.imported.configs", "service.id", "service.scope",
          "objectclass"}) {
        EXPECT_EQ(properties.erase(own), 1u) << own;
    }
    EXPECT_EQ(
        properties, (Properties{
                        {"orvi.servicename", streambuf::test::serviceNameOf(uuid)},
                        {"orvi.serviceproperty.bufferSize", "77"},
                        {"orvi.serviceproperty.hasRead", "true"},
                        {"orvi.serviceproperty.hasSeekOff", "true"},
                        {"orvi.serviceproperty.hasSeekPos", "false"},
                        {"orvi.serviceproperty.hasWrite", "false"}}));
}

TEST_F(ImportedService, DescribesTheExportedInterface) {
    const auto uuid = publish(publisher, "device", "kind=memory size=10 buffer=77 modes=ro");
    const Importer importer(importing());
    LookUp lookUp(uuid);
    const auto service = lookUp.wait();
    ASSERT_NE(service, nullptr);
    const core::ServiceInterface& description = service->serviceInterface();
    EXPECT_EQ(description.name(), streambuf::test::serviceNameOf(uuid));
    EXPECT_TRUE(service->hasMethod("read"));
    EXPECT_TRUE(service->hasMethod("seekoff"));
    EXPECT_FALSE(service->hasMethod("write"));
    EXPECT_FALSE(service->hasMethod("seekpos"));
}

TEST_F(ImportedService, MayBeWaitedForAsLongAsATimeCanBe) {
    const auto uuid = publish(publisher, "device", "kind=memory size=10");
    ImporterOptions options = importing();
    options.keepaliveTime = std::chrono::milliseconds::max();
    options.keepaliveTimeout = std::chrono::milliseconds::max();
    const Importer importer(options);
    LookUp lookUp(uuid);
    EXPECT_TRUE(importer.waitUntilSettled(std::chrono::milliseconds::max()));
    const auto service = lookUp.wait();
    ASSERT_NE(service, nullptr);
    std::string answer;
    service->invoke(
        std::chrono::milliseconds::max(), "read",
        {[&](core::GenericPayload payload) { answer = payload.take<std::string>(0); },
         [&](const std::exception_ptr& error) {
             answer = errorOf([&] { std::rethrow_exception(error); });
         }},
        core::GenericPayload::fromValues(std::int64_t{10}), false);
    EXPECT_EQ(answer, pattern(10));
}

TEST_F(ImportedService, IsThereOnceForEachEndpointThatOffersIt) {
    publisher.ask("open-second-endpoint" + where());
    const auto uuid = publish(publisher, "device", "kind=memory size=10");
    const Importer importer(importing());
    LookUp lookUp(uuid);
    EXPECT_TRUE(eventually([&] { return lookUp.found().size() == 2; }));
}

TEST_F(ImportedService, IsThereWhileSomebodyLooksForIt) {
    const auto uuid = publish(publisher, "device", "kind=memory size=100");
    const Importer importer(importing());
    {
        LookUp lookUp(uuid);
        EXPECT_NE(lookUp.wait(), nullptr);
    }
    EXPECT_TRUE(eventually([&] { return streambuf::test::invokablesOf(uuid).empty(); }));
    LookUp again(uuid);
    EXPECT_NE(again.wait(), nullptr);
}

TEST_F(ImportedService, IsNotImportedWhereNobodyLooksForIt) {
    const auto wanted = publish(publisher, "wanted", "kind=memory size=10");
    const auto unwanted = publish(publisher, "unwanted", "kind=memory size=10");
    const Importer importer(importing());
    LookUp lookUp(wanted);
    EXPECT_NE(lookUp.wait(), nullptr);
    EXPECT_TRUE(importer.waitUntilSettled(longTime));
    EXPECT_TRUE(streambuf::test::invokablesOf(unwanted).empty());
}

TEST_F(ImportedService, IsListedWholeWhenAPatternIsLookedFor) {
    std::vector<std::string> names;
    for (int number = 0; number < 5; ++number) {
        names.push_back(streambuf::test::serviceNameOf(
            publish(publisher, "device" + std::to_string(number), "kind=memory size=10")));
    }
    const Importer importer(importing());
    LookUp lookUp("orviStreambuf_*");
    EXPECT_NE(lookUp.wait(), nullptr);
    EXPECT_TRUE(importer.waitUntilSettled(longTime));
    std::vector<std::string> found;
    for (const auto& reference : lookUp.found()) {
        found.push_back(any_cast<std::string>(reference.GetProperty("orvi.servicename")));
    }
    EXPECT_THAT(found, testing::UnorderedElementsAreArray(names));
}

/// Three processes: one publishes, one imports and has an endpoint of its own, this one looks.
class ImportChain : public ImportedService {
protected:
    ImportChain() {
        middle.ask("open-importer" + where());
        const std::string answer = middle.ask("open-endpoint" + where());
        middleEndpoint = answer.substr(0, answer.find(' '));
    }

    RemoteComponent middle;
    std::string middleEndpoint;
};

TEST_F(ImportChain, EndsAtTheFirstImporter) {
    const auto uuid = publish(publisher, "device", "kind=memory size=100");
    connect(middle, "device", uuid);
    middle.ask("look-up name=look uuid=" + boost::uuids::to_string(uuid)); // keeps the import
    const auto own = publish(middle, "own", "kind=memory size=10");

    const Importer importer(importing());
    LookUp lookUp(uuid);
    LookUp ownLookUp(own);
    ASSERT_NE(lookUp.wait(), nullptr);
    ASSERT_NE(ownLookUp.wait(), nullptr) << "the process in the middle is heard";
    EXPECT_TRUE(importer.waitUntilSettled(longTime));
    ASSERT_EQ(lookUp.found().size(), 1u);
    EXPECT_THAT(
        propertiesOf(lookUp.found().front())["endpoint.id"], testing::StartsWith(endpoint + "/"));
    ASSERT_EQ(ownLookUp.found().size(), 1u);
    EXPECT_THAT(
        propertiesOf(ownLookUp.found().front())["endpoint.id"],
        testing::StartsWith(middleEndpoint + "/"));
}

TEST_F(ImportChain, DoesNotOfferAProcessItsOwnServices) {
    const auto own = publish(middle, "own", "kind=memory size=100");
    middle.ask("look-up name=look uuid=" + boost::uuids::to_string(own));
    connect(middle, "self", own);
    EXPECT_EQ(middle.ask("count name=look"), "1");
}

} // namespace
} // namespace agent::orvi::remoting::test
