#pragma once

#include <QDBusContext>
#include <QObject>
#include <QString>

#include "telephony/testline/test_line.h"

namespace corvel {

// The test line's caller on the session bus, for scripts and tests that play the caller
// without the test-line window: ringing with a caller ID, keys, hanging up. Its interface is
// org.corvel.Corvel.TestLine.xml.
class TestLineBus final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_PROPERTY(QString State READ state)
    Q_PROPERTY(bool HandedOver READ handedOver)

public:
    static constexpr const char* objectPath = "/org/corvel/Corvel/TestLine";

    explicit TestLineBus(TestLine& line);

    // Puts the object beside Corvel's own on the session bus.
    bool publish();

    QString state() const;
    bool handedOver() const { return line_.handedOver(); }

public slots:
    void Ring(const QString& identity, const QString& number, const QString& name);
    void PressKeys(const QString& keys);
    void HangUp();

private:
    TestLine& line_;
};

} // namespace corvel
