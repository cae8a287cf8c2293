#include "base/ini_settings_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/log.h"

namespace corvel {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class IniSettingsStoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string folder = (fs::temp_directory_path() / "corvel-settings-XXXXXX").string();
        ASSERT_NE(::mkdtemp(folder.data()), nullptr);
        folder_ = folder;
        file_ = folder_ / "corvel.conf";
        log::setSink([this](log::Level level, std::string_view line) {
            if (level >= log::Level::Warning) warnings_.emplace_back(line);
        });
    }
    void TearDown() override
    {
        log::setSink({});
        fs::remove_all(folder_);
    }

    void put(const std::string& text) { std::ofstream(file_, std::ios::binary) << text; }
    std::string contents() const
    {
        std::ifstream in(file_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    std::string warnings() const
    {
        std::string all;
        for (const auto& line : warnings_) all += line + '\n';
        return all;
    }
    static mode_t mode(const fs::path& path)
    {
        struct stat info {};
        EXPECT_EQ(::stat(path.c_str(), &info), 0);
        return info.st_mode & 07777;
    }

    fs::path folder_;
    fs::path file_;
    std::vector<std::string> warnings_;
};

TEST_F(IniSettingsStoreTest, NamesDifferingOnlyInCaseReachOneValue)
{
    IniSettingsStore store(file_);
    store.write("Withheld", "Data", "RingCount", "4");
    EXPECT_EQ(store.read("withheld", "data", "ringcount", "-"), "4");
    store.write("WITHHELD", "data", "ringCOUNT", "5");
    EXPECT_EQ(contents(), "[Withheld/Data]\nringCOUNT=5\n");

    // Duplicates, also in a section that appears twice: the first one counts and is updated.
    put("[Withheld/data]\nkey=first\n[withheld/DATA]\nKey=second\nother=x\n");
    EXPECT_EQ(store.read("withheld", "data", "KEY", "-"), "first");
    EXPECT_EQ(store.read("withheld", "data", "other", "-"), "x");
    store.write("withheld", "data", "key", "new");
    store.write("withheld", "data", "added", "y");
    EXPECT_EQ(contents(),
              "[Withheld/data]\nkey=new\nadded=y\n[withheld/DATA]\nKey=second\nother=x\n");
}

TEST_F(IniSettingsStoreTest, TrickyValuesAndKeysRoundTripExactly)
{
    const std::vector<std::string> values = {
        "  blanks at both ends  ", "a=b=c", "; not a comment", "# nor this", "[not a section]",
        "\"quoted\"", "say \"hi\"", "back\\slash\\", "one\r\ntwo\n", "tab\there", "\t",
        std::string("ctl\0\x01\x1b\x7f", 7), "Grüße ☎ 日本", "\xff\xfe not UTF-8", "", " ",
        "\\x41", "\"", "trailing quote\""};
    const std::vector<std::string> keys = {
        "1.0 = beta", "[x]", ";k", "#k", "\"k\"", " padded ", "", "multi\nline", "ключ",
        "a\\b", std::string("nul\0key", 7)};
    IniSettingsStore store(file_);
    store.write("withheld", "data", "plain", "two words");
    for (std::size_t i = 0; i < values.size(); ++i) {
        store.write("withheld", "data", "value" + std::to_string(i), values[i]);
    }
    for (std::size_t i = 0; i < keys.size(); ++i) {
        store.write("withheld", "data", keys[i], "key" + std::to_string(i));
    }

    const IniSettingsStore fresh(file_);
    for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(fresh.read("withheld", "data", "value" + std::to_string(i), "-"), values[i])
            << "value " << i;
    }
    for (std::size_t i = 0; i < keys.size(); ++i) {
        EXPECT_EQ(fresh.read("withheld", "data", keys[i], "-"), "key" + std::to_string(i))
            << "key " << i;
    }
    // One line an entry, readable text, and a plain value left plain for whoever edits it.
    const std::string text = contents();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'),
              static_cast<std::ptrdiff_t>(2 + values.size() + keys.size()));
    EXPECT_THAT(text, HasSubstr("\nplain=two words\n"));
    EXPECT_THAT(text, HasSubstr("\nvalue12=Grüße ☎ 日本\n"));
    EXPECT_EQ(warnings(), "");
}

