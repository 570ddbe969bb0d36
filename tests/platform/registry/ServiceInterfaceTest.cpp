#include "RegistryFixture.hpp"

#include <cppmicroservices/ServiceFactory.h>
#include <cppmicroservices/ServiceInterface.h>
#include <cppmicroservices/ShrinkableMap.h>
#include <cppmicroservices/ShrinkableVector.h>

namespace registry_test {

struct Named {};

template <class T>
struct Templated {};

} // namespace registry_test

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(registry_test::Named, "org.example.Named/1.0")

namespace registry_test {
namespace {

TEST(ServiceInterfaceTest, NameIsThatOfTheTypeUnlessDeclared) {
    EXPECT_EQ(us_service_interface_iid<Codec>(), "registry_test::Codec");
    EXPECT_EQ(us_service_interface_iid<Templated<int>>(), "registry_test::Templated<int>");
    EXPECT_EQ(us_service_interface_iid<Named>(), "org.example.Named/1.0");
    EXPECT_EQ(us_service_interface_iid<void>(), "");
}

TEST(ServiceInterfaceTest, MapHoldsEachInterfaceAtItsAddress) {
    auto const impl = codec(3);
    InterfaceMapConstPtr const map = MakeInterfaceMap<Codec, Encoder>(impl);
    ASSERT_EQ(map->size(), 2U);
    EXPECT_EQ(map->at("registry_test::Encoder").get(), static_cast<Encoder*>(impl.get()));
    EXPECT_EQ(ExtractInterface<Codec>(map)->number(), 3);
    EXPECT_EQ(ExtractInterface<Named>(map), nullptr);
    EXPECT_EQ(ExtractInterface(map, "registry_test::Codec").get(), static_cast<Codec*>(impl.get()));
    EXPECT_NE(ExtractInterface(map, ""), nullptr);
    EXPECT_EQ(ExtractInterface(map, "unknown"), nullptr);
    EXPECT_EQ(ExtractInterface(nullptr, "unknown"), nullptr);
    InterfaceMapPtr const changeable = MakeInterfaceMap<Codec>(impl);
    EXPECT_EQ(changeable->size(), 1U);
}

TEST(ShrinkableVectorTest, DefaultConstructedOneIsEmpty) {
    ShrinkableVector<int> vector;
    EXPECT_TRUE(vector.empty());
    EXPECT_EQ(vector.size(), 0U);
    EXPECT_TRUE(vector.begin() == vector.end());
    EXPECT_TRUE(std::as_const(vector).begin() == std::as_const(vector).end());
    vector.clear();
    EXPECT_THROW(vector.at(0), std::out_of_range);
    EXPECT_THROW(std::as_const(vector).at(0), std::out_of_range);
}

TEST(ShrinkableMapTest, DefaultConstructedOneIsEmpty) {
    ShrinkableMap<int, int> map;
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(map.size(), 0U);
    EXPECT_GT(map.max_size(), 0U);
    EXPECT_EQ(map.count(1), 0U);
    EXPECT_EQ(map.erase(1), 0U);
    EXPECT_TRUE(map.find(1) == map.end());
    EXPECT_TRUE(std::as_const(map).find(1) == std::as_const(map).end());
    EXPECT_TRUE(map.lower_bound(1) == map.begin());
    EXPECT_TRUE(map.upper_bound(1) == map.begin());
    EXPECT_TRUE(map.equal_range(1).first == map.end());
    EXPECT_TRUE(std::as_const(map).equal_range(1).first == std::as_const(map).begin());
    EXPECT_TRUE(std::as_const(map).lower_bound(1) == std::as_const(map).upper_bound(1));
    EXPECT_THROW(map.at(1), std::out_of_range);
    EXPECT_THROW(std::as_const(map).at(1), std::out_of_range);
    map.erase(map.begin(), map.end());
    map.clear();
}

} // namespace
} // namespace registry_test
