#include "telephony/sip/stack_sockets.h"

#include <dirent.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <charconv>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

namespace corvel::sip {
namespace {

std::optional<std::uint16_t> localPort(int fd)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) return std::nullopt;
    if (address.ss_family == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    if (address.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    return std::nullopt;
}

} // namespace

std::vector<int> socketsOnPort(std::uint16_t port)
{
    std::vector<int> sockets;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir("/proc/self/fd"), ::closedir);
    if (!folder) return sockets;
    const int own = ::dirfd(folder.get());
    while (const dirent* entry = ::readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        int fd = -1;
        if (std::from_chars(name.data(), name.data() + name.size(), fd).ec != std::errc() || fd == own) continue;
        struct stat status {};
        if (::fstat(fd, &status) != 0 || !S_ISSOCK(status.st_mode)) continue;
        if (localPort(fd) == port) sockets.push_back(fd);
    }
    return sockets;
}

bool readable(int fd)
{
    pollfd waiting{fd, POLLIN, 0};
    return ::poll(&waiting, 1, 0) == 1 && (waiting.revents & POLLIN) != 0;
}

} // namespace corvel::sip
