#include "telephony/sip/stack_sockets.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvel::sip {
namespace {

using ::testing::UnorderedElementsAre;

struct Socket {
    Socket(int family, int type) : fd(::socket(family, type, 0)) {}
    ~Socket() { ::close(fd); }
    int fd;
};

// Binds to the loopback address of the socket's family; 0 takes any free port.
std::uint16_t bindLoopback(const Socket& socket, int family, std::uint16_t port)
{
    sockaddr_storage address{};
    socklen_t length = 0;
    if (family == AF_INET) {
        auto& v4 = reinterpret_cast<sockaddr_in&>(address);
        v4 = {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
        length = sizeof v4;
    } else {
        auto& v6 = reinterpret_cast<sockaddr_in6&>(address);
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(port);
        v6.sin6_addr = in6addr_loopback;
        length = sizeof v6;
    }
    if (::bind(socket.fd, reinterpret_cast<sockaddr*>(&address), length) != 0) return 0;
    ::getsockname(socket.fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(reinterpret_cast<sockaddr_in&>(address).sin_port); // the port sits alike in both
}

// The stack listens with UDP and TCP on one port, over IPv4 or IPv6; nothing else of the
// process's may be taken for its sockets.
TEST(StackSockets, EverySocketOnThePortIsFoundAndNoOther)
{
    const Socket udp(AF_INET, SOCK_DGRAM), tcp(AF_INET, SOCK_STREAM), udp6(AF_INET6, SOCK_DGRAM),
        elsewhere(AF_INET, SOCK_DGRAM);
    const std::uint16_t port = bindLoopback(udp, AF_INET, 0);
    ASSERT_NE(port, 0);
    ASSERT_EQ(bindLoopback(tcp, AF_INET, port), port);
    ASSERT_NE(bindLoopback(elsewhere, AF_INET, 0), 0);
    const bool ipv6 = bindLoopback(udp6, AF_INET6, port) == port; // a machine may have no IPv6

    if (ipv6) EXPECT_THAT(socketsOnPort(port), UnorderedElementsAre(udp.fd, tcp.fd, udp6.fd));
    else EXPECT_THAT(socketsOnPort(port), UnorderedElementsAre(udp.fd, tcp.fd));
}

TEST(StackSockets, ReadableOnlyWhileDataWaits)
{
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
    EXPECT_FALSE(readable(ends[1]));
    ASSERT_EQ(::write(ends[0], "x", 1), 1);
    EXPECT_TRUE(readable(ends[1]));
    char byte = 0;
    ASSERT_EQ(::read(ends[1], &byte, 1), 1);
    EXPECT_FALSE(readable(ends[1]));
    ::close(ends[0]);
    ::close(ends[1]);
}

} // namespace
} // namespace corvel::sip
