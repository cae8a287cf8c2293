#pragma once

#include <cstdint>
#include <vector>

namespace corvel::sip {

// This process's sockets bound to `port`, UDP or TCP, IPv4 or IPv6: the SIP stack's listening
// sockets and the connections accepted on them. liblinphone does not say which descriptors it
// waits on, so they are looked up in /proc/self/fd; a scan costs about 0.1 ms.
std::vector<int> socketsOnPort(std::uint16_t port);

// Whether `fd` has data to read now.
bool readable(int fd);

} // namespace corvel::sip
