#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvel {

// The folder that holds Corvel's data files: call log, directory, picture list, pictures,
// voice messages and prompts. Names handed in may come from a caller, so a name that is not
// one plain file name (it holds "/", is "." or "..", or is too long) reaches no file at all.
class DataFolder {
public:
    static constexpr std::size_t maxNameBytes = 255;
    // Added to a file's name while it is written, until it is complete; a name must leave room for it.
    static constexpr std::string_view scratchSuffix = ".part";

    explicit DataFolder(std::filesystem::path root);

    // `override` when given (the --data-dir option), else $XDG_DATA_HOME/corvel, else
    // ~/.local/share/corvel.
    static std::filesystem::path defaultRoot(const std::filesystem::path& override = {});

    const std::filesystem::path& root() const { return root_; }

    // The path of the file `name` here, or nothing when `name` is no plain file name. Names
    // compare in lower case: a file of the same name in other letters is that file.
    std::optional<std::filesystem::path> file(std::string_view name) const;
    bool exists(std::string_view name) const;

    // The first name, in name order, of the files that start with `prefix` and end with
    // `suffix` (compared without regard to case), as a search for "prefix*suffix" finds them.
    std::optional<std::string> findFirst(std::string_view prefix, std::string_view suffix) const;

    // The lines of a text file without their line ends; none when it is missing.
    std::vector<std::string> readLines(std::string_view name) const;
    // Adds one line, ended by CR LF, in a single write.
    bool appendLine(std::string_view name, std::string_view line) const;
    // Writes `content` to `name` (after what it holds when `append`) and flushes it to disk;
    // false, logged, when any of it could not be written.
    bool writeFile(std::string_view name, std::string_view content, bool append) const;
    // Puts `scratch` in the place of `name` in one rename, after it has reached the disk.
    bool replaceWith(std::string_view scratch, std::string_view name) const;
    // Rewrites a text file as `lines`, each ended by CR LF: written whole to `scratch` (or
    // "<name>.part") first, then put in the old file's place, so a crash leaves the old file or
    // the new, never none.
    bool rewriteLines(std::string_view name, const std::vector<std::string>& lines, std::string_view scratch = {}) const;
    // Renames a file; never over another one, which would be lost.
    bool rename(std::string_view from, std::string_view to) const;
    bool remove(std::string_view name) const;
    // Copies a file into the folder through a scratch file, so that `name` is never half there.
    bool copyIn(const std::filesystem::path& source, std::string_view name) const;

    // Deletes the scratch files ("*.part", and those `named`) that writes cut short by a crash
    // left; how many. Only while no write can be going on: at start-up.
    int removeScratchFiles(const std::vector<std::string_view>& named) const;

    // Copies the files shipped with Corvel that are missing here; never over a user's file.
    void installShipped(const std::filesystem::path& shipped) const;

private:
    std::filesystem::path root_;
};

// Writes `content` to `path` through a flushed scratch file beside it and one rename.
bool replaceFile(const std::filesystem::path& path, std::string_view content);

// Moves a file, copying it when it must cross to another file system.
bool moveFile(const std::filesystem::path& from, const std::filesystem::path& to);

} // namespace corvel
