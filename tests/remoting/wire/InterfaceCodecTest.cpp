#include "wire/InterfaceCodec.hpp"

#include "wire/PayloadTypes.hpp"

#include "support/ThrowsExactly.hpp"

#include <orvi/remoting/Errors.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using core::ExportedFunction;
using core::GenericPayload;
using core::ServiceInterface;
using foundation::concurrent::threadpool::stop_token;
using streambuf::test::throwsExactly;

core::PayloadFunction answering(std::string text) {
    return [text = std::move(text)](const stop_token&, const GenericPayload&) {
        return GenericPayload::fromValues(text);
    };
}

/// Return an interface with everything that one can have.
ServiceInterface sample() {
    const auto number = GenericPayload::typeHash<std::int64_t>();
    const auto code = GenericPayload::typeHash<int>();
    const auto text = GenericPayload::typeHash<std::string>();
    const auto packed = GenericPayload::typeHash<std::tuple<std::int64_t, int>>();
    return {
        "orviStreambuf_1",
        core::APIVersion(1, 4'000'000'000),
        {{"hasRead", "true"}, {"bufferSize", ""}, {"Caf\xe9", "\xff\0x"}},
        {ExportedFunction("read", answering("local"), text, {number}, core::DataMarker::source),
         ExportedFunction("write", answering("local"), number, {text}, core::DataMarker::sink),
         ExportedFunction("seekoff", answering("local"), number, {number, code, code}),
         ExportedFunction("odd", answering("local"), packed, {})}};
}

ServiceInterface transported(const ServiceInterface& original) {
    v1::Interface parsed;
    EXPECT_TRUE(parsed.ParseFromString(encodeInterface(original).SerializeAsString()));
    return decodeInterface(parsed, answering);
}

TEST(InterfaceCodecTest, KeepsNameVersionAndMetadataInOrder) {
    const ServiceInterface result = transported(sample());
    EXPECT_EQ(result.name(), sample().name());
    EXPECT_EQ(result.version(), sample().version());
    EXPECT_EQ(result.metadata(), sample().metadata());
}

TEST(InterfaceCodecTest, KeepsTheMethodsInOrder) {
    const ServiceInterface original = sample();
    const ServiceInterface result = transported(original);
    ASSERT_EQ(result.methods().size(), original.methods().size());
    for (std::size_t index = 0; index < original.methods().size(); ++index) {
        const ExportedFunction& expected = original.methods()[index];
        const ExportedFunction& method = result.methods()[index];
        EXPECT_EQ(method.name(), expected.name());
        EXPECT_EQ(method.resultType(), expected.resultType());
        EXPECT_EQ(method.argumentTypes(), expected.argumentTypes());
        EXPECT_EQ(method.marker(), expected.marker());
    }
}

TEST(InterfaceCodecTest, LetsTheCallerSayWhatRunsAMethod) {
    const ServiceInterface result = transported(sample());
    for (const ExportedFunction& method : result.methods()) {
        GenericPayload answer = method.function()(stop_token(), GenericPayload());
        EXPECT_EQ(answer.take<std::string>(0), method.name());
    }
}

TEST(InterfaceCodecTest, TellsTypesThatDoNotTravelFromThoseThatDo) {
    const auto real = GenericPayload::typeHash<double>();
    const ServiceInterface result = transported(ServiceInterface(
        "name", core::APIVersion(1, 0), {}, {ExportedFunction("m", nullptr, real, {real})}));
    for (int type = v1::INT64; type <= v1::Type_MAX; ++type) {
        EXPECT_NE(result.methods()[0].resultType(), typeHash(static_cast<v1::Type>(type)));
    }
    EXPECT_EQ(result.methods()[0].argumentTypes().size(), 1U);
}

TEST(InterfaceCodecTest, AcceptsWhatALaterVersionMayAdd) {
    v1::Interface description;
    description.set_name("name");
    v1::Method& method = *description.add_methods();
    method.set_name("method");
    method.set_result(static_cast<v1::Type>(77));
    method.add_arguments(static_cast<v1::Type>(78));
    method.set_marker(static_cast<v1::Method::Marker>(9));
    const ServiceInterface result = decodeInterface(description, answering);
    EXPECT_EQ(result.methods()[0].resultType(), typeHash(v1::OTHER));
    EXPECT_EQ(result.methods()[0].argumentTypes(), std::vector{typeHash(v1::OTHER)});
    EXPECT_EQ(result.methods()[0].marker(), std::nullopt);
}

TEST(InterfaceCodecTest, RefusesMissingAndRepeatedNames) {
    const v1::Interface good = encodeInterface(sample());
    std::vector<v1::Interface> bad(5, good);
    bad[0].clear_name();
    bad[1].mutable_metadata(1)->clear_key();
    bad[2].mutable_metadata(1)->set_key("hasRead");
    bad[3].mutable_methods(0)->clear_name();
    bad[4].mutable_methods(0)->set_name("write");
    EXPECT_NO_THROW(decodeInterface(good, answering));
    for (const v1::Interface& description : bad) {
        EXPECT_THAT(
            [&] { decodeInterface(description, answering); },
            throwsExactly<ProtocolError>(
                "A name in the description of a service is missing or repeated."));
    }
}

} // namespace
} // namespace agent::orvi::remoting::details::test
