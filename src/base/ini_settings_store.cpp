#include "base/ini_settings_store.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "base/log.h"
#include "base/utf8.h"

namespace corvel {
namespace {

namespace fs = std::filesystem;

constexpr auto npos = std::string_view::npos;

bool isBlank(char c) { return c == ' ' || c == '\t'; }

bool isControl(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

std::string_view trim(std::string_view text)
{
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

char lowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameName(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lowerAscii(x) == lowerAscii(y); });
}

std::string sectionName(std::string_view application, std::string_view section)
{
    return std::string(application) + '/' + std::string(section);
}

// What is wrong with the bytes of `text` as a line of the file, or empty when nothing is.
std::string_view byteProblem(std::string_view text, bool allowTabs)
{
    for (std::size_t i = 0; i < text.size();) {
        if (static_cast<unsigned char>(text[i]) >= 0x80) {
            const std::size_t length = utf8At(text, i).length;
            if (length == 0) return "bytes that are not UTF-8";
            i += length;
            continue;
        }
        if (text[i] == '\0') return "a NUL byte";
        if (isControl(text[i]) && !(allowTabs && text[i] == '\t')) return "a control character";
        ++i;
    }
    return {};
}

// Whether `value` reads back unchanged when written after "=" without quotes.
bool bareValueSafe(std::string_view value)
{
    if (!value.empty() && (isBlank(value.front()) || isBlank(value.back()))) return false;
    return !value.starts_with('"') && byteProblem(value, false).empty();
}

// A bare key must also not end at an "=" nor look like a section, a comment or a quote.
bool bareKeySafe(std::string_view key)
{
    return !key.empty() && key.find('=') == npos &&
           std::string_view("[;#").find(key.front()) == npos && bareValueSafe(key);
}

std::string quoted(std::string_view text)
{
    static constexpr char hex[] = "0123456789abcdef";
    std::string out = "\"";
    for (std::size_t i = 0; i < text.size();) {
        const char c = text[i];
        const auto byte = static_cast<unsigned char>(c);
        std::size_t length = 1;
        if (c == '\\' || c == '"') { out += '\\'; out += c; }
        else if (c == '\n') out += "\\n";
        else if (c == '\r') out += "\\r";
        else if (c == '\t') out += "\\t";
        else if (byte >= 0x80 && (length = utf8At(text, i).length) != 0) out.append(text.substr(i, length));
        else if (byte < 0x80 && !isControl(c)) out += c;
        else {
            // Control bytes and stray bytes that are not UTF-8 are spelled out, so that the
            // file stays valid UTF-8 text on one line per entry.
            out += "\\x";
            out += hex[byte >> 4];
            out += hex[byte & 0xF];
            length = 1;
        }
        i += length;
    }
    out += '"';
    return out;
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    c = lowerAscii(c);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

struct Unquoted {
    std::string text;
    std::size_t end = 0; // just past the closing quote
    std::string_view problem;
};

// Reads the quoted string that `text` starts with.
Unquoted unquote(std::string_view text)
{
    Unquoted result;
    for (std::size_t i = 1; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            result.end = i + 1;
            return result;
        }
        if (c != '\\') {
            result.text += c;
            continue;
        }
        if (++i == text.size()) break;
        switch (text[i]) {
        case '\\': result.text += '\\'; break;
        case '"': result.text += '"'; break;
        case 'n': result.text += '\n'; break;
        case 'r': result.text += '\r'; break;
        case 't': result.text += '\t'; break;
        case 'x': {
            const int high = i + 1 < text.size() ? hexDigit(text[i + 1]) : -1;
            const int low = i + 2 < text.size() ? hexDigit(text[i + 2]) : -1;
            if (high < 0 || low < 0) {
                result.problem = "a \\x escape without two hex digits";
                return result;
            }
            result.text += static_cast<char>(high * 16 + low);
            i += 2;
            break;
        }
        default: result.problem = "an unknown backslash escape"; return result;
        }
    }
    result.problem = "a quote that is never closed";
    return result;
}

std::string formatEntry(std::string_view key, std::string_view value)
{
    std::string line = bareKeySafe(key) ? std::string(key) : quoted(key);
    line += '=';
    line += bareValueSafe(value) ? std::string(value) : quoted(value);
    line += '\n';
    return line;
}

enum class Kind { Blank, Comment, Section, Entry, Invalid };

struct Line {
    std::string_view raw; // as on disk, line end included
    Kind kind = Kind::Blank;
    std::string name;     // of the section, or the entry's key
    std::string value;
    std::string_view problem;
};

Line parseLine(std::string_view raw)
{
    Line line;
    line.raw = raw;
    const auto invalid = [&line](std::string_view problem) {
        line.kind = Kind::Invalid;
        line.problem = problem;
        return line;
    };
    std::string_view text = raw;
    if (text.ends_with('\n')) text.remove_suffix(text.ends_with("\r\n") ? 2 : 1);
    if (const auto problem = byteProblem(text, true); !problem.empty()) return invalid(problem);
    text = trim(text);
    if (text.empty()) return line;
    if (text.front() == ';' || text.front() == '#') {
        line.kind = Kind::Comment;
        return line;
    }
    if (text.front() == '[') {
        if (!text.ends_with(']')) return invalid("a section name without its closing ']'");
        line.kind = Kind::Section;
        line.name = trim(text.substr(1, text.size() - 2));
        return line;
    }

    std::string_view rest;
    if (text.front() == '"') {
        Unquoted key = unquote(text);
        if (!key.problem.empty()) return invalid(key.problem);
        rest = trim(text.substr(key.end));
        if (!rest.starts_with('=')) return invalid("no '=' after the quoted key");
        line.name = std::move(key.text);
        rest.remove_prefix(1);
    } else {
        const auto equals = text.find('=');
        if (equals == npos) return invalid("no '='");
        line.name = trim(text.substr(0, equals));
        rest = text.substr(equals + 1);
    }
    rest = trim(rest);
    if (rest.starts_with('"')) {
        Unquoted value = unquote(rest);
        if (!value.problem.empty()) return invalid(value.problem);
        if (value.end != rest.size()) return invalid("text after the closing quote");
        line.value = std::move(value.text);
    } else {
        line.value = rest;
    }
    line.kind = Kind::Entry;
    return line;
}

struct Parsed {
    std::vector<Line> lines;
    std::vector<std::string> problems;
};

// The problems name line numbers only: a broken line may hold a password.
Parsed parse(std::string_view text, const fs::path& file)
{
    Parsed parsed;
    bool inSection = false;
    while (!text.empty()) {
        const auto end = text.find('\n');
        const auto length = end == npos ? text.size() : end + 1;
        Line line = parseLine(text.substr(0, length));
        text.remove_prefix(length);
        const std::string where =
            file.string() + " line " + std::to_string(parsed.lines.size() + 1) + ": ";
        if (line.kind == Kind::Invalid) {
            parsed.problems.push_back(where + "ignoring a line with " + std::string(line.problem) +
                                      "; it is kept in the file as it is");
        } else if (line.kind == Kind::Entry && !inSection) {
            parsed.problems.push_back(where + "ignoring a setting that stands before any section");
        }
        if (line.kind == Kind::Section) inSection = true;
        parsed.lines.push_back(std::move(line));
    }
    return parsed;
}

// Logs `problems` unless they are the very ones logged last time; reads are frequent and the
// same broken line would otherwise fill the log.
void report(const std::vector<std::string>& problems, std::size_t& reportedDigest)
{
    std::string all;
    for (const auto& problem : problems) all += problem + '\n';
    const std::size_t digest = std::hash<std::string>{}(all);
    if (digest == reportedDigest) return;
    reportedDigest = digest;
    for (const auto& problem : problems) log::warning(problem);
}

std::string errorText(int error) { return std::strerror(error); }

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor()
    {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

struct FileText {
    bool exists = false;
    std::string text;
    std::string failure; // why a file that is there could not be read
};

FileText loadFile(const fs::path& file)
{
    FileText result;
    // Non-blocking, so that a FIFO in the file's place cannot hang the program.
    const Descriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (fd.get() < 0) {
        if (errno == ENOENT) return result;
        result.exists = true;
        result.failure = errorText(errno);
        return result;
    }
    result.exists = true;
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) {
        result.failure = errorText(errno);
        return result;
    }
    if (!S_ISREG(info.st_mode)) {
        result.failure = S_ISDIR(info.st_mode) ? errorText(EISDIR) : "not a regular file";
        return result;
    }
    char buffer[16384];
    for (;;) {
        const ssize_t got = ::read(fd.get(), buffer, sizeof buffer);
        if (got == 0) break;
        if (got < 0) {
            if (errno == EINTR) continue;
            result.failure = errorText(errno);
            result.text.clear();
            break;
        }
        result.text.append(buffer, static_cast<std::size_t>(got));
    }
    return result;
}

// Creates the missing folders of `folder`, private to the user; the cause on failure.
std::string makeFolders(const fs::path& folder)
{
    fs::path prefix;
    for (const auto& part : folder) {
        prefix /= part;
        struct stat info {};
        if (::stat(prefix.c_str(), &info) == 0) continue;
        if (errno != ENOENT || (::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST)) {
            return prefix.string() + ": " + errorText(errno);
        }
    }
    return {};
}

// 0, or the errno of the failure; carries on after short writes and interruptions.
int writeAll(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t done = ::write(fd, text.data(), text.size());
        if (done < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        if (done == 0) return EIO;
        text.remove_prefix(static_cast<std::size_t>(done));
    }
    return 0;
}

// Puts `text` in the place of `file`: the whole text goes to a scratch file in the same folder
// and reaches the disk before a rename swaps it in, so that the file is always either the old
// one or the new one. Returns the cause of a failure; the old file is then untouched.
std::string replaceFile(const fs::path& file, std::string_view text)
{
    fs::path scratch = file;
    scratch += ".tmp";
    // O_NOFOLLOW: a link planted at the scratch name must not redirect the write.
    const int fd =
        ::open(scratch.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) return scratch.string() + ": " + errorText(errno);
    // A scratch file left behind by a crash keeps its old mode unless told otherwise.
    int error = ::fchmod(fd, 0600) == 0 ? 0 : errno;
    if (error == 0) error = writeAll(fd, text);
    if (error == 0 && ::fsync(fd) != 0) error = errno;
    if (::close(fd) != 0 && error == 0) error = errno;
    if (error == 0 && ::rename(scratch.c_str(), file.c_str()) != 0) error = errno;
    if (error == 0) return {};
    ::unlink(scratch.c_str());
    return errorText(error);
}

using Edit = std::function<std::optional<std::string>(const Parsed& parsed, std::string_view text)>;

// Reads the file afresh, lets `edit` work out the new text (nullopt: nothing to change) and
// puts it in place. `action` says what was asked, for the log.
void change(const fs::path& file, std::size_t& reportedDigest, const std::string& action,
            bool createFolder, const Edit& edit)
{
    const fs::path folder = file.has_parent_path() ? file.parent_path() : fs::path(".");
    if (createFolder) {
        if (const auto failure = makeFolders(folder); !failure.empty()) {
            log::warning("could not " + action + ": cannot create the folder " + failure);
            return;
        }
    }
    const Descriptor folderFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folderFd.get() < 0) {
        if (errno != ENOENT || createFolder) {
            log::warning("could not " + action + ": " + folder.string() + ": " + errorText(errno));
        }
        return;
    }
    // A second Corvel on the same folder must neither interleave its read and rewrite with
    // ours nor share the scratch file. The lock goes when the descriptor closes, also when
    // the process dies; where locks are not supported we carry on without.
    while (::flock(folderFd.get(), LOCK_EX) != 0 && errno == EINTR) {
    }

