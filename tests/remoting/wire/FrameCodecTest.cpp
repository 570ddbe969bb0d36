#include "wire/FrameCodec.hpp"

#include "allocations/LargestAllocation.hpp"
#include "remoting/wire/Frames.hpp"
#include "remoting/wire/SlicedInput.hpp"
#include "support/ThrowsExactly.hpp"

#include <orvi/remoting/Errors.hpp>

#include <gtest/gtest.h>

#include <google/protobuf/util/message_differencer.h>

#include <string>
#include <string_view>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using google::protobuf::util::MessageDifferencer;
using streambuf::test::throwsExactly;
using namespace std::string_literals;

/// One frame with each kind of body, and one without.
std::vector<v1::Frame> oneOfEach() {
    std::vector<v1::Frame> frames(11);
    frames[0].mutable_hello()->set_major(1);
    frames[0].mutable_hello()->set_framework("framework");
    frames[1].mutable_want()->set_filter("(a=b)");
    frames[2].mutable_unwant()->set_id(300);
    v1::Property& property = *frames[3].mutable_offer()->add_properties();
    property.set_key("key");
    property.mutable_value()->mutable_list()->add_values()->set_int32(-5);
    frames[4].mutable_withdrawal()->set_service(1);
    frames[5].mutable_settled()->set_id(2);
    frames[6].mutable_request()->set_method("read");
    frames[6].mutable_request()->add_slots()->add_numbers(4096);
    frames[7].mutable_answer()->add_slots()->set_length(3);
    frames[8].mutable_failure()->set_text("text");
    frames[9].mutable_abandon();
    return frames;
}

std::string oversize(std::size_t size) {
    return "A frame of " + std::to_string(size) +
           " bytes is longer than the limit of 131072 bytes.";
}

/// Return a head whose encoding has a size. It must be at least 200.
v1::Frame headOfSize(std::size_t size) {
    v1::Frame frame;
    std::string& text = *frame.mutable_failure()->mutable_text();
    text.resize(size - 150);
    while (frame.ByteSizeLong() < size) {
        text += 'x';
    }
    return frame;
}

void expectMalformed(const std::string& bytes) {
    EXPECT_THAT([&] { readFrame(bytes); }, throwsExactly<ProtocolError>("A frame is malformed."))
        << testing::PrintToString(bytes);
}

TEST(FrameCodecTest, ReadsBackEachKindOfFrame) {
    for (const v1::Frame& head : oneOfEach()) {
        for (const std::string& data : {""s, "x"s, patternOf(200), patternOf(20000)}) {
            const std::string bytes = encoded(encodeFrame(head, bytesOf(data)));
            for (const std::size_t sliceSize : {1U, 2U, 3U, 5U, 7U, 8192U}) {
                const ReadFrame frame = readFrame(bytes, sliceSize);
                EXPECT_TRUE(MessageDifferencer::Equals(frame.head, head))
                    << frame.head.DebugString();
                EXPECT_EQ(frame.data, data);
            }
        }
    }
}

TEST(FrameCodecTest, WritesWhatTheGeneratedClassReads) {
    for (const v1::Frame& head : oneOfEach()) {
        v1::Frame parsed;
        ASSERT_TRUE(parsed.ParseFromString(encoded(encodeFrame(head, bytesOf("data")))));
        EXPECT_EQ(parsed.data(), "data");
        parsed.clear_data();
        EXPECT_TRUE(MessageDifferencer::Equals(parsed, head)) << parsed.DebugString();
    }
}

TEST(FrameCodecTest, ReadsWhatTheGeneratedClassWrites) {
    for (v1::Frame head : oneOfEach()) {
        head.set_data("data");
        const ReadFrame frame = readFrame(head.SerializeAsString());
        EXPECT_EQ(frame.data, "data");
        head.clear_data();
        EXPECT_TRUE(MessageDifferencer::Equals(frame.head, head)) << frame.head.DebugString();
    }
}

TEST(FrameCodecTest, LeavesTheDataWhereTheyAre) {
    const Bytes data = bytesOf(patternOf(1000));
    const OutgoingFrame frame = encodeFrame(v1::Frame(), data);
    EXPECT_EQ(frame.data.data, data.data);
    EXPECT_EQ(frame.data.size, data.size);
    EXPECT_EQ(frame.data.owner, data.owner);
    EXPECT_EQ(frame.head, "\x7a\xe8\x07");
}

TEST(FrameCodecTest, FillsAFrameToTheLastByte) {
    // Around the heads that leave room for data whose length takes one, two and three bytes.
    std::vector<std::size_t> sizes = {0, 1, 2, 3};
    for (const std::size_t length : {0U, 127U, 128U, 16383U, 16384U}) {
        for (std::size_t size = 0; size < 10; ++size) {
            sizes.push_back(maximumFrameSize - length - size);
        }
    }
    for (const std::size_t size : sizes) {
        const std::string head(size, 'h');
        const std::size_t room = dataRoom(size);
        EXPECT_LE(encoded(attachData(head, bytesOf(patternOf(room)))).size(), maximumFrameSize);
        EXPECT_THROW(attachData(head, bytesOf(patternOf(room + 1))), std::length_error) << size;
    }
    EXPECT_EQ(dataRoom(0), maximumFrameSize - 4);
    EXPECT_EQ(dataRoom(maximumFrameSize), 0U);
    EXPECT_EQ(dataRoom(maximumFrameSize + 1), 0U);
}

