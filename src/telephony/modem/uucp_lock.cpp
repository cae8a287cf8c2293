#include "telephony/modem/uucp_lock.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <system_error>

#include "base/log.h"

namespace corvel::modem {
namespace {

std::optional<pid_t> readPid(const std::filesystem::path& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return std::nullopt;
    char buffer[32] = {};
    const ssize_t n = ::read(fd, buffer, sizeof buffer - 1);
    ::close(fd);
    if (n <= 0) return std::nullopt;
    // Old programs wrote the process id as a binary int of four bytes.
    if (n == 4 && (buffer[3] == 0 || buffer[0] < '0')) {
        int binary = 0;
        std::memcpy(&binary, buffer, 4);
        return binary > 0 ? std::optional<pid_t>(binary) : std::nullopt;
    }
    char* end = nullptr;
    const long pid = std::strtol(buffer, &end, 10);
    if (end == buffer || pid <= 0 || pid > 0x3FFFFFFF) return std::nullopt;
    return static_cast<pid_t>(pid);
}

bool running(pid_t pid) { return ::kill(pid, 0) == 0 || errno == EPERM; }

std::string programOf(pid_t pid)
{
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    if (comm && std::getline(comm, name) && !name.empty()) return name;
    return "process " + std::to_string(pid);
}

} // namespace

std::filesystem::path UucpLock::pathFor(const std::filesystem::path& folder, const std::filesystem::path& device)
{
    std::error_code error;
    std::filesystem::path real = std::filesystem::canonical(device, error);
    if (error) real = device;
    return folder / ("LCK.." + real.filename().string());
}

std::optional<LockHolder> UucpLock::holderOf(const std::filesystem::path& path)
{
    const auto pid = readPid(path);
    if (!pid || !running(*pid)) return std::nullopt;
    return LockHolder{*pid, programOf(*pid)};
}

UucpLock::Outcome UucpLock::acquire(const std::filesystem::path& folder, const std::filesystem::path& device)
{
    release();
    holder_.reset();
    problem_.clear();
    const std::filesystem::path path = pathFor(folder, device);

    // Written whole under a private name, then linked into place: the lock never exists half-written.
    const std::filesystem::path scratch = folder / ("LTMP." + std::to_string(::getpid()));
    const int fd = ::open(scratch.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) {
        problem_ = "cannot write in " + folder.string() + ": " + std::strerror(errno);
        return Outcome::Unlocked;
    }
    char text[16];
    const int length = std::snprintf(text, sizeof text, "%10d\n", static_cast<int>(::getpid()));
    const bool written = ::write(fd, text, static_cast<std::size_t>(length)) == length;
    ::close(fd);
    if (!written) {
        problem_ = "cannot write " + scratch.string() + ": " + std::strerror(errno);
        ::unlink(scratch.c_str());
        return Outcome::Unlocked;
    }

    for (int attempt = 0; attempt < 2; ++attempt) {
        if (::link(scratch.c_str(), path.c_str()) == 0) {
            ::unlink(scratch.c_str());
            path_ = path;
            return Outcome::Taken;
        }
        if (errno != EEXIST) {
            problem_ = "cannot make " + path.string() + ": " + std::strerror(errno);
            ::unlink(scratch.c_str());
            return Outcome::Unlocked;
        }
        if (auto holder = holderOf(path)) {
            holder_ = std::move(holder);
            ::unlink(scratch.c_str());
            return Outcome::Busy;
        }
        log::info("removing the stale lock " + path.string());
        ::unlink(path.c_str());
    }
    problem_ = "the lock " + path.string() + " keeps coming back";
    ::unlink(scratch.c_str());
    return Outcome::Unlocked;
}

void UucpLock::release()
{
    if (path_.empty()) return;
    // Only a lock that is still ours: never another program's that replaced a stale one.
    if (readPid(path_) == ::getpid()) ::unlink(path_.c_str());
    path_.clear();
}

} // namespace corvel::modem
