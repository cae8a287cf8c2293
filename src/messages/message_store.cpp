#include "messages/message_store.h"

#include "base/log.h"
#include "base/text.h"

namespace corvel {
namespace {

std::string prefix(MessageStore::Kind kind, int slot)
{
    return std::to_string(static_cast<int>(kind)) + "-" + std::to_string(slot) + "-";
}

} // namespace

MessageStore::MessageStore(const DataFolder& folder, const TwoDigitIndicator& indicator)
    : folder_(folder), indicator_(indicator)
{
}

std::optional<std::string> MessageStore::fileInSlot(Kind kind, int slot) const
{
    return folder_.findFirst(prefix(kind, slot), ".wav");
}

int MessageStore::count(Kind kind) const
{
    int counted = 0;
    while (counted < slotCount && fileInSlot(kind, counted + 1)) ++counted;
    return counted;
}

std::optional<int> MessageStore::freeSlot(Kind kind) const
{
    for (int slot = 1; slot <= slotCount; ++slot) {
        if (!fileInSlot(kind, slot)) return slot;
    }
    return std::nullopt;
}

std::string MessageStore::fileName(Kind kind, int slot, std::string_view caller)
{
    const std::string start = prefix(kind, slot);
    constexpr std::string_view extension = ".wav";
    // The caller's part is cut so that the whole name, while it is written too, fits the file system.
    const std::size_t room = DataFolder::maxNameBytes - DataFolder::scratchSuffix.size() - start.size() - extension.size();
    return start + text::fileNamePart(caller, room) +
           std::string(extension);
}

std::string MessageStore::callerOf(std::string_view fileName)
{
    const auto first = fileName.find('-');
    const auto second = first == std::string_view::npos ? first : fileName.find('-', first + 1);
    if (second == std::string_view::npos) return {};
    const std::string_view rest = fileName.substr(second + 1);
    return std::string(rest.substr(0, rest.find('.')));
}

int MessageStore::closeGap(Kind kind) const
{
    int next = 1, moved = 0;
    for (int slot = 1; slot <= slotCount; ++slot) {
        const auto message = fileInSlot(kind, slot);
        if (!message) continue;
        const std::string name = fileName(kind, next++, callerOf(*message));
        if (name != *message && folder_.rename(*message, name)) ++moved;
    }
    return moved;
}

std::string MessageStore::settle(Kind kind, int slot, const std::string& name) const
{
    const auto lower = freeSlot(kind);
    if (!lower || *lower >= slot) return name;
    const std::string settled = fileName(kind, *lower, callerOf(name));
    return folder_.rename(name, settled) ? settled : name;
}

void MessageStore::closeGaps() const
{
    for (const Kind kind : {Kind::New, Kind::Old}) {
        if (const int moved = closeGap(kind))
            log::warning("closed a gap among the " + std::string(kind == Kind::New ? "new" : "old") + " messages: " +
                         std::to_string(moved) + " moved down");
    }
}

void MessageStore::checkmessages() const
{
    const int fresh = count(Kind::New);
    const int heard = count(Kind::Old);
    indicator_.show("new1", "new2", fresh);
    if (heard < 10) {
        indicator_.show("old1", "old2", heard);
        return;
    }
    // Ten or more old messages show the digits of the NEW count; with fewer than ten new
    // ones the units picture has no digit, fails to load and stays as it was.
    const std::string digits = std::to_string(fresh);
    indicator_.showDigit("old1", digits.substr(0, 1));
    indicator_.showDigit("old2", digits.size() > 1 ? digits.substr(1, 1) : "");
}

} // namespace corvel
