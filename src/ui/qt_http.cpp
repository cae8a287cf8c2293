#include "ui/qt_http.h"

#include <memory>

#include <QCryptographicHash>
#include <QNetworkInformation>
#include <QNetworkReply>

namespace corvel {

bool QtHttp::online()
{
    if (!QNetworkInformation::instance() && !QNetworkInformation::loadDefaultBackend()) return true;
    return QNetworkInformation::instance()->reachability() != QNetworkInformation::Reachability::Disconnected;
}

void QtHttp::get(const std::string& url, std::size_t maxBytes, std::function<void(HttpReply)> done)
{
    QNetworkRequest request(QUrl(QString::fromStdString(url)));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setTransferTimeout(static_cast<int>(stall_.count()));
    QNetworkReply* reply = network_.get(request);
    struct Transfer {
        HttpReply result;
        QCryptographicHash digest{QCryptographicHash::Sha256};
    };
    auto transfer = std::make_shared<Transfer>();
    QObject::connect(reply, &QNetworkReply::readyRead, reply, [reply, transfer, maxBytes] {
        const QByteArray chunk = reply->readAll();
        if (transfer->result.body.size() + static_cast<std::size_t>(chunk.size()) > maxBytes) {
            transfer->result.error = "more than " + std::to_string(maxBytes) + " bytes";
            reply->abort();
            return;
        }
        transfer->result.body.append(chunk.constData(), static_cast<std::size_t>(chunk.size()));
        transfer->digest.addData(chunk);
    });
    QObject::connect(reply, &QNetworkReply::finished, reply, [reply, transfer, done = std::move(done)] {
        reply->deleteLater();
        HttpReply& result = transfer->result;
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (!result.error.empty()) {
            // Cut off for its size: the reason is already set.
        } else if (reply->error() != QNetworkReply::NoError) {
            result.error = reply->errorString().toStdString();
        } else if (length.isValid() && length.toULongLong() != result.body.size()) {
            result.error = "the body ended after " + std::to_string(result.body.size()) + " of " +
                           std::to_string(length.toULongLong()) + " bytes";
        } else {
            result.ok = true;
            result.sha256 = transfer->digest.result().toHex().toStdString();
        }
        if (!result.ok) result.body.clear();
        done(std::move(result));
    });
}

} // namespace corvel