TEST_F(IniSettingsStoreTest, HandEditedFileReadsRightAndKeepsItsLayout)
{
    put("; Corvel settings\r\n\r\n[ Withheld/Data ]\r\n  Greeting = Hello there  \r\n"
        "# the next one keeps its blanks\r\nPadded =\t\"  two  \"\r\nEmpty=\r\n\r\n"
        "[other/section]\r\nGreeting=elsewhere");
    IniSettingsStore store(file_);
    EXPECT_EQ(store.read("withheld", "data", "greeting", "-"), "Hello there");
    EXPECT_EQ(store.read("withheld", "data", "padded", "-"), "  two  ");
    EXPECT_EQ(store.read("withheld", "data", "empty", "-"), "");
    EXPECT_EQ(store.read("other", "section", "greeting", "-"), "elsewhere");

    store.write("withheld", "data", "greeting", "Hi");
    store.write("withheld", "data", "new", "1");
    store.write("withheld", "audio", "volume", "5");
    EXPECT_EQ(contents(),
              "; Corvel settings\r\n\r\n[ Withheld/Data ]\r\ngreeting=Hi\n"
              "# the next one keeps its blanks\r\nPadded =\t\"  two  \"\r\nEmpty=\r\nnew=1\n\r\n"
              "[other/section]\r\nGreeting=elsewhere\n\n[withheld/audio]\nvolume=5\n");
    EXPECT_EQ(warnings(), "");
}

TEST_F(IniSettingsStoreTest, BrokenLinesAreKeptReportedOnceAndSkipped)
{
    const std::string broken = "orphan=0\n"
                               "[withheld/data]\n"
                               "before=1\n"
                               "this line has no equals sign\n" +
                               std::string("nul=a\0b\n", 8) +
                               "bin=\xff\xfe\n"
                               "password=\"unterminated secret\n"
                               "after=2\n";
    put(broken);
    IniSettingsStore store(file_);
    EXPECT_EQ(store.read("withheld", "data", "before", "-"), "1");
    EXPECT_EQ(store.read("withheld", "data", "after", "-"), "2");
    EXPECT_EQ(store.read("withheld", "data", "nul", "-"), "-");
    EXPECT_EQ(store.read("withheld", "data", "password", "-"), "-");
    ASSERT_EQ(warnings_.size(), 5u) << warnings();
    for (const int line : {1, 4, 5, 6, 7}) {
        EXPECT_THAT(warnings(), HasSubstr("line " + std::to_string(line) + ":"));
    }
    EXPECT_THAT(warnings(), ::testing::Not(HasSubstr("secret")));

    store.write("withheld", "data", "added", "3");
    EXPECT_EQ(contents(), broken + "added=3\n");
    EXPECT_EQ(store.read("withheld", "data", "added", "-"), "3");
    EXPECT_EQ(warnings_.size(), 5u) << warnings();
}

TEST_F(IniSettingsStoreTest, MissingFileReadsFallbackAndIsCreatedPrivate)
{
    const fs::path nested = folder_ / "config" / "corvel" / "corvel.conf";
    IniSettingsStore store(nested);
    EXPECT_EQ(store.read("withheld", "data", "key", "fallback"), "fallback");
    store.deleteKey("withheld", "data", "key");
    EXPECT_FALSE(fs::exists(folder_ / "config"));
    EXPECT_EQ(warnings(), "");

    store.write("withheld", "data", "password", "secret");
    EXPECT_EQ(mode(nested.parent_path()), 0700u);
    EXPECT_EQ(mode(nested), 0600u);

    // A scratch file left by a crash, longer and less private, must not show through.
    put("[withheld/data]\n");
    const fs::path scratch = folder_ / "corvel.conf.tmp";
    std::ofstream(scratch) << std::string(5000, '#');
    ASSERT_EQ(::chmod(scratch.c_str(), 0644), 0);
    IniSettingsStore(file_).write("withheld", "data", "password", "secret");
    EXPECT_EQ(contents(), "[withheld/data]\npassword=secret\n");
    EXPECT_EQ(mode(file_), 0600u);
}

