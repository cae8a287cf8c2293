#include "ui/qt_sound_output.h"

#include <QFileInfo>
#include <QUrl>

#include "base/log.h"

namespace corvel {

QtSoundOutput::QtSoundOutput()
{
    QObject::connect(&effect_, &QSoundEffect::statusChanged, [this] {
        if (effect_.status() == QSoundEffect::Error)
            log::warning("cannot play " + effect_.source().toLocalFile().toStdString() +
                         " on the speaker");
    });
}

void QtSoundOutput::playfile(const std::string& filename)
{
    effect_.stop();
    const QString path = QString::fromStdString(filename);
    if (!QFileInfo(path).isFile()) {
        log::warning("no sound file " + filename + " to play");
        return;
    }
    effect_.setSource(QUrl::fromLocalFile(path));
    effect_.play();
}

} // namespace corvel
