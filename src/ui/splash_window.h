#pragma once

#include <chrono>
#include <functional>

#include <QWidget>

namespace corvel {

// frm_splash: the product name and version in a small frameless window while Corvel starts.
class SplashWindow final : public QWidget {
    Q_OBJECT

public:
    SplashWindow();

    // Shows a splash in the middle of the screen for `duration`, then closes it and runs
    // `then`. The splash deletes itself; the caller keeps nothing.
    static void showFor(std::chrono::milliseconds duration, std::function<void()> then = {});

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace corvel