TEST_F(IniSettingsStoreTest, DeleteRemovesEveryCopyAndAbsentKeyChangesNothing)
{
    put("[Withheld/data]\nkey=1\nkeep=yes\n[withheld/data]\nKEY=2\n[withheld/audio]\nkey=3\n");
    IniSettingsStore store(file_);
    store.deleteKey("withheld", "data", "key");
    EXPECT_EQ(store.read("withheld", "data", "key", "-"), "-");
    EXPECT_EQ(contents(), "[Withheld/data]\nkeep=yes\n[withheld/data]\n[withheld/audio]\nkey=3\n");

    struct stat before {};
    ASSERT_EQ(::stat(file_.c_str(), &before), 0);
    store.deleteKey("withheld", "data", "key");
    store.deleteKey("nobody", "data", "keep");
    struct stat after {};
    ASSERT_EQ(::stat(file_.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino) << "an absent key rewrote the file";
}

TEST_F(IniSettingsStoreTest, UnreadableFileIsNeverReplaced)
{
    // Root reads whatever the mode says, so a directory and a FIFO stand in for the file.
    for (const bool fifo : {false, true}) {
        SCOPED_TRACE(fifo ? "FIFO" : "directory");
        fs::remove_all(file_);
        if (fifo) ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
        else fs::create_directory(file_);
        warnings_.clear();
        // Opening a FIFO can block for good; better the test dies than hangs.
        ::alarm(5);
        IniSettingsStore store(file_);
        EXPECT_EQ(store.read("withheld", "data", "key", "fallback"), "fallback");
        EXPECT_EQ(warnings_.size(), 1u) << warnings();
        store.write("withheld", "data", "key", "value");
        store.deleteKey("withheld", "data", "key");
        ::alarm(0);
        EXPECT_EQ(warnings_.size(), 3u) << warnings();
        EXPECT_EQ(fs::status(file_).type(), fifo ? fs::file_type::fifo : fs::file_type::directory);
    }
}

TEST_F(IniSettingsStoreTest, FailedWriteKeepsTheOldFileAndNoScratch)
{
    put("[withheld/data]\nkey=old\n");
    // A file size limit fails the write part way with EFBIG, as a full disk would, and holds
    // for root too.
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
    rlimit small = saved;
    small.rlim_cur = 4096;
    ::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    IniSettingsStore(file_).write("withheld", "data", "key", std::string(10000, 'x'));
    ::setrlimit(RLIMIT_FSIZE, &saved);
    ::signal(SIGXFSZ, SIG_DFL);

    EXPECT_EQ(contents(), "[withheld/data]\nkey=old\n");
    EXPECT_FALSE(fs::exists(folder_ / "corvel.conf.tmp"));
    ASSERT_EQ(warnings_.size(), 1u) << warnings();
    EXPECT_THAT(warnings_[0], HasSubstr(std::strerror(EFBIG)));
}

TEST_F(IniSettingsStoreTest, KilledWriterLeavesTheOldFileOrTheNew)
{
    const std::string a(20000, 'a');
    const std::string b(20000, 'b');
    IniSettingsStore(file_).write("withheld", "data", "big", a);
    IniSettingsStore(file_).write("withheld", "data", "count", "0");
    for (int round = 0; round < 40; ++round) {
        const pid_t child = ::fork();
        ASSERT_NE(child, -1);
        if (child == 0) {
            IniSettingsStore writer(file_);
            for (int i = std::stoi(writer.read("withheld", "data", "count", "0")) + 1;; ++i) {
                writer.write("withheld", "data", "big", i % 2 ? b : a);
                writer.write("withheld", "data", "count", std::to_string(i));
            }
        }
        ::usleep(static_cast<useconds_t>(300 + round * 397 % 5000));
        ASSERT_EQ(::kill(child, SIGKILL), 0);
        ASSERT_EQ(::waitpid(child, nullptr, 0), child);

        warnings_.clear();
        const IniSettingsStore reader(file_);
        const std::string big = reader.read("withheld", "data", "big", "missing");
        EXPECT_TRUE(big == a || big == b) << "round " << round << ": " << big.size() << " bytes";
        EXPECT_NE(reader.read("withheld", "data", "count", "missing"), "missing");
        EXPECT_EQ(warnings(), "") << "round " << round;
        if (HasFailure()) return;
    }
}

} // namespace
} // namespace corvel
