#include "wire/ErrorCodec.hpp"

#include "support/ThrowsExactly.hpp"
#include "wire/ErrorTypes.hpp"
#include "wire/FrameLimits.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <orvi/remoting/Errors.hpp>
#include <payload/GenericPayload.hpp>

#include <gtest/gtest.h>

#include <any>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <ios>
#include <memory>
#include <new>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <typeinfo>
#include <variant>

namespace agent::orvi::remoting::details::test {
namespace {

using streambuf::test::throwsExactly;
using namespace std::string_literals;

template <class Error>
std::exception_ptr pointerTo(const Error& error) {
    return std::make_exception_ptr(error);
}

/// Return what a receiver gets of a failure.
v1::Failure transported(const v1::Failure& failure) {
    v1::Failure parsed;
    EXPECT_TRUE(parsed.ParseFromString(failure.SerializeAsString()));
    return parsed;
}

std::exception_ptr transported(const std::exception_ptr& error) {
    return decodeFailure(transported(encodeFailure(error)));
}

/// Return what throws an error as it arrives at the other side.
auto arriving(const std::exception_ptr& error) {
    return [arrived = transported(error)] { std::rethrow_exception(arrived); };
}

/// Return what throws the error that a failure describes.
auto decoding(const v1::Failure& failure) {
    return [failure] { std::rethrow_exception(decodeFailure(failure)); };
}

v1::Failure knownFailure(const std::string& type, const std::string& text) {
    v1::Failure failure;
    failure.set_known(true);
    failure.set_type(type);
    failure.set_text(text);
    return failure;
}

testing::Matcher<std::function<void()>>
throwsRemoteError(const std::string& typeName, const std::string& text) {
    return testing::AllOf(
        throwsExactly<RemoteError>(text),
        testing::Throws<RemoteError>(testing::Property(&RemoteError::typeName, typeName)));
}

/// An error that somebody has made of a class which travels.
class PrivateError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A code of a category that only this process knows.
class PrivateCategory : public std::error_category {
public:
    const char* name() const noexcept override { return "generic"; }

