#include "records/block_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using ::testing::ElementsAre;
using Entry = BlockList::Entry;

TEST(BlockListLine, NumbersLoseTheirSeparatorsAndKeepANoteAndAPrefixMark)
{
    EXPECT_EQ(BlockList::parse("01234 567-890"), (Entry{"01234567890", false, ""}));
    EXPECT_EQ(BlockList::parse("0870*,sales, all of them"), (Entry{"0870", true, "sales, all of them"}));
    EXPECT_EQ(BlockList::parse(" +44 20* \r"), (Entry{"+4420", true, ""}));
    EXPECT_EQ(BlockList::format(Entry{"0870", true, "sales"}), "0870*,sales");
    // A note whose ends were controls keeps no blanks they hid, so it reads the same once written back.
    const auto hidden = BlockList::parse(std::string("0870,sales \x01\0", 13));
    ASSERT_NE(hidden, std::nullopt);
    EXPECT_EQ(hidden->note, "sales");
    EXPECT_EQ(BlockList::parse(BlockList::format(*hidden)), hidden);
    // Nothing that would block everyone or that no line could deliver.
    for (const char* bad : {"", "*", " - ,note", "08*70", "12\x01" "3", "\xff\xfe"})
        EXPECT_EQ(BlockList::parse(bad), std::nullopt) << bad;
}

class BlockListTest : public ::testing::Test, protected testing::AnswerPhoneHarness {
protected:
    BlockList& list = phone.blockList;
    std::string file() const { return readFile("blocklist.txt"); }
};

TEST_F(BlockListTest, ExactNumbersAndPrefixesMatchTheDeliveredNumberWithoutItsDashes)
{
    folder.writeFile("blocklist.txt", "0123456\r\nbroken*line*\r\n0870*,sales\r\n\r\nSIP-Spam\r\n", false);
    EXPECT_TRUE(list.blocks("0123-456"));
    EXPECT_FALSE(list.blocks("01234567")) << "a number is blocked whole, not as a part of a longer one";
    EXPECT_TRUE(list.blocks("0870-999"));
    EXPECT_FALSE(list.blocks("0871"));
    EXPECT_TRUE(list.blocks("sipspam")) << "letters compare without regard to case";
    EXPECT_FALSE(list.blocks(""));
    EXPECT_EQ(list.entries().size(), 3u) << "the broken line is passed over";
}

TEST_F(BlockListTest, AddingAndRemovingRewritesTheFileWholeAndNeverRepeatsAnEntry)
{
    EXPECT_TRUE(list.add("0123 456-7", "pest,again"));
    EXPECT_TRUE(list.add("01234567"));
    EXPECT_TRUE(list.add("0870*", " sales "));
    EXPECT_FALSE(list.add("*"));
    EXPECT_EQ(file(), "01234567,pestagain\r\n0870*,sales\r\n");
    EXPECT_FALSE(list.remove("0870")) << "the prefix is not the number";
    EXPECT_TRUE(list.remove("0870*"));
    EXPECT_EQ(file(), "01234567,pestagain\r\n");
    EXPECT_FALSE(folder.exists("blocklist.txt.part"));
}

TEST_F(BlockListTest, ImportAddsOnlyNewEntriesAndExportWritesThemBack)
{
    list.add("111");
    const auto plain = top / "plain.txt";
    std::ofstream(plain) << "111\n222,neighbour\nnot a number*x\n333*\n";
    EXPECT_EQ(list.importFrom(plain), 2u);
    EXPECT_EQ(list.importFrom(top / "missing.txt"), 0u);
    const auto out = top / "out.txt";
    ASSERT_TRUE(list.exportTo(out));
    std::ifstream in(out, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "111\r\n222,neighbour\r\n333*\r\n");
}

TEST_F(BlockListTest, TheLastCallerOrASelectedCallIsBlockedByTheNumberTheLogShows)
{
    writeFile("calls.txt", "0123-456, on 5 January 2026, at 9:00:00 AM\r\nWithheld, on 5 January 2026, at 9:01:00 AM\r\n"
                           " keyed - 777, on 5 January 2026, at 9:01:09 AM\r\n");
    EXPECT_FALSE(phone.blockLastCaller()) << "the newest caller withheld their number";
    EXPECT_EQ(view.boxes.size(), 1u);
    view.selected = "0123-456, on 5 January 2026, at 9:00:00 AM";
    phone.blocking.blockSelectedCall();
    EXPECT_THAT(view.lists["lst_blocked"], ElementsAre("0123456"));
    phone.blocking.unblockSelectedCall();
    EXPECT_THAT(view.lists["lst_blocked"], ::testing::IsEmpty());

    folder.appendLine("calls.txt", "0999, on 5 January 2026, at 9:02:00 AM");
    phone.trayMenuClicked("blocklast");
    EXPECT_EQ(file(), "0999\r\n");
    EXPECT_TRUE(phone.unblock("0999"));
    EXPECT_EQ(file(), "");
}

} // namespace
} // namespace corvel