TEST(FrameCodecTest, RefusesToWriteALongerFrame) {
    EXPECT_EQ(encoded(encodeFrame(headOfSize(maximumFrameSize))).size(), maximumFrameSize);
    EXPECT_THAT(
        [] { encodeFrame(headOfSize(maximumFrameSize + 1)); },
        throwsExactly<std::length_error>(oversize(maximumFrameSize + 1)));
    EXPECT_THAT(
        [] { encodeFrame(v1::Frame(), bytesOf(std::string(maximumFrameSize, 'x'))); },
        throwsExactly<std::length_error>(oversize(maximumFrameSize + 4)));
}

TEST(FrameReaderTest, RefusesALongerFrameBeforeItReadsIt) {
    const std::string bytes = headOfSize(maximumFrameSize + 1).SerializeAsString();
    EXPECT_THAT(
        [&] { readFrame(bytes); }, throwsExactly<ProtocolError>(oversize(maximumFrameSize + 1)));
    EXPECT_NO_THROW(readFrame(headOfSize(maximumFrameSize).SerializeAsString()));
}

TEST(FrameReaderTest, HandsOutTheDataInAnyPieces) {
    const std::string text = patternOf(300);
    const std::string bytes = encoded(encodeFrame(oneOfEach()[7], bytesOf(text)));
    for (const std::size_t piece : {1U, 7U, 100U, 299U, 300U}) {
        SlicedInput input(bytes, 11);
        FrameReader reader(input, bytes.size());
        v1::Frame head;
        reader.readHead(head);
        std::string data;
        while (reader.dataSize() > 0) {
            const std::size_t size = std::min(piece, reader.dataSize());
            data.resize(data.size() + size);
            reader.readData(data.data() + data.size() - size, size);
        }
        EXPECT_EQ(data, text);
    }
}

TEST(FrameReaderTest, SkipsTheDataThatAreNotWanted) {
    const std::string bytes = encoded(encodeFrame(v1::Frame(), bytesOf("abcdef")));
    SlicedInput input(bytes + "next", 3);
    {
        FrameReader reader(input, bytes.size());
        v1::Frame head;
        reader.readHead(head);
        char first = '\0';
        reader.readData(&first, 1);
        EXPECT_EQ(first, 'a');
        reader.skipData();
        EXPECT_EQ(reader.dataSize(), 0U);
    }
    EXPECT_EQ(input.ByteCount(), static_cast<std::int64_t>(bytes.size()));
}

TEST(FrameReaderTest, DoesNotReadBeyondTheFrame) {
    const std::string bytes = encoded(encodeFrame(oneOfEach()[6]));
    SlicedInput input(bytes + bytes, 1000);
    for (int frame = 0; frame < 2; ++frame) {
        FrameReader reader(input, bytes.size());
        v1::Frame head;
        reader.readHead(head);
        EXPECT_EQ(head.request().method(), "read");
        EXPECT_EQ(reader.dataSize(), 0U);
    }
}

TEST(FrameReaderTest, ClearsTheFrameBefore) {
    v1::Frame frame = oneOfEach()[6];
    SlicedInput input("", 1);
    FrameReader(input, 0).readHead(frame);
    EXPECT_EQ(frame.ByteSizeLong(), 0U);
}

TEST(FrameReaderTest, IgnoresFieldsThatItDoesNotKnow) {
    const std::string unknown = "\x80\x01\x05"                     // 16: a number
                                "\x89\x01xxxxxxxx"                 // 17: 64 bits
                                "\x92\x01\x03xyz"                  // 18: bytes
                                "\x9d\x01xxxx"                     // 19: 32 bits
                                "\x58\x80\x80\x80\x80\x80\x80\x01" // 11: a long number
                                "\x38\x01"                         // 7, which is no number
                                "\xfa\xff\xff\xff\x0f\x01x"s;      // the highest of all
    const std::string request = "\x3a\x06\x0a\x04read"s;
    const ReadFrame frame = readFrame(unknown + request + unknown + "\x7a\x02hi", 1);
    EXPECT_EQ(frame.head.request().method(), "read");
    EXPECT_EQ(frame.data, "hi");
}

TEST(FrameReaderTest, IgnoresFieldsThatItDoesNotKnowInsideOfMessages) {
    const std::string request = "\x3a\x0b\xf8\x01\x07\x0a\x04read\x28\x01"s;
    EXPECT_EQ(readFrame(request, 1).head.request().method(), "read");
}

