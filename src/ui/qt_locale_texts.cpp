#include "ui/qt_locale_texts.h"

#include <QDate>
#include <QLocale>

namespace corvel {

std::string QtLocaleTexts::longDate(std::chrono::year_month_day date) const
{
    const QDate day(static_cast<int>(date.year()), static_cast<int>(static_cast<unsigned>(date.month())),
                    static_cast<int>(static_cast<unsigned>(date.day())));
    return QLocale::system().toString(day, QLocale::LongFormat).toStdString();
}

std::string QtLocaleTexts::amText() const
{
    const QString text = QLocale::system().amText();
    return text.isEmpty() ? "AM" : text.toStdString();
}

std::string QtLocaleTexts::pmText() const
{
    const QString text = QLocale::system().pmText();
    return text.isEmpty() ? "PM" : text.toStdString();
}

} // namespace corvel
