#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace corvel {

struct HttpReply {
    bool ok = false;
    std::string body;
    std::string sha256; // the body's SHA-256 digest in lower-case hex
    std::string error;  // why it failed, for the log
};

// Fetching from the web, one request at a time, on the event loop.
class Http {
public:
    virtual ~Http() = default;
    // Whether the computer says it is connected; true when it cannot tell.
    virtual bool online() = 0;
    // Fetches `url`, calling `done` from the event loop. A body over `maxBytes`, a transfer that
    // stalls, a redirect from https to plain http or a short body fail the request.
    virtual void get(const std::string& url, std::size_t maxBytes, std::function<void(HttpReply)> done) = 0;
};

} // namespace corvel