    const FileText current = loadFile(file);
    if (!current.failure.empty()) {
        // Rewriting a file we cannot read would throw away the user's settings.
        log::warning("could not " + action + ": " + file.string() + " cannot be read (" +
                     current.failure + "); leaving it as it is");
        return;
    }
    if (!current.exists && !createFolder) return;
    const Parsed parsed = parse(current.text, file);
    report(parsed.problems, reportedDigest);
    const std::optional<std::string> next = edit(parsed, current.text);
    if (!next || *next == current.text) return;

    if (const auto failure = replaceFile(file, *next); !failure.empty()) {
        log::warning("could not " + action + " in " + file.string() + ": " + failure +
                     "; the file is unchanged");
        return;
    }
    // The rename is only on disk once the folder is.
    if (::fsync(folderFd.get()) != 0) {
        log::warning("saved " + file.string() + ", but the folder could not be flushed (" +
                     errorText(errno) + "); a power cut may undo the change");
    }
}

} // namespace

IniSettingsStore::IniSettingsStore(std::filesystem::path file)
    : file_(std::move(file)), reportedDigest_(std::hash<std::string>{}(std::string()))
{
}

std::filesystem::path IniSettingsStore::defaultPath(const std::filesystem::path& configDir)
{
    if (!configDir.empty()) return configDir / fileName;
    // A relative XDG_CONFIG_HOME is ignored, as the freedesktop.org rules ask.
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && config[0] == '/') {
        return fs::path(config) / "corvel" / fileName;
    }
    const char* home = std::getenv("HOME");
    if (!home || !*home) {
        if (const passwd* user = ::getpwuid(::getuid())) home = user->pw_dir;
    }
    // Without any home folder the settings go beside the working folder rather than nowhere.
    if (!home || !*home) home = ".";
    return fs::path(home) / ".config" / "corvel" / fileName;
}

