#include "streambuf/StreamBuffer.hpp"

#include "connect/RegisteredService.hpp"
#include "streambuf/StreamBufferImpl.hpp"
#include "support/RecordingDevice.hpp"
#include "support/ThrowsExactly.hpp"

#include <cppmicroservices/Any.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace agent::orvi::streambuf {
namespace {

using cppmicroservices::Any;
using cppmicroservices::BadAnyCastException;
using cppmicroservices::ServiceProperties;
using test::RegisteredService;
using test::throwsExactly;
using testing::ElementsAre;
using testing::IsEmpty;

/// The properties in the order in which they are read.
const std::vector<std::string> keysInOrder = {
    "orvi.serviceproperty.bufferSize", "orvi.serviceproperty.hasRead",
    "orvi.serviceproperty.hasWrite", "orvi.serviceproperty.hasSeekOff",
    "orvi.serviceproperty.hasSeekPos"};

class ServicePropertiesTest : public testing::Test {
protected:
    StreamBuffer connect() const { return makeDevice(uuid, closeLog.close()); }

    /// Return the record of a connection to a service with these properties.
    std::shared_ptr<details::StreamBufferImpl> recordOver(const ServiceProperties& stated) {
        const RegisteredService service(stated);
        connected.push_back(connect());
        return details::StreamBufferAccess::record(connected.back());
    }

    ServiceProperties withBufferSize(const std::string& text, const std::string& offered) const {
        ServiceProperties changed = properties;
        for (const std::string& key : keysInOrder) {
            changed[key] = offered;
        }
        changed["orvi.serviceproperty.bufferSize"] = text;
        return changed;
    }

    template <class Exception>
    void expectRefused(const ServiceProperties& refused, const std::string& text) {
        RegisteredService service(refused);
        EXPECT_THAT([this] { connect(); }, throwsExactly<Exception>(text));
        EXPECT_TRUE(service.release().expired()) << "nothing holds the service";
        EXPECT_THAT(closeLog.calls(), IsEmpty());
    }