TEST(FrameReaderTest, RefusesATagOfMoreBytesThanATagHas) {
    const std::string longest = "\xa0\x86\x80\x80\x00\x01"s; // field 100, a number
    const std::string tooLong = "\xa0\x86\x80\x80\x80\x00\x01"s;
    EXPECT_FALSE(readFrame(longest).head.has_hello());
    expectMalformed(tooLong);
    EXPECT_TRUE(readFrame("\x0a\x06" + longest).head.has_hello());
    expectMalformed("\x0a\x07" + tooLong);
}

TEST(FrameReaderTest, RefusesWhatIsNoFrame) {
    expectMalformed("\0"s);                       // no field
    expectMalformed("\x07"s);                     // no kind of field
    expectMalformed("\x02\x01x"s);                // field number 0
    expectMalformed("\x3b\x3c"s);                 // a group
    expectMalformed("\x3c"s);                     // the end of one
    expectMalformed("\x3a"s);                     // no length
    expectMalformed("\x3a\x05xx"s);               // a length beyond the end
    expectMalformed("\x3a\xff\xff\xff\xff\x0f"s); // a negative length
    expectMalformed("\x3a\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff"s);
    expectMalformed("\x3a\x02\x0a\x05read"s); // a field that is longer than its message
    expectMalformed("\x3a\x01\x0c"s);         // the end of a group inside of a message
    expectMalformed("\x3a\x01\0"s);           // no field inside of a message
    expectMalformed("\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff"s);
    expectMalformed("\x92\x01\x7fxyz"s); // an unknown field beyond the end
    expectMalformed("\x89\x01xxx"s);
    expectMalformed("\x9d\x01xxx"s);
    expectMalformed("\x80\x01"s);
}

TEST(FrameReaderTest, RefusesAnythingBehindTheData) {
    expectMalformed("\x7a\x02hi\x3a\0"s);
    expectMalformed("\x7a\x02hi\x80\x01\x05"s);
    expectMalformed("\x7a\0\x7a\x02hi"s);
}

TEST(FrameReaderTest, RefusesDataThatAreLongerThanTheFrame) {
    expectMalformed("\x7a\x03hi"s);
    expectMalformed("\x7a\xff\xff\xff\xff\x07hi"s);
    expectMalformed("\x7a\xff\xff\xff\xff\x0fhi"s);
    expectMalformed("\x7a"s);
}

TEST(FrameReaderTest, RefusesMessagesThatAreNestedTooDeeply) {
    v1::Frame head;
    v1::Value* value = head.mutable_offer()->add_properties()->mutable_value();
    for (int depth = 0; depth < 1000; ++depth) {
        value = value->mutable_list()->add_values();
    }
    value->set_flag(true);
    expectMalformed(encoded(encodeFrame(head)));
}

TEST(FrameReaderTest, ReservesNoMemoryForTextsThatCannotBeThere) {
    // A text of 50 MB, inside of a property that claims to be longer than its offer.
    const std::string spoilt = "\x22\x0c\x12\xff\xff\xff\xff\x07\x0a\x80\xe1\xeb\x17x"s;
    for (const std::size_t sliceSize : {1U, 100U}) {
        const orvi::test::LargestAllocation largest;
        EXPECT_THAT(
            [&] { readFrame(spoilt, sliceSize); },
            throwsExactly<ProtocolError>("A frame is malformed."));
        EXPECT_LT(largest.size(), 1000U);
    }
}

TEST(FrameReaderTest, NoticesAnInputThatEndsBeforeTheFrame) {
    for (const v1::Frame& head : oneOfEach()) {
        const std::string bytes = encoded(encodeFrame(head, bytesOf("some data")));
        for (std::size_t size = 0; size < bytes.size(); ++size) {
            SlicedInput input(std::string_view(bytes).substr(0, size), 4);
            FrameReader reader(input, bytes.size());
            v1::Frame frame;
            std::string data(bytes.size(), '\0');
            EXPECT_THAT(
                ([&] {
                    reader.readHead(frame);
                    reader.readData(data.data(), reader.dataSize());
                }),
                throwsExactly<ProtocolError>("A frame is malformed."))
                << size;
        }
    }
}

TEST(FrameReaderTest, NoticesWhereSkippingDataWouldPassTheEnd) {
    SlicedInput input("\x7a\x05some", 4);
    FrameReader reader(input, 7);
    v1::Frame frame;
    reader.readHead(frame);
    EXPECT_THAT([&] { reader.skipData(); }, throwsExactly<ProtocolError>("A frame is malformed."));
}

TEST(FrameReaderTest, TakesNoBeginningOfAFrameForAWholeOne) {
    for (const v1::Frame& head : oneOfEach()) {
        const std::string bytes = encoded(encodeFrame(head, bytesOf("some data")));
        for (std::size_t size = 1; size < bytes.size(); ++size) {
            if (size != head.ByteSizeLong()) {
                expectMalformed(bytes.substr(0, size));
            }
        }
    }
}

} // namespace
} // namespace agent::orvi::remoting::details::test
