#pragma once

#include <QByteArray>
#include <QList>

#include <optional>
#include <utility>

namespace nimbrel {

// The head of one HTTP/1.1 request, as a connection sends it before anything else: its request
// line and its header fields, names in lower case, values trimmed, in the order sent.
struct WebRequest {
    QByteArray method;
    QByteArray target;
    QList<std::pair<QByteArray, QByteArray>> fields;

    // Every value of the field name (lower case).
    QList<QByteArray> values(const QByteArray& name) const;
    // The target's path, without its query.
    QByteArray path() const
    {
        return target.indexOf('?') < 0 ? target : target.left(target.indexOf('?'));
    }
};

// The request in head (everything before the blank line), or nothing where the request line is not
// "METHOD TARGET HTTP/1.x" or a field line has no name.
std::optional<WebRequest> parseWebRequest(const QByteArray& head);

} // namespace nimbrel
