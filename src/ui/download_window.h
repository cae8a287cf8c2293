#pragma once

#include <QLabel>
#include <QWidget>

namespace corvel {

// frm_download: the progress of an update's download, a line of text beside a shape that the
// answer phone blinks while the download runs.
class DownloadWindow final : public QWidget {
    Q_OBJECT

public:
    DownloadWindow();
    void setText(const QString& text);
    void setShapeVisible(bool visible);
    // In the middle of the screen, above other windows.
    void showCentred();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QLabel* text_;
    QWidget* shape_;
};

} // namespace corvel
