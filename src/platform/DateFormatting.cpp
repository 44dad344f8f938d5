#include "DateFormatting.h"

#include "platform/TextFormatting.h"

#include <QDateTime>
#include <QLocale>
#include <QRegularExpression>

#include <array>
#include <cmath>

namespace nimbrel {

namespace {

// The locale's long date without its weekday and with short month names: "MMM d, yyyy".
QString abbreviatedDateFormat(const QLocale& locale)
{
    QString format = locale.dateFormat(QLocale::LongFormat);
    static const QRegularExpression weekday(QStringLiteral("d{4}[,.]?\\s*"));
    format.remove(weekday);
    format.replace(QStringLiteral("MMMM"), QStringLiteral("MMM"));
    return format.trimmed();
}

// The locale's long time without its time zone: "h:mm:ss AP".
QString standardTimeFormat(const QLocale& locale)
{
    QString format = locale.timeFormat(QLocale::LongFormat);
    static const QRegularExpression zone(QStringLiteral("\\s*\\bt+\\b"));
    format.remove(zone);
    return format.trimmed();
}

// The locale's short time, hours and minutes only: "h:mm AP". Some locales list seconds in it.
QString shortTimeFormat(const QLocale& locale)
{
    QString format = locale.timeFormat(QLocale::ShortFormat);
    static const QRegularExpression seconds(QStringLiteral("[:.]s+"));
    format.remove(seconds);
    return format.trimmed();
}

QString dateAndTime(double date, const QString& timeFormat)
{
    const QLocale locale;
    const QDateTime when =
        QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(std::llround(date * 1000)));
    return locale.toString(when.date(), abbreviatedDateFormat(locale)) + QStringLiteral(", ") +
           locale.toString(when.time(), timeFormat);
}

QString countOf(double count, const char* unit)
{
    QString text = formatLocaleNumber(count) + QLatin1Char(' ') + QLatin1String(unit);
    if (count != 1)
        text += QLatin1Char('s');
    return text;
}

} // namespace

QString formatAbbreviatedDateTime(double date)
{
    return dateAndTime(date, standardTimeFormat(QLocale()));
}

QString formatAbbreviatedDateShortTime(double date)
{
    return dateAndTime(date, shortTimeFormat(QLocale()));
}

QString formatRelativeDuration(double seconds)
{
    struct Unit {
        double seconds;
        const char* name;
    };
    static constexpr std::array<Unit, 4> units{
        {{86400, "day"}, {3600, "hour"}, {60, "minute"}, {1, "second"}}};
    double left = std::isfinite(seconds) ? std::floor(std::max(0.0, seconds)) : 0;
    for (std::size_t index = 0; index < units.size(); ++index) {
        const double count = std::floor(left / units[index].seconds);
        if (count < 1 && index + 1 < units.size())
            continue;
        QString text = countOf(count, units[index].name);
        left -= count * units[index].seconds;
        if (index + 1 < units.size()) {
            const double next = std::floor(left / units[index + 1].seconds);
            if (next >= 1)
                text += QStringLiteral(", ") + countOf(next, units[index + 1].name);
        }
        return text;
    }
    return {};
}

QString formatRelativeDate(double date, double now)
{
    struct Unit {
        double seconds;
        const char* name;
    };
    static constexpr std::array<Unit, 7> units{{{365 * 86400.0, "year"},
                                                {30 * 86400.0, "month"},
                                                {7 * 86400.0, "week"},
                                                {86400, "day"},
                                                {3600, "hour"},
                                                {60, "minute"},
                                                {1, "second"}}};
    const double span = std::isfinite(date - now) ? date - now : 0;
    const double length = std::floor(std::abs(span));
    for (const Unit& unit : units) {
        const double count = std::floor(length / unit.seconds);
        if (count < 1)
            continue;
        const QString text = countOf(count, unit.name);
        return span < 0 ? text + QStringLiteral(" ago") : QStringLiteral("in ") + text;
    }
    return QStringLiteral("now");
}

} // namespace nimbrel
