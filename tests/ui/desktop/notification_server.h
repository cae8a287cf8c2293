#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <vector>

namespace corvel::testing {

// The desktop's notification server, played by the test on its own session bus: it keeps
// what it is sent and fires the actions the test chooses.
class NotificationServer final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Notice {
        uint id;
        uint replaces;
        QString summary;
        QString body;
        QStringList actions;
        QVariantMap hints;
    };

    NotificationServer()
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        bus.registerObject("/org/freedesktop/Notifications", this,
                           QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals);
        bus.registerService("org.freedesktop.Notifications");
    }
    ~NotificationServer() override
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        bus.unregisterService("org.freedesktop.Notifications");
        bus.unregisterObject("/org/freedesktop/Notifications");
    }

    // The last notice with this summary, if any.
    const Notice* find(const QString& summary) const
    {
        for (auto notice = sent.rbegin(); notice != sent.rend(); ++notice)
            if (notice->summary == summary) return &*notice;
        return nullptr;
    }
    void invoke(uint id, const QString& action) { emit ActionInvoked(id, action); }

    std::vector<Notice> sent;
    std::vector<uint> closed;

public slots:
    uint Notify(const QString&, uint replaces, const QString&, const QString& summary, const QString& body,
                const QStringList& actions, const QVariantMap& hints, int)
    {
        const uint id = replaces != 0 ? replaces : ++lastId_;
        sent.push_back({id, replaces, summary, body, actions, hints});
        return id;
    }
    void CloseNotification(uint id) { closed.push_back(id); }
    QStringList GetCapabilities() { return {"actions", "body", "body-markup"}; }
    QString GetServerInformation(QString& vendor, QString& version, QString& protocolVersion)
    {
        vendor = "Corvel tests";
        version = "1";
        protocolVersion = "1.2";
        return "test notification server";
    }

signals:
    void ActionInvoked(uint id, const QString& action);
    void NotificationClosed(uint id, uint reason);

private:
    uint lastId_ = 0;
};

} // namespace corvel::testing
