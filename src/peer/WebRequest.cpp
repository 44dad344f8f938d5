#include "WebRequest.h"

namespace nimbrel {

QList<QByteArray> WebRequest::values(const QByteArray& name) const
{
    QList<QByteArray> found;
    for (const auto& [field, value] : fields)
        if (field == name)
            found.append(value);
    return found;
}

std::optional<WebRequest> parseWebRequest(const QByteArray& head)
{
    QList<QByteArray> lines = head.split('\n');
    for (QByteArray& line : lines)
        if (line.endsWith('\r'))
            line.chop(1);
    const QList<QByteArray> requestLine = lines.value(0).split(' ');
    if (requestLine.size() != 3 || requestLine[0].isEmpty() || !requestLine[1].startsWith('/') ||
        !requestLine[2].startsWith("HTTP/1."))
        return std::nullopt;
    WebRequest request{requestLine[0], requestLine[1], {}};
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        const QByteArray name = lines[i].left(colon).toLower();
        if (colon <= 0 || name != name.trimmed())
            return std::nullopt;
        request.fields.append({name, lines[i].mid(colon + 1).trimmed()});
    }
    return request;
}

} // namespace nimbrel
