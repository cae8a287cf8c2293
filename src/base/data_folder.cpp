#include "base/data_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <system_error>

#include "base/log.h"
#include "base/text.h"

namespace corvel {
namespace fs = std::filesystem;

namespace {

bool endsWithNoCase(std::string_view text, std::string_view suffix)
{
    return text.size() >= suffix.size() && text::lower(text.substr(text.size() - suffix.size())) == text::lower(suffix);
}

bool failed(std::string_view what, const fs::path& path, const std::error_code& error)
{
    log::warning("cannot " + std::string(what) + " " + path.string() + ": " + error.message());
    return false;
}

bool syncFile(const fs::path& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool synced = ::fsync(fd) == 0;
    ::close(fd);
    return synced;
}

} // namespace

DataFolder::DataFolder(fs::path root) : root_(std::move(root)) {}

fs::path DataFolder::defaultRoot(const fs::path& override)
{
    if (!override.empty()) return override;
    if (const char* data = std::getenv("XDG_DATA_HOME"); data && data[0] == '/') return fs::path(data) / "corvel";
    const char* home = std::getenv("HOME");
    return fs::path(home && *home ? home : ".") / ".local" / "share" / "corvel";
}

std::optional<fs::path> DataFolder::file(std::string_view name) const
{
    const bool plain = !name.empty() && name.size() <= maxNameBytes && name != "." && name != ".." &&
                       name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
    if (!plain) {
        log::warning("refused the file name \"" + std::string(text::cut(name, 80)) + "\": not a plain name");
        return std::nullopt;
    }
    const fs::path exact = root_ / fs::path(std::string(name));
    std::error_code error;
    if (fs::exists(exact, error)) return exact;
    // Names compare in lower case: "Withheld.gif" is the shipped "withheld.gif". Only the folder's
    // own entries are looked at, so a name still reaches nothing outside it.
    const std::string wanted = text::lower(name);
    std::optional<fs::path> found;
    for (fs::directory_iterator it(root_, error), end; !error && it != end; it.increment(error)) {
        const fs::path& entry = it->path();
        if (text::lower(entry.filename().string()) == wanted && (!found || entry < *found)) found = entry;
    }
    return found ? *found : exact;
}

bool DataFolder::exists(std::string_view name) const
{
    const auto path = file(name);
    std::error_code ignored;
    return path && fs::is_regular_file(*path, ignored);
}

std::optional<std::string> DataFolder::findFirst(std::string_view prefix, std::string_view suffix) const
{
    std::optional<std::string> first;
    std::error_code error;
    for (fs::directory_iterator it(root_, error), end; !error && it != end; it.increment(error)) {
        const std::string name = it->path().filename().string();
        if (name.size() < prefix.size() + suffix.size() || !text::lower(name).starts_with(text::lower(prefix)) ||
            !endsWithNoCase(name, suffix))
            continue;
        if (!first || name < *first) first = name;
    }
    return first;
}

std::vector<std::string> DataFolder::readLines(std::string_view name) const
{
    std::vector<std::string> lines;
    const auto path = file(name);
    if (!path) return lines;
    std::ifstream in(*path, std::ios::binary);
    const std::string all{std::istreambuf_iterator<char>(in), {}};
    std::string_view rest = all;
    while (!rest.empty()) {
        const auto end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        if (line.ends_with('\r')) line.remove_suffix(1);
        lines.emplace_back(line);
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
    return lines;
}

bool DataFolder::writeFile(std::string_view name, std::string_view content, bool append) const
{
    const auto path = file(name);
    if (!path) return false;
    const int fd = ::open(path->c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (append ? O_APPEND : O_TRUNC), 0644);
    if (fd < 0) return failed("write", *path, std::error_code(errno, std::generic_category()));
    int error = 0;
    while (!content.empty() && error == 0) {
        const ssize_t done = ::write(fd, content.data(), content.size());
        if (done > 0) content.remove_prefix(static_cast<std::size_t>(done));
        else if (done == 0) error = EIO;
        else if (errno != EINTR) error = errno;
    }
    if (error == 0 && ::fsync(fd) != 0) error = errno;
    if (::close(fd) != 0 && error == 0) error = errno;
    return error == 0 || failed("write", *path, std::error_code(error, std::generic_category()));
}

bool DataFolder::appendLine(std::string_view name, std::string_view line) const
{
    const auto path = file(name);
    if (!path) return false;
    const std::string record = std::string(line) + "\r\n";
    const int fd = ::open(path->c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return failed("append to", *path, std::error_code(errno, std::generic_category()));
    // One write: a crash leaves the line whole or not there.
    const ssize_t written = ::write(fd, record.data(), record.size());
    const int error = written < 0 ? errno : 0;
    ::close(fd);
    if (written != static_cast<ssize_t>(record.size()))
        return failed("append to", *path, std::error_code(error ? error : EIO, std::generic_category()));
    return true;
}

bool DataFolder::replaceWith(std::string_view scratch, std::string_view name) const
{
    const auto from = file(scratch);
    const auto to = file(name);
    if (!from || !to) return false;
    if (!syncFile(*from)) log::warning("could not flush " + from->string() + " before putting it in place");
    std::error_code error;
    fs::rename(*from, *to, error);
    return !error || failed("rename", *from, error);
}

bool DataFolder::rename(std::string_view from, std::string_view to) const
{
    const auto source = file(from);
    const auto target = file(to);
    if (!source || !target) return false;
    std::error_code error;
    if (fs::exists(*target, error)) {
        log::warning("cannot rename " + source->string() + ": " + target->string() + " is already there");
        return false;
    }
    fs::rename(*source, *target, error);
    return !error || failed("rename", *source, error);
}

bool DataFolder::remove(std::string_view name) const
{
    const auto path = file(name);
    if (!path) return false;
    std::error_code error;
    fs::remove(*path, error);
    return !error || failed("delete", *path, error);
}

bool DataFolder::rewriteLines(std::string_view name, const std::vector<std::string>& lines,
                              std::string_view scratch) const
{
    std::string content;
    for (const std::string& line : lines) (content += line) += "\r\n";
    const std::string scratchName = scratch.empty() ? std::string(name) + std::string(scratchSuffix) : std::string(scratch);
    return writeFile(scratchName, content, false) && replaceWith(scratchName, name);
}

int DataFolder::removeScratchFiles(const std::vector<std::string_view>& named) const
{
    int removed = 0;
    std::error_code error;
    for (fs::directory_iterator it(root_, error), end; !error && it != end; it.increment(error)) {
        const std::string name = it->path().filename().string();
        const bool scratch = name.ends_with(scratchSuffix) ||
                             std::any_of(named.begin(), named.end(), [&](std::string_view n) { return text::lower(name) == text::lower(n); });
        if (!scratch || !it->is_regular_file()) continue;
        std::error_code step;
        if (fs::remove(it->path(), step)) ++removed;
        else if (step) failed("delete", it->path(), step);
    }
    return removed;
}

bool DataFolder::copyIn(const fs::path& source, std::string_view name) const
{
    const auto target = file(name);
    if (!target) return false;
    const std::string scratch = std::string(text::cut(name, maxNameBytes - scratchSuffix.size())) + std::string(scratchSuffix);
    std::error_code error;
    fs::copy_file(source, root_ / scratch, fs::copy_options::overwrite_existing, error);
    if (error) {
        remove(scratch);
        return failed("copy", source, error);
    }
    return replaceWith(scratch, name);
}

void DataFolder::installShipped(const fs::path& shipped) const
{
    std::error_code error;
    fs::create_directories(root_, error);
    if (error) {
        failed("create the data folder", root_, error);
        return;
    }
    for (fs::recursive_directory_iterator it(shipped, error), end; !error && it != end; it.increment(error)) {
        const fs::path target = root_ / fs::relative(it->path(), shipped);
        std::error_code step;
        if (it->is_directory()) fs::create_directories(target, step);
        else if (!fs::exists(target, step)) {
            fs::copy_file(it->path(), target, step);
            // The shipped copies are read-only; the user's own are theirs to change.
            if (!step) fs::permissions(target, fs::perms::owner_write, fs::perm_options::add, step);
        }
        if (step) failed("install", target, step);
    }
    if (error) failed("read the shipped files in", shipped, error);
}

bool replaceFile(const fs::path& path, std::string_view content)
{
    const DataFolder folder(path.parent_path());
    const std::string name = path.filename().string();
    const std::string scratch = name + std::string(DataFolder::scratchSuffix);
    return folder.writeFile(scratch, content, false) && folder.replaceWith(scratch, name);
}

bool moveFile(const fs::path& from, const fs::path& to)
{
    std::error_code error;
    fs::rename(from, to, error);
    if (error == std::errc::cross_device_link) {
        error.clear();
        fs::copy_file(from, to, error);
        if (!error) fs::remove(from, error);
    }
    return !error || failed("move", from, error);
}

} // namespace corvel
