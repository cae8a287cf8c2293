#include "ui/qt_microphone.h"

#include <cstring>

#include <QAudioDevice>
#include <QMediaDevices>

#include "base/log.h"

namespace corvel {

void QtMicrophone::start()
{
    stop();
    const QAudioDevice device = QMediaDevices::defaultAudioInput();
    QAudioFormat format;
    format.setSampleRate(8000);
    format.setChannelCount(1);
    format.setSampleFormat(QAudioFormat::Int16);
    if (device.isNull() || !device.isFormatSupported(format)) {
        log::warning("no microphone that records 8 kHz mono: the message will be silence");
        return;
    }
    heard_.setData({});
    heard_.open(QIODevice::WriteOnly);
    source_ = std::make_unique<QAudioSource>(device, format);
    source_->start(&heard_);
}

std::vector<std::int16_t> QtMicrophone::stop()
{
    if (!source_) return {};
    source_->stop();
    source_.reset();
    heard_.close();
    const QByteArray& bytes = heard_.data();
    std::vector<std::int16_t> samples(static_cast<std::size_t>(bytes.size()) / sizeof(std::int16_t));
    std::memcpy(samples.data(), bytes.constData(), samples.size() * sizeof(std::int16_t));
    return samples;
}

} // namespace corvel
