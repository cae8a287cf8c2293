#include "records/directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DirectoryTest : public ::testing::Test, protected testing::AnswerPhoneHarness {
protected:
    Directory& directory = phone.directory;

    void add(std::string number, std::string name)
    {
        view.inputAnswers = {std::move(number), std::move(name)};
        directory.addContact();
    }
    void deleteItem(std::string item)
    {
        view.selected = std::move(item);
        directory.deleteContact();
    }
};

TEST_F(DirectoryTest, AddingNormalisesTheNumberAndKeepsTheNameWhole)
{
    add("01234 567-890", "Jane Smith, Esq.");
    add("0777,123", ""); // a cancelled name still stores the number
    add("01234567890", "Jane"); // a second entry for a number, after the first
    EXPECT_EQ(readFile("directory.ini"), "01234567890,Jane Smith, Esq.\r\n0777123,\r\n01234567890,Jane\r\n");
    EXPECT_EQ(view.questions[1], "Please enter the name you wish to hear when 01234567890 calls you.");
    EXPECT_THAT(view.lists["contacts"], ElementsAre("Number: 01234567890, Name: Jane Smith, Esq.",
                                                    "Number: 0777123, Name: ", "Number: 01234567890, Name: Jane"));
    EXPECT_THAT(spoken(), ElementsAre("Done", "Done", "Done"));
}

TEST_F(DirectoryTest, ANumberTooShortOrCancelledAddsAndSaysNothing)
{
    add("7", "Seven");
    add("", "");
    EXPECT_FALSE(has("directory.ini"));
    EXPECT_THAT(spoken(), IsEmpty());
    EXPECT_EQ(view.questions.size(), 2u) << "no name is asked for";
}

TEST_F(DirectoryTest, LookUpFindsTheFirstLineContainingTheNumber)
{
    writeFile("directory.ini", "no comma here 1234\r\n01234567,Bob\r\n1234,Alice\r\n\r\n\x01\xff,\r\nABC9,Letters\r\n");
    EXPECT_EQ(directory.lookup("1234"), "Bob") << "a substring of a longer number matches, and the first wins";
    EXPECT_EQ(directory.lookup("abc9"), "Letters") << "letters match without regard to case";
    EXPECT_EQ(directory.lookup("999"), std::nullopt);
    directory.loadcontacts();
    EXPECT_EQ(view.lists["contacts"].size(), 6u) << "a malformed line costs no other line";
}

TEST_F(DirectoryTest, DeletingDropsEveryLineThatContainsTheNumber)
{
    writeFile("directory.ini", "01234567,Bob\r\n1234,Alice\r\n5555,Carol\r\n");
    deleteItem("Number: 1234, Name: Alice");
    EXPECT_EQ(readFile("directory.ini"), "5555,Carol\r\n");
    EXPECT_FALSE(has("tempdir.txt"));
    deleteItem("Number: 5555, Name: Carol");
    EXPECT_EQ(readFile("directory.ini"), "");
    EXPECT_THAT(view.lists["contacts"], IsEmpty());
    EXPECT_THAT(spoken(), ElementsAre("Deleted", "Deleted"));
}

TEST_F(DirectoryTest, DeletingWithNothingSelectedOrNoNumberLosesNothing)
{
    const std::string entries = "01234567,Bob\r\n,Nobody\r\n";
    writeFile("directory.ini", entries);
    deleteItem("");
    ASSERT_EQ(view.boxes.size(), 1u);
    EXPECT_EQ(view.boxes[0].text, "You must HIGHLIGHT an entry from your contacts list before you can delete it");
    EXPECT_EQ(readFile("directory.ini"), entries);

    deleteItem("Number: , Name: Nobody");
    EXPECT_EQ(readFile("directory.ini"), "01234567,Bob\r\n") << "only the entry without a number goes";
}

TEST_F(DirectoryTest, AFailedRewriteLeavesTheDirectoryAsItWas)
{
    const std::string entries = "01234567,Bob\r\n5555,Carol\r\n";
    writeFile("directory.ini", entries);
    std::filesystem::create_directory(data / "tempdir.txt"); // the scratch file cannot be written
    deleteItem("Number: 5555, Name: Carol");
    EXPECT_EQ(readFile("directory.ini"), entries);
}

TEST_F(DirectoryTest, SettingANumberRenamesItsOwnEntryInPlaceOrAddsOne)
{
    writeFile("directory.ini", "01234567,Bob\r\n1234,Alice\r\n5555,Carol\r\n1234,Again\r\n");
    EXPECT_TRUE(directory.set("12-34", "Alicia\nSmith"));
    EXPECT_EQ(readFile("directory.ini"), "01234567,Bob\r\n1234,AliciaSmith\r\n5555,Carol\r\n")
        << "the longer number keeps its name, the repeat goes, a line break makes no second line";
    EXPECT_TRUE(directory.set("777", "Dave"));
    EXPECT_EQ(directory.lookup("777"), "Dave");
    EXPECT_FALSE(has("tempdir.txt"));
}

TEST_F(DirectoryTest, RemovingTakesOnlyTheExactNumberAndRefusesWhatIsNoNumber)
{
    const std::string entries = "01234567,Bob\r\n1234,Alice\r\n";
    writeFile("directory.ini", entries);
    EXPECT_FALSE(directory.remove("234"));
    for (const std::string& hostile : std::vector<std::string>{"", " - ,", "12\n34", std::string(65, '1'), "\xff\xfe"}) {
        EXPECT_FALSE(directory.set(hostile, "Eve")) << hostile;
        EXPECT_FALSE(directory.remove(hostile)) << hostile;
    }
    EXPECT_EQ(readFile("directory.ini"), entries);
    EXPECT_TRUE(directory.remove("1234"));
    EXPECT_EQ(readFile("directory.ini"), "01234567,Bob\r\n");
}

} // namespace
} // namespace corvel
