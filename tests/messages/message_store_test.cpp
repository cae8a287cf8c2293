#include "messages/message_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using Kind = MessageStore::Kind;

class MessageStoreTest : public ::testing::Test, protected testing::AnswerPhoneHarness {
protected:
    MessageStore& store = phone.messages;

    void messages(char kind, int from, int to)
    {
        for (int slot = from; slot <= to; ++slot) writeFile(std::string(1, kind) + "-" + std::to_string(slot) + "-0123.wav", "RIFF");
    }
};

TEST_F(MessageStoreTest, CountingStopsAtTheFirstGapWhichTheNextMessageFills)
{
    writeFile("1-1-x.wav", "");
    writeFile("1-2-y.wav", "");
    writeFile("1-4-z.wav", "");
    writeFile("1-3.wav", "");  // not a message: no caller part
    writeFile("1-30-q.wav", ""); // slot 30, not slot 3
    EXPECT_EQ(store.count(Kind::New), 2);
    EXPECT_EQ(store.freeSlot(Kind::New), 3);
    EXPECT_EQ(store.count(Kind::Old), 0);
    EXPECT_EQ(store.freeSlot(Kind::Old), 1);
}

TEST_F(MessageStoreTest, GapsLeftByAnInterruptedRenamingAreClosedInSlotOrder)
{
    writeFile("1-2-b.wav", "b"); // the first was filed as heard; the gap it left was not closed
    writeFile("1-3-c.wav", "c");
    writeFile("2-1-x.wav", "x"); // closing a gap among the old ones stopped half-way
    writeFile("2-3-z.wav", "z");
    writeFile("2-5-w.wav", "w");
    store.closeGaps();
    EXPECT_EQ(readFile("1-1-b.wav"), "b");
    EXPECT_EQ(readFile("1-2-c.wav"), "c");
    EXPECT_EQ(readFile("2-1-x.wav"), "x");
    EXPECT_EQ(readFile("2-2-z.wav"), "z");
    EXPECT_EQ(readFile("2-3-w.wav"), "w");
    EXPECT_EQ(store.count(Kind::New), 2);
    EXPECT_EQ(store.count(Kind::Old), 3);
    EXPECT_FALSE(has("1-3-c.wav"));
    EXPECT_FALSE(has("2-5-w.wav"));
}

TEST_F(MessageStoreTest, NinetyEightMessagesFillTheStore)
{
    messages('1', 1, 98);
    EXPECT_EQ(store.count(Kind::New), 98);
    EXPECT_EQ(store.freeSlot(Kind::New), std::nullopt);
    store.checkmessages();
    EXPECT_EQ(counter("new1", "new2"), "98");
}

TEST_F(MessageStoreTest, IndicatorsShowTwoPlaces)
{
    store.checkmessages();
    EXPECT_EQ(counter("new1", "new2"), "00");
    EXPECT_EQ(counter("old1", "old2"), "00");
    messages('1', 1, 10);
    messages('2', 1, 3);
    store.checkmessages();
    EXPECT_EQ(counter("new1", "new2"), "10");
    EXPECT_EQ(counter("old1", "old2"), "03");
}

// Ten or more old messages show the digits of the new count; with a one-digit new count the
// units picture has no digit to load and keeps what it showed.
TEST_F(MessageStoreTest, TenOldMessagesShowTheNewCountsDigits)
{
    messages('2', 1, 7);
    store.checkmessages();
    messages('2', 8, 12);
    messages('1', 1, 4);
    store.checkmessages();
    EXPECT_EQ(counter("old1", "old2"), "47");
    messages('1', 5, 23);
    store.checkmessages();
    EXPECT_EQ(counter("old1", "old2"), "23");
}

TEST_F(MessageStoreTest, FileNamesCarryTheCallerAndAlwaysFit)
{
    EXPECT_EQ(MessageStore::fileName(Kind::New, 1, "012"), "1-1-012.wav");
    EXPECT_EQ(MessageStore::fileName(Kind::Old, 12, "Withheld"), "2-12-Withheld.wav");
    EXPECT_EQ(MessageStore::fileName(Kind::New, 3, ""), "1-3-.wav");
    EXPECT_EQ(MessageStore::callerOf("2-12-0123-456.wav"), "0123-456");
    EXPECT_EQ(MessageStore::callerOf("1-3-.wav"), "");
    const std::string longest = MessageStore::fileName(Kind::New, 98, std::string(1000, '\xe2'));
    EXPECT_LE(longest.size(), DataFolder::maxNameBytes);
    EXPECT_EQ(MessageStore::fileName(Kind::New, 1, "../x"), "1-1-.._x.wav");
}

} // namespace
} // namespace corvel
