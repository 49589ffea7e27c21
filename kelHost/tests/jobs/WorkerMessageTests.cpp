#include "jobs/WorkerMessage.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kel::host {

namespace {

using Kind = WorkerMessage::Kind;

const WorkerMessage kProgress{Kind::Progress, 7, {"-1", "2", "48000"}};

// The bytes of kProgress, with one changed.
std::string Changed(std::size_t place, char byte) {
    std::string bytes = Encode(kProgress);
    bytes.at(place) = byte;
    return bytes;
}

std::string OutcomeOf(std::string bytes) {
    try {
        return TakeMessage(bytes).has_value() ? "a message" : "incomplete";
    } catch (const InvalidMessage& error) {
        return error.what();
    }
}

constexpr const char* kInvalid = "the bytes are not a message of a worker";

} // namespace

TEST(WorkerMessage, OfEachKindIsTakenOnceItIsComplete) {
    const std::vector<WorkerMessage> messages{
        {Kind::Progress, 0xFFFFFFFF, {"-1", "9223372036854775807", "4294967295"}},
        {Kind::Spooled, 2, {"18446744073709551615"}},
        {Kind::Show, 3, {std::string(300000, 'x')}, true},
        {Kind::Result, 4, {"", std::string("a\0b", 3), "report\n"}},
        {Kind::Skipped, 5, {"a", "b", "c"}},
        {Kind::Error, 6, {"file", "message", "path"}}};
    std::string bytes;
    for (const WorkerMessage& message : messages) {
        bytes += Encode(message);
    }
    // Byte by byte, as a pipe may deliver them.
    std::string received;
    std::size_t taken = 0;
    for (const char byte : bytes) {
        received += byte;
        if (const auto message = TakeMessage(received)) {
            const WorkerMessage& expected = messages.at(taken++);
            EXPECT_EQ(message->kind, expected.kind);
            EXPECT_EQ(message->job, expected.job);
            EXPECT_EQ(message->fields, expected.fields);
            EXPECT_EQ(message->hasPrinted, expected.hasPrinted);
            EXPECT_EQ(received, "");
        }
    }
    EXPECT_EQ(taken, messages.size());
}

TEST(WorkerMessage, IsRefusedWhenTheBytesAreSomethingElse) {
    EXPECT_EQ(OutcomeOf(Encode(kProgress)), "a message");
    EXPECT_EQ(OutcomeOf("terminate called"), kInvalid);
    // The mark, the size, the job, the kind, a flag, and the size of the first field.
    EXPECT_EQ(OutcomeOf(Changed(0, 'x')), kInvalid);
    EXPECT_EQ(OutcomeOf(Changed(7, '\x7F')), kInvalid) << "2 GiB would be waited for";
    EXPECT_EQ(OutcomeOf(Changed(4, '\x04')), kInvalid) << "no kind";
    EXPECT_EQ(OutcomeOf(Changed(4, '\x05')), kInvalid) << "no flag";
    EXPECT_EQ(OutcomeOf(Changed(4, '\x08')), kInvalid) << "half of a size";
    EXPECT_EQ(OutcomeOf(Changed(12, '\x06')), kInvalid) << "no such kind";
    EXPECT_EQ(OutcomeOf(Changed(12, '\x80')), kInvalid) << "no such kind";
    EXPECT_EQ(OutcomeOf(Changed(14, '\x7F')), kInvalid) << "a field beyond the end";
    EXPECT_EQ(OutcomeOf(Changed(17, '\xFF')), kInvalid) << "a field far beyond the end";
    std::string line = Encode({Kind::Show, 0, {"abc"}});
    line.at(14) = '\x04';
    EXPECT_EQ(OutcomeOf(line), kInvalid) << "the only field is one byte shorter than its size";
    EXPECT_EQ(OutcomeOf(line + line), kInvalid) << "the byte of the next message is not its own";
}

TEST(WorkerMessage, IsRefusedWhenItsFieldsAreNotThoseOfItsKind) {
    for (const WorkerMessage& message :
         {WorkerMessage{Kind::Progress, 0, {"1", "2"}},
          WorkerMessage{Kind::Progress, 0, {"x", "2", "48000"}},
          WorkerMessage{Kind::Progress, 0, {"1", "2x", "48000"}},
          WorkerMessage{Kind::Progress, 0, {"1", "2", "-1"}},
          WorkerMessage{Kind::Spooled, 0, {"-1"}}, WorkerMessage{Kind::Show, 0, {"a", "b"}},
          WorkerMessage{Kind::Result, 0, {"a", "b"}}, WorkerMessage{Kind::Skipped, 0, {}},
          WorkerMessage{Kind::Error, 0, {"a"}}}) {
        EXPECT_EQ(OutcomeOf(Encode(message)), kInvalid);
    }
}

} // namespace kel::host