    std::string message(int) const override { return "private"; }
};

const PrivateCategory& privateCategory() {
    static const PrivateCategory category;
    return category;
}

const std::error_code noEntry(ENOENT, std::generic_category());

/// An error whose type has no room for a text.
template <class Base>
class WithOwnText : public Base {
public:
    const char* what() const noexcept override { return "own text"; }
};

/// What is true of every type: its errors arrive as that type, with their text, and travel on.
class ErrorTypeTest : public testing::TestWithParam<ErrorType> {};

TEST_P(ErrorTypeTest, ArrivesWithItsTypeAndAnyText) {
    const std::string category =
        GetParam().name == "std::future_error" ? "future" : std::string("generic");
    for (const std::string& text :
         {""s, "text"s, "std::exception"s, "Caf\xe9 \xff"s, std::string(5000, 'x')}) {
        v1::Failure failure = knownFailure(std::string(GetParam().name), text);
        if (GetParam().name.ends_with("_error") || GetParam().name.ends_with("failure")) {
            failure.set_category(category);
            failure.set_code(1);
        }
        try {
            std::rethrow_exception(decodeFailure(failure));
        } catch (const std::exception& error) {
            EXPECT_EQ(error.what(), text);
            EXPECT_TRUE(GetParam().matches(error)) << typeid(error).name();
            v1::Failure again = encodeFailure(std::current_exception());
            EXPECT_TRUE(again.known());
            EXPECT_EQ(again.type(), GetParam().name);
            EXPECT_EQ(again.text(), text);
        }
    }
}

TEST_P(ErrorTypeTest, HasANameOfItsOwn) {
    std::size_t count = 0;
    for (const ErrorType& type : errorTypes()) {
        count += type.name == GetParam().name ? 1U : 0U;
    }
    EXPECT_EQ(count, 1U);
}

INSTANTIATE_TEST_SUITE_P(
    All, ErrorTypeTest, testing::ValuesIn(errorTypes().begin(), errorTypes().end()),
    [](const auto& parameter) {
        std::string name(parameter.param.name);
        std::erase(name, ':');
        return name;
    });

TEST(ErrorCodecTest, KeepsErrorsThatAreMadeOfAText) {
    EXPECT_THAT(arriving(pointerTo(std::logic_error("a"))), throwsExactly<std::logic_error>("a"));
    EXPECT_THAT(arriving(pointerTo(std::domain_error("b"))), throwsExactly<std::domain_error>("b"));
    EXPECT_THAT(
        arriving(pointerTo(std::invalid_argument("c"))), throwsExactly<std::invalid_argument>("c"));
    EXPECT_THAT(arriving(pointerTo(std::length_error("d"))), throwsExactly<std::length_error>("d"));
    EXPECT_THAT(arriving(pointerTo(std::out_of_range("e"))), throwsExactly<std::out_of_range>("e"));
    EXPECT_THAT(
        arriving(pointerTo(std::runtime_error("f"))), throwsExactly<std::runtime_error>("f"));
    EXPECT_THAT(arriving(pointerTo(std::range_error("g"))), throwsExactly<std::range_error>("g"));
    EXPECT_THAT(
        arriving(pointerTo(std::overflow_error("h"))), throwsExactly<std::overflow_error>("h"));
    EXPECT_THAT(
        arriving(pointerTo(std::underflow_error("i"))), throwsExactly<std::underflow_error>("i"));
    EXPECT_THAT(
        arriving(pointerTo(core::ServiceUnavailable("j"))),
        throwsExactly<core::ServiceUnavailable>("j"));
    EXPECT_THAT(
        arriving(pointerTo(core::UnknownMethod("k"))), throwsExactly<core::UnknownMethod>("k"));
    EXPECT_THAT(arriving(pointerTo(ProtocolError("l"))), throwsExactly<ProtocolError>("l"));
    EXPECT_THAT(arriving(pointerTo(VersionMismatch("m"))), throwsExactly<VersionMismatch>("m"));
    EXPECT_THAT(arriving(pointerTo(AccessDenied("n"))), throwsExactly<AccessDenied>("n"));
    EXPECT_THAT(arriving(pointerTo(LimitExceeded("o"))), throwsExactly<LimitExceeded>("o"));
    EXPECT_THAT(arriving(pointerTo(TimeLimitExceeded("p"))), throwsExactly<TimeLimitExceeded>("p"));
    EXPECT_THAT(arriving(pointerTo(UnsupportedType("q"))), throwsExactly<UnsupportedType>("q"));
}

/// Expect of an error that is made of nothing that it arrives as what it was, and that one of its
/// type with another text arrives as a kind of it.
template <class Error>
void expectKept() {
    EXPECT_THAT(arriving(pointerTo(Error())), throwsExactly<Error>(Error().what()));
    const v1::Failure failure =
        knownFailure(encodeFailure(pointerTo(Error())).type(), "another text");
    EXPECT_THAT(
        decoding(failure), testing::Throws<Error>(testing::Property(
                               "what", &Error::what, testing::StrEq("another text"))));
}

TEST(ErrorCodecTest, KeepsErrorsThatAreMadeOfNothing) {
    expectKept<std::exception>();
    expectKept<std::bad_alloc>();
    expectKept<std::bad_array_new_length>();
    expectKept<std::bad_cast>();
    expectKept<std::bad_any_cast>();
    expectKept<std::bad_typeid>();
    expectKept<std::bad_exception>();
    expectKept<std::bad_function_call>();
    expectKept<std::bad_weak_ptr>();
    expectKept<std::bad_optional_access>();
    expectKept<std::bad_variant_access>();
    expectKept<core::BadAnyCast>();
}

TEST(ErrorCodecTest, KeepsTheCodesOfSystemErrors) {
    for (const std::error_category* const category :
         {&std::generic_category(), &std::system_category(), &std::iostream_category(),
          &std::future_category()}) {
        for (const int value : {0, 1, ENOENT, -5, 1'000'000}) {
            const std::error_code code(value, *category);
            for (const std::system_error& error :
                 {std::system_error(code), std::system_error(code, "while testing"),
                  std::system_error(code, "")}) {
                const auto arrived = arriving(pointerTo(error));
                EXPECT_THAT(arrived, throwsExactly<std::system_error>(error.what()));
                EXPECT_THAT(
                    arrived, testing::Throws<std::system_error>(
                                 testing::Property(&std::system_error::code, code)));
            }
        }
    }
}

TEST(ErrorCodecTest, KeepsTheTextOfASystemErrorThatWasMadeInAnotherLanguage) {
    v1::Failure failure = knownFailure("std::system_error", "lesen: Datei nicht gefunden");
    failure.set_category("generic");
    failure.set_code(ENOENT);
    EXPECT_THAT(
        decoding(failure),
        testing::Throws<std::system_error>(testing::AllOf(
            testing::Property(&std::system_error::code, noEntry),
            testing::Property(
                "what", &std::system_error::what, testing::StrEq("lesen: Datei nicht gefunden")))));
}

TEST(ErrorCodecTest, KeepsStreamFailures) {
    const std::ios_base::failure error("cannot read", noEntry);
    EXPECT_THAT(arriving(pointerTo(error)), throwsExactly<std::ios_base::failure>(error.what()));
    EXPECT_THAT(
        arriving(pointerTo(error)), testing::Throws<std::ios_base::failure>(
                                        testing::Property(&std::ios_base::failure::code, noEntry)));
}

TEST(ErrorCodecTest, KeepsTheFailuresThatStreamsThemselvesThrow) {
    try {
        std::ifstream stream;
        stream.exceptions(std::ios_base::failbit);
        stream.open("/no/such/file");
        FAIL() << "the stream did not throw";
    } catch (const std::ios_base::failure& error) {
        EXPECT_THAT(
            arriving(std::current_exception()),
            testing::AllOf(
                throwsExactly<std::ios_base::failure>(error.what()),
                testing::Throws<std::ios_base::failure>(testing::Property(
                    &std::ios_base::failure::code, std::error_code(std::io_errc::stream)))));
    }
}

TEST(ErrorCodecTest, KeepsFilesystemErrorsWithoutTheirPaths) {
    const std::filesystem::filesystem_error error("cannot copy", "/from", "/to", noEntry);
    EXPECT_THAT(
        arriving(pointerTo(error)),
        testing::Throws<std::filesystem::filesystem_error>(testing::AllOf(
            testing::Property("what", &std::exception::what, testing::StrEq(error.what())),
            testing::Property(&std::system_error::code, noEntry),
            testing::Property(
                &std::filesystem::filesystem_error::path1, std::filesystem::path()))));
}

TEST(ErrorCodecTest, KeepsFutureErrors) {
    const auto broken = [] {
        std::promise<int> promise;
        std::future<int> future = promise.get_future();
        { const std::promise<int> dropped = std::move(promise); }
        try {
            future.get();
        } catch (...) {
            return std::current_exception();
        }
        return std::exception_ptr();
    }();
    const std::future_error same(std::future_errc::broken_promise);
    EXPECT_THAT(arriving(broken), throwsExactly<std::future_error>(same.what()));
    EXPECT_THAT(
        arriving(broken), testing::Throws<std::future_error>(
                              testing::Property(&std::future_error::code, same.code())));
}

TEST(ErrorCodecTest, KeepsTheCodesOfRegularExpressions) {
    using namespace std::regex_constants;
    for (const error_type code :
         {error_collate, error_ctype, error_escape, error_backref, error_brack, error_paren,
          error_brace, error_badbrace, error_range, error_space, error_badrepeat, error_complexity,
          error_stack}) {
        const std::regex_error error(code);
        EXPECT_THAT(arriving(pointerTo(error)), throwsExactly<std::regex_error>(error.what()));
        EXPECT_THAT(
            arriving(pointerTo(error)),
            testing::Throws<std::regex_error>(testing::Property(&std::regex_error::code, code)));
    }
}

TEST(ErrorCodecTest, KeepsHowAPeerWasLost) {
    for (const auto cause :
         {PeerLost::Cause::terminated, PeerLost::Cause::disconnected,
          PeerLost::Cause::unresponsive}) {
        const auto arrived = arriving(pointerTo(PeerLost(cause, "gone")));
        EXPECT_THAT(arrived, throwsExactly<PeerLost>("gone"));
        EXPECT_THAT(arrived, testing::Throws<PeerLost>(testing::Property(&PeerLost::cause, cause)));
    }
}

TEST(ErrorCodecTest, TellsTheNameOfAnErrorThatDoesNotTravel) {
    EXPECT_THAT(
        arriving(pointerTo(PrivateError("text"))),
        throwsRemoteError(
            "agent::orvi::remoting::details::test::(anonymous namespace)::PrivateError", "text"));
    EXPECT_THAT(
        arriving(pointerTo(WithOwnText<std::bad_alloc>())),
        throwsRemoteError(
            "agent::orvi::remoting::details::test::(anonymous namespace)::WithOwnText<"
            "std::bad_alloc>",
            "own text"));
}

TEST(ErrorCodecTest, KeepsTheNameOfAnErrorThatHasTravelledBefore) {
    EXPECT_THAT(
        arriving(pointerTo(RemoteError("their::Error", "text"))),
        throwsRemoteError("their::Error", "text"));
    EXPECT_THAT(arriving(pointerTo(RemoteError("", ""))), throwsRemoteError("", ""));
}

TEST(ErrorCodecTest, TellsTheTypeOfWhatIsNoException) {
    const std::string text = "Something was thrown that is no std::exception.";
    EXPECT_THAT(arriving(pointerTo(42)), throwsRemoteError("int", text));
    EXPECT_THAT(arriving(pointerTo("text")), throwsRemoteError("char const*", text));
    EXPECT_THAT(arriving(nullptr), throwsRemoteError("", "The method failed without saying why."));
}

TEST(ErrorCodecTest, GivesUpCodesThatNobodyElseKnows) {
    const std::system_error error(std::error_code(1, privateCategory()), "text");
    EXPECT_THAT(
        arriving(pointerTo(error)), throwsRemoteError("std::system_error", "text: private"));
}

TEST(ErrorCodecTest, LeavesTextsInAnyEncodingAsTheyAre) {
    EXPECT_THAT(
        arriving(pointerTo(std::runtime_error("Caf\xe9 \x80\xff"))),
        throwsExactly<std::runtime_error>("Caf\xe9 \x80\xff"));
}

TEST(ErrorCodecTest, CutsLongTextsBetweenCharacters) {
    const std::string character = "\xf0\x9f\x98\x80"; // one character of four bytes
    for (std::size_t before = 0; before < 5; ++before) {
        const std::string start(maximumErrorText - before, 'x');
        const std::string expected = before == 4 ? start + character : start;
        EXPECT_EQ(
            encodeFailure(pointerTo(std::runtime_error(start + character + "end"))).text(),
            expected)
            << before;
    }
    const std::string continued(
        2 * maximumErrorText,
        '\x80'); // not UTF-8: there is no better place
    EXPECT_EQ(
        encodeFailure(pointerTo(std::runtime_error(continued))).text().size(), maximumErrorText);
}

TEST(ErrorCodecTest, CutsLongNames) {
    const std::string name(maximumErrorType + 1, 'n');
    EXPECT_EQ(
        encodeFailure(pointerTo(RemoteError(name, ""))).type(), name.substr(0, maximumErrorType));
}

/// An
/// error
/// that
/// breaks
/// the
/// rules.
class WithoutText : public std::exception {
public:
    const char* what() const noexcept override { return nullptr; }
};

TEST(ErrorCodecTest, SurvivesErrorsWithoutAText) {
    EXPECT_EQ(encodeFailure(pointerTo(WithoutText())).text(), "");
}

TEST(ErrorCodecTest, MakesARemoteErrorOfTypesOfLaterVersions) {
    EXPECT_THAT(
        decoding(knownFailure("std::later_error", "text")),
        throwsRemoteError("std::later_error", "text"));
}

TEST(ErrorCodecTest, BelievesATypeOnlyWhereItIsSaidToBeAKnownOne) {
    v1::Failure failure = knownFailure("std::out_of_range", "text");
    failure.set_known(false);
    EXPECT_THAT(decoding(failure), throwsRemoteError("std::out_of_range", "text"));
}

TEST(ErrorCodecTest, MakesARemoteErrorOfDetailsThatDoNotFit) {
    for (const std::string& type :
         {"std::system_error"s, "std::ios_base::failure"s, "std::filesystem::filesystem_error"s,
          "std::future_error"s}) {
        v1::Failure failure = knownFailure(type, "text");
        EXPECT_THAT(decoding(failure), throwsRemoteError(type, "text"));
        failure.set_category("unknown");
        EXPECT_THAT(decoding(failure), throwsRemoteError(type, "text"));
    }
    v1::Failure future = knownFailure("std::future_error", "text");
    future.set_category("generic");
    EXPECT_THAT(decoding(future), throwsRemoteError("std::future_error", "text"));
    for (const int code : {-1, 3, 13, 1'000}) {
        v1::Failure lost = knownFailure("agent::orvi::remoting::PeerLost", "text");
        lost.set_code(code);
        EXPECT_THAT(decoding(lost), throwsRemoteError("agent::orvi::remoting::PeerLost", "text"));
    }
    for (const int code : {-1, 13, 1'000}) {
        v1::Failure regex = knownFailure("std::regex_error", "text");
        regex.set_code(code);
        EXPECT_THAT(decoding(regex), throwsRemoteError("std::regex_error", "text"));
    }
}

} // namespace
} // namespace
  // agent::orvi::remoting::details::test