    const boost::uuids::uuid uuid = test::newUuid();
    const ServiceProperties properties = test::completeProperties(uuid);
    const test::RecordingDevice closeLog;
    std::vector<StreamBuffer> connected;
};

/// Return the text of the error that a value of this kind gives when a text is wanted.
std::string castError(const Any& value) {
    try {
        cppmicroservices::any_cast<std::string>(value);
    } catch (const BadAnyCastException& error) {
        return error.what();
    }
    return "no error";
}

TEST_F(ServicePropertiesTest, AreReadInTheirOrder) {
    const std::array<Any, 5> wrong = {Any(1), Any(2.0), Any(true), Any('x'), Any(5L)};
    for (std::size_t first = 0; first < keysInOrder.size(); ++first) {
        SCOPED_TRACE(keysInOrder[first]);
        ServiceProperties changed = properties;
        for (std::size_t index = first; index < keysInOrder.size(); ++index) {
            changed[keysInOrder[index]] = wrong[index];
        }
        expectRefused<BadAnyCastException>(changed, castError(wrong[first]));
    }
}

TEST_F(ServicePropertiesTest, MustAllBeThere) {
    for (const std::string& missing : keysInOrder) {
        SCOPED_TRACE(missing);
        ServiceProperties changed = properties;
        changed.erase(missing);
        expectRefused<BadAnyCastException>(changed, castError(Any()));
    }
}

TEST_F(ServicePropertiesTest, MustBeTextsAndNothingLikeIt) {
    for (const Any& value :
         {Any(16), Any(static_cast<const char*>("16")), Any(std::size_t{16}), Any(true),
          Any(std::vector<std::string>{"16"})}) {
        for (const std::string& key : keysInOrder) {
            ServiceProperties changed = properties;
            changed[key] = value;
            expectRefused<BadAnyCastException>(changed, castError(value));
        }
    }
}

TEST_F(ServicePropertiesTest, OfferAnOperationOnlyByTheExactTextTrue) {
    const auto expectOffered = [this](const std::string& text, bool offered) {
        SCOPED_TRACE("\"" + text + "\"");
        for (std::size_t index = 1; index < keysInOrder.size(); ++index) {
            ServiceProperties changed = withBufferSize("16", "false");
            changed[keysInOrder[index]] = text;
            const auto record = recordOver(changed);
            EXPECT_EQ(static_cast<bool>(record->read), offered && index == 1);
            EXPECT_EQ(static_cast<bool>(record->write), offered && index == 2);
            EXPECT_EQ(static_cast<bool>(record->seekoff), offered && index == 3);
            EXPECT_EQ(static_cast<bool>(record->seekpos), offered && index == 4);
        }
    };
    expectOffered("true", true);
    for (const char* text : {"TRUE", "True", "1", "true ", " true", "tru", "truee", "", "false"}) {
        expectOffered(text, false);
    }
    expectOffered(std::string("true\0", 5), false);
}

TEST_F(ServicePropertiesTest, SizeTheBuffersByTheStandardRuleForNumbers) {
    struct Case {
        std::string text;
        std::size_t size;
    };

    for (const Case& parsed :
         {Case{"0", 0}, Case{"12", 12}, Case{" 12x", 12}, Case{"\t\n\v\f\r 12", 12},
          Case{"+12", 12}, Case{"00012", 12}, Case{"12 34", 12}, Case{"12.9", 12}, Case{"0x10", 0},
          Case{"-0", 0}, Case{"-18446744073709551604", 12}}) {
        SCOPED_TRACE(parsed.text);
        const auto record = recordOver(withBufferSize(parsed.text, "true"));
        EXPECT_EQ(record->getBuffer.size(), parsed.size);
        EXPECT_EQ(record->putBuffer.size(), parsed.size);
    }
}

TEST_F(ServicePropertiesTest, RefuseABufferSizeWithoutANumber) {
    for (const char* text : {"x12", "", " ", "-", "+", "x", "--1", "- 1", "true", "\xff"}) {
        SCOPED_TRACE(text);
        expectRefused<std::invalid_argument>(
            withBufferSize(text, "true"), "invalid stoull argument");
    }
}

TEST_F(ServicePropertiesTest, RefuseABufferSizeBeyondSixtyFourBits) {
    for (const char* text :
         {"18446744073709551616", "99999999999999999999999999", "-18446744073709551616",
          " 18446744073709551616x"}) {
        SCOPED_TRACE(text);
        expectRefused<std::out_of_range>(
            withBufferSize(text, "true"), "stoull argument out of range");
    }
}

TEST_F(ServicePropertiesTest, ParseTheBufferSizeOnlyAfterTheOthersWereRead) {
    ServiceProperties changed = withBufferSize("x", "true");
    changed.erase("orvi.serviceproperty.hasSeekPos");
    expectRefused<BadAnyCastException>(changed, castError(Any()));
}

TEST_F(ServicePropertiesTest, AcceptAnyBufferSizeOfADeviceWithoutBuffers) {
    for (const char* text : {"18446744073709551615", "-1"}) {
        SCOPED_TRACE(text);
        const auto record = recordOver(withBufferSize(text, "false"));
        EXPECT_EQ(record->getBuffer.size(), 0u);
        EXPECT_EQ(record->putBuffer.size(), 0u);
    }
}

TEST_F(ServicePropertiesTest, RefuseABufferThatCannotBeMade) {
    for (const char* text : {"18446744073709551615", "-1"}) {
        RegisteredService service(withBufferSize(text, "true"));
        EXPECT_THROW(connect(), std::length_error);
        EXPECT_TRUE(service.release().expired()) << "nothing holds the service";
        EXPECT_THAT(closeLog.calls(), IsEmpty());
    }
}

TEST_F(ServicePropertiesTest, ForeignServicesAreUsedLikeOurOwn) {
    RegisteredService service(properties, test::answeringWith(std::string("data")));
    StreamBuffer buffer = connect();
    EXPECT_EQ(buffer.sgetc(), 'd');
    const auto calls = service.fake().takeInvocations();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].method, "read");
    EXPECT_EQ(calls[0].arguments.peek<std::int64_t>(0), 16);
}

TEST_F(ServicePropertiesTest, AForeignAnswerThatIsTooLongIsRefused) {
    const RegisteredService service(properties, test::answeringWith(std::string(17, 'x')));
    StreamBuffer buffer = connect();
    EXPECT_THAT(
        [&] { buffer.sgetc(); },
        testing::Throws<std::length_error>(testing::Property(
            &std::length_error::what,
            testing::AllOf(testing::HasSubstr("16"), testing::HasSubstr("17")))));
}

} // namespace
} // namespace agent::orvi::streambuf
