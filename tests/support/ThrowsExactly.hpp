#pragma once

#include <gmock/gmock.h>

#include <exception>
#include <string>
#include <typeinfo>

namespace agent::orvi::streambuf::test {

/// Match a callable that throws an `Exception`, and none of a class derived from it, whose
/// `what()` is `text`.
template <class Exception>
auto throwsExactly(const std::string& text) {
    return testing::Throws<Exception>(testing::AllOf(
        testing::ResultOf(
            "the exact type",
            [](const Exception& thrown) { return std::string(typeid(thrown).name()); },
            testing::StrEq(typeid(Exception).name())),
        testing::ResultOf(
            "the text", [](const Exception& thrown) { return std::string(thrown.what()); },
            testing::StrEq(text))));
}

} // namespace agent::orvi::streambuf::test