std::string IniSettingsStore::read(std::string_view application, std::string_view section,
                                   std::string_view key, std::string_view fallback) const
{
    const FileText file = loadFile(file_);
    if (!file.failure.empty()) {
        report({"cannot read the settings in " + file_.string() + " (" + file.failure +
                "); using the defaults"},
               reportedDigest_);
        return std::string(fallback);
    }
    const Parsed parsed = parse(file.text, file_);
    report(parsed.problems, reportedDigest_);

    const std::string wanted = sectionName(application, section);
    bool inWanted = false;
    for (const Line& line : parsed.lines) {
        if (line.kind == Kind::Section) inWanted = sameName(line.name, wanted);
        else if (inWanted && line.kind == Kind::Entry && sameName(line.name, key)) return line.value;
    }
    return std::string(fallback);
}

void IniSettingsStore::write(std::string_view application, std::string_view section,
                             std::string_view key, std::string_view value)
{
    const std::string wanted = sectionName(application, section);
    const std::string action = "save \"" + std::string(key) + "\"";
    // Section names come from Corvel itself, never from outside; one that could not be read
    // back from a header line is a bug to report, not to write.
    if (trim(wanted) != wanted || !byteProblem(wanted, false).empty()) {
        log::warning("could not " + action + ": the section name \"" + wanted +
                     "\" cannot stand in the file");
        return;
    }
    const std::string entry = formatEntry(key, value);

    change(file_, reportedDigest_, action, true,
           [&](const Parsed& parsed, std::string_view text) -> std::optional<std::string> {
        const auto& lines = parsed.lines;
        std::size_t found = npos;   // the first entry for the key
        std::size_t first = npos;   // the header of the first wanted section
        std::size_t after = npos;   // its last entry, or the header itself
        std::size_t current = npos; // the header of the wanted section being walked
        for (std::size_t i = 0; i < lines.size() && found == npos; ++i) {
            const Line& line = lines[i];
            if (line.kind == Kind::Section) {
                current = sameName(line.name, wanted) ? i : npos;
                if (current != npos && first == npos) first = after = i;
            } else if (current != npos && line.kind == Kind::Entry) {
                if (sameName(line.name, key)) found = i;
                else if (current == first) after = i;
            }
        }

        std::string next;
        if (first == npos) {
            // A new section at the end, set off by a blank line.
            next = text;
            if (!next.empty() && !next.ends_with('\n')) next += '\n';
            if (!lines.empty() && lines.back().kind != Kind::Blank) next += '\n';
            return next + '[' + wanted + "]\n" + entry;
        }
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (i == found) {
                next += entry;
                continue;
            }
            next += lines[i].raw;
            if (i == after && found == npos) {
                if (!next.ends_with('\n')) next += '\n';
                next += entry;
            }
        }
        return next;
    });
}

void IniSettingsStore::deleteKey(std::string_view application, std::string_view section,
                                 std::string_view key)
{
    const std::string wanted = sectionName(application, section);
    change(file_, reportedDigest_, "delete \"" + std::string(key) + "\"", false,
           [&](const Parsed& parsed, std::string_view) -> std::optional<std::string> {
        // Every copy goes: a later duplicate would otherwise surface as the value.
        std::string next;
        bool removed = false;
        bool inWanted = false;
        for (const Line& line : parsed.lines) {
            if (line.kind == Kind::Section) inWanted = sameName(line.name, wanted);
            if (inWanted && line.kind == Kind::Entry && sameName(line.name, key)) {
                removed = true;
                continue;
            }
            next += line.raw;
        }
        if (!removed) return std::nullopt;
        return next;
    });
}

} // namespace corvel
