// libFuzzer target for the block list as Corvel finds it on disk: whatever "blocklist.txt"
// holds, reading it neither crashes nor yields an entry that could block every caller or
// could not be written back; every entry read is written back as a line that reads as the
// same entry, so adding or removing another one never changes it; and every entry blocks
// the callers it names.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "base/data_folder.h"
#include "base/log.h"
#include "base/text.h"
#include "records/block_list.h"

namespace {

using namespace corvel;

// What a line of the file must never hold once read: nothing at all (an empty prefix would
// block everyone), a "*" or a separator inside the number, or text that breaks a line.
bool sound(const BlockList::Entry& entry)
{
    const std::string& number = entry.number;
    if (number.empty() || number.size() > BlockList::maxNumberBytes) return false;
    if (number.find_first_of("*-, \t\r\n") != std::string::npos) return false;
    if (text::fromLine(number, BlockList::maxNumberBytes) != number) return false;
    if (entry.note.size() > BlockList::maxNoteBytes) return false;
    return text::fromLine(entry.note, BlockList::maxNoteBytes) == entry.note;
}

// A caller this entry blocks: the number itself, or one that starts with the prefix.
std::string callerFor(const BlockList::Entry& entry) { return entry.prefix ? entry.number + "5" : entry.number; }

struct Folder {
    Folder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "corvel-blocklist-fuzz-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) std::abort();
        root = pattern;
        // The warnings for lines passed over are expected by the thousand.
        log::setSink([](log::Level, std::string_view) {});
    }
    ~Folder() { std::filesystem::remove_all(root); }
    std::filesystem::path root;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Folder folder;
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    // One line as the user typed it (the add and remove commands take that too).
    if (const auto entry = BlockList::parse(input.substr(0, input.find('\n')))) {
        if (!sound(*entry)) __builtin_trap();
        if (BlockList::parse(BlockList::format(*entry)) != entry) __builtin_trap();
    }

    // The whole file, read as Corvel reads it at each call.
    std::ofstream(folder.root / BlockList::fileName, std::ios::binary | std::ios::trunc) << input;
    const DataFolder files(folder.root);
    const BlockList list(files);
    for (const BlockList::Entry& entry : list.entries()) {
        if (!sound(entry)) __builtin_trap();
        if (BlockList::parse(BlockList::format(entry)) != entry) __builtin_trap();
        if (!list.blocks(callerFor(entry))) __builtin_trap();
    }
    // Nobody is blocked for withholding or lacking a number.
    if (list.blocks("") || list.blocks("-- -")) __builtin_trap();
    return 0;
}
