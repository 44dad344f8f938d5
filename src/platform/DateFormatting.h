#pragma once

#include <QString>

namespace nimbrel {

// Dates as the user's locale writes them. A date is seconds since 1970, shown in local time.

// An abbreviated date and a time with seconds: "Nov 23, 2026, 3:04:05 PM".
QString formatAbbreviatedDateTime(double date);

// An abbreviated date and a shortened time: "Nov 23, 2026, 3:04 PM".
QString formatAbbreviatedDateShortTime(double date);

// A span of time in its two largest units: "2 hours, 14 minutes", "1 day", "45 seconds".
QString formatRelativeDuration(double seconds);

// A date against now, in its largest unit: "5 minutes ago", "in 2 days", "now".
QString formatRelativeDate(double date, double now);

} // namespace nimbrel
