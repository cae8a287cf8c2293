#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

namespace corvel::modem {

// Who holds a device's lock file: a process that is still running.
struct LockHolder {
    pid_t pid = 0;
    std::string program; // its command name, or "process <pid>" when it cannot be read
};

// A UUCP-style lock file, LCK..<device>, in the lock folder (/var/lock), as every program that
// opens serial ports on Linux keeps them: the holder's process id as ten ASCII digits and a
// newline. A lock whose process has gone is stale and taken over.
class UucpLock {
public:
    enum class Outcome {
        Taken,     // the lock is ours until release()
        Busy,      // a running process holds it: see holder()
        Unlocked,  // no lock could be made (the folder is missing or not ours to write): go on without
    };

    UucpLock() = default;
    UucpLock(const UucpLock&) = delete;
    UucpLock& operator=(const UucpLock&) = delete;
    ~UucpLock() { release(); }

    // The lock file's path for `device` (symbolic links followed, so that every name of one
    // port shares one lock).
    static std::filesystem::path pathFor(const std::filesystem::path& folder, const std::filesystem::path& device);
    // The running process holding the lock at `path`, if any.
    static std::optional<LockHolder> holderOf(const std::filesystem::path& path);

    Outcome acquire(const std::filesystem::path& folder, const std::filesystem::path& device);
    const std::optional<LockHolder>& holder() const { return holder_; }
    // Why the last acquire() could not make a lock.
    const std::string& problem() const { return problem_; }
    bool held() const { return !path_.empty(); }
    void release();

private:
    std::filesystem::path path_;
    std::optional<LockHolder> holder_;
    std::string problem_;
};

} // namespace corvel::modem
