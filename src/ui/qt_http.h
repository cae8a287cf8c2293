#pragma once

#include <chrono>

#include <QNetworkAccessManager>

#include "base/http.h"

namespace corvel {

// Qt Network, refusing to be redirected from https to plain http.
class QtHttp final : public Http {
public:
    // A transfer that receives nothing for `stall` fails.
    explicit QtHttp(std::chrono::milliseconds stall = std::chrono::seconds(30)) : stall_(stall) {}
    bool online() override;
    void get(const std::string& url, std::size_t maxBytes, std::function<void(HttpReply)> done) override;

private:
    QNetworkAccessManager network_;
    std::chrono::milliseconds stall_;
};

} // namespace corvel
