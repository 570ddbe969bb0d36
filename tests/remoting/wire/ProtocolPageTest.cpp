#include "remoting/wire/Frames.hpp"

#include "wire/ErrorTypes.hpp"
#include "wire/FrameLimits.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using core::GenericPayload;
using Lines = std::vector<std::string>;
using Row = std::vector<std::string>;

/// Return the lines of a section of docs/protocol.md, without its heading.
Lines sectionOf(const std::string& title) {
    std::ifstream page(ORVI_PROTOCOL_PAGE);
    if (!page) {
        throw std::runtime_error("cannot read " ORVI_PROTOCOL_PAGE);
    }
    Lines lines;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("## ")) {
            inside = line == "## " + title;
        } else if (inside) {
            lines.push_back(line);
        }
    }
    EXPECT_FALSE(lines.empty()) << title;
    return lines;
}

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" `");
    const std::size_t last = text.find_last_not_of(" `");
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

/// Return the cells of the tables of a section, without their heads.
std::vector<Row> tableIn(const std::string& title) {
    std::vector<Row> rows;
    std::size_t inTable = 0;
    for (const std::string& line : sectionOf(title)) {
        inTable = line.starts_with("|") ? inTable + 1 : 0;
        if (inTable > 2) { // after the head and the rule under it
            std::istringstream cells(line.substr(1));
            Row row;
            for (std::string cell; std::getline(cells, cell, '|');) {
                row.push_back(trimmed(cell));
            }
            rows.push_back(row);
        }
    }
    return rows;
}

std::string hexOf(const std::string& bytes) {
    std::string hex;
    for (const char byte : bytes) {
        constexpr char digits[] = "0123456789abcdef";
        const auto value = static_cast<unsigned char>(byte);
        hex += hex.empty() ? "" : " ";
        hex += {digits[value / 16], digits[value % 16]};
    }
    return hex;
}

TEST(ProtocolPageTest, ListsTheErrorTypes) {
    std::set<std::string> listed;
    std::set<std::string> elsewhere;
    for (const Row& row : tableIn("Errors")) {
        EXPECT_TRUE(listed.insert(row.at(0)).second) << row.at(0) << " is there twice";
        if (row.at(1) == "where the standard library has it") {
            elsewhere.insert(row.at(0));
        }
    }
    std::set<std::string> known;
    for (const ErrorType& type : errorTypes()) {
        known.insert(std::string(type.name));
    }
    std::set<std::string> missing;
    std::set_difference(
        listed.begin(), listed.end(), known.begin(), known.end(),
        std::inserter(missing, missing.end()));
    EXPECT_TRUE(std::includes(elsewhere.begin(), elsewhere.end(), missing.begin(), missing.end()))
        << testing::PrintToString(missing);
    EXPECT_TRUE(std::includes(listed.begin(), listed.end(), known.begin(), known.end()))
        << testing::PrintToString(known);
}

TEST(ProtocolPageTest, SaysWhichErrorsHaveMoreThanAText) {
    for (const Row& row : tableIn("Errors")) {
        const auto types = errorTypes();
        const auto type = std::find_if(types.begin(), types.end(), [&](const ErrorType& each) {
            return each.name == row.at(0);
        });
        if (type != types.end()) {
            v1::Failure failure;
            failure.set_code(-1); // fits none of those that have a code alone
            const bool needsMore = type->make(failure) == nullptr;
            EXPECT_EQ(needsMore, row.at(1).find("code") != std::string::npos) << row.at(0);
        }
    }
}

TEST(ProtocolPageTest, HasTheLimitsOfTheCode) {
    const std::map<std::string, std::size_t> expected = {
        {"bytes of a frame", maximumFrameSize},
        {"bytes of the filter of a look-up", maximumFilterSize},
        {"bytes of a name in an endpoint's greeting", maximumPeerName},
        {"slots of a request or an answer", maximumSlots},
        {"levels of lists and maps in a property", maximumNesting},
        {"levels of messages in a frame", maximumMessageDepth},
        {"bytes of the text of a failure", maximumErrorText},
        {"bytes of the type of a failure", maximumErrorType},
        {"bytes of the text of a status", maximumEndText}};
    std::map<std::string, std::size_t> listed;
    for (const Row& row : tableIn("Limits")) {
        listed[row.at(0)] = std::stoul(row.at(1));
    }
    EXPECT_EQ(listed, expected);
}

TEST(ProtocolPageTest, HasTheVersionOfTheCode) {
    const std::string sentence = "The version is " + std::to_string(protocolMajor) + "." +
                                 std::to_string(protocolMinor) + ". ";
    const Lines lines = sectionOf("Versions");
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return line.starts_with(sentence);
    })) << sentence;
}

TEST(ProtocolPageTest, HasTheTypesAndStatesOfSlots) {
    std::set<std::string> listed;
    for (const Row& row : tableIn("The call stream")) {
        listed.insert(row.at(0));
    }
    std::set<std::string> declared;
    for (int type = v1::INT64; type <= v1::Type_MAX; ++type) {
        declared.insert(v1::Type_Name(static_cast<v1::Type>(type)));
    }
    for (int state = 0; state <= v1::Slot::State_MAX; ++state) {
        declared.insert(v1::Slot::State_Name(static_cast<v1::Slot::State>(state)));
    }
    EXPECT_EQ(listed, declared);
}

v1::Frame helloFrame(std::uint64_t service) {
    v1::Frame frame;
    frame.mutable_hello()->set_major(protocolMajor);
    frame.mutable_hello()->set_minor(protocolMinor);
    frame.mutable_hello()->set_service(service);
    return frame;
}

TEST(ProtocolPageTest, ShowsTheRealBytesOfARead) {
    const Lines expected = {
        "    importer  " + hexOf(encoded(encodeFrame(helloFrame(7)))),
        "    endpoint  " + hexOf(encoded(encodeFrame(helloFrame(0)))),
        "    importer  " +
            hexOf(encoded(
                OutgoingMessage::request("read", false, GenericPayload::fromValues(std::int64_t{5}))
                    .next())),
        "    endpoint  " +
            hexOf(encoded(
                OutgoingMessage::answer(GenericPayload::fromValues(std::string("Hello"))).next()))};
    Lines shown;
    for (const std::string& line : sectionOf("A read, byte by byte")) {
        if (line.starts_with("    ")) {
            shown.push_back(line);
        }
    }
    EXPECT_EQ(shown, expected);
}

TEST(ProtocolPageTest, ExplainsTheBytesThatItShows) {
    std::string frames;
    for (const std::string& line : sectionOf("A read, byte by byte")) {
        if (line.starts_with("    ")) {
            frames += line.substr(std::string("    importer ").size());
        }
    }
    std::string explained;
    for (const Row& row : tableIn("A read, byte by byte")) {
        explained += " " + row.at(0);
    }
    // The endpoint's greeting repeats the importer's first field with another length.
    const std::string greeting = " 0a 02 08 01";
    const std::size_t position = frames.find(greeting);
    ASSERT_NE(position, std::string::npos);
    EXPECT_EQ(frames.erase(position, greeting.size()), explained);
}

} // namespace
} // namespace agent::orvi::remoting::details::test
