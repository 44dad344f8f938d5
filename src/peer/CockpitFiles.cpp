#include "CockpitFiles.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

namespace nimbrel {

namespace {

// Scripts, styles, the service worker and connections only from the bridge itself; nothing inline,
// no frames, no forms.
constexpr char securityHeaders[] =
    "Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; "
    "img-src 'self' data:; connect-src 'self'; manifest-src 'self'; worker-src 'self'; base-uri "
    "'none'; "
    "form-action 'none'; frame-ancestors 'none'\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "X-Frame-Options: DENY\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "Cross-Origin-Opener-Policy: same-origin\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Cache-Control: no-cache\r\n";

QByteArray contentType(const QByteArray& name)
{
    if (name.endsWith(".html"))
        return "text/html; charset=utf-8";
    if (name.endsWith(".js"))
        return "text/javascript; charset=utf-8";
    if (name.endsWith(".css"))
        return "text/css; charset=utf-8";
    if (name.endsWith(".svg"))
        return "image/svg+xml";
    if (name.endsWith(".png"))
        return "image/png";
    return "application/manifest+json";
}

QStringList pageFileNames()
{
    return QDir(QStringLiteral(":/cockpit")).entryList(QDir::Files, QDir::Name);
}

// The files the service worker keeps: every file of the page but the page itself (kept as "./")
// and the worker, separated by spaces.
QByteArray keptFiles()
{
    QStringList names = pageFileNames();
    names.removeAll(QStringLiteral("index.html"));
    names.removeAll(QStringLiteral("sw.js"));
    return names.join(QLatin1Char(' ')).toUtf8();
}

// A digest of every file of the page, which the service worker carries as its version: a bridge
// whose files differ serves a worker that differs, and browsers install it.
QByteArray filesVersion()
{
    static const QByteArray version = [] {
        QCryptographicHash hash(QCryptographicHash::Sha256);
        for (const QString& name : pageFileNames()) {
            QFile file(QStringLiteral(":/cockpit/") + name);
            if (!file.open(QIODevice::ReadOnly))
                continue;
            hash.addData(name.toUtf8() + '\0');
            hash.addData(file.readAll());
        }
        return hash.result().toHex().left(16);
    }();
    return version;
}

WebResponse respond(const QByteArray& status, const QByteArray& type, const QByteArray& body,
                    bool withBody, bool keepOpen, const QByteArray& extra = {})
{
    QByteArray head = "HTTP/1.1 " + status + "\r\n" + securityHeaders + extra;
    if (!type.isEmpty())
        head += "Content-Type: " + type + "\r\n";
    head += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    head += keepOpen ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
    return {withBody ? head + body : head, keepOpen};
}

// Takes over from the worker it replaces at once, removes its registration and reloads the pages
// it held, which then come from the bridge.
constexpr char selfRemovingWorker[] =
    "self.addEventListener('install', () => self.skipWaiting());\n"
    "self.addEventListener('activate', (event) => event.waitUntil((async () => {\n"
    "  await self.registration.unregister();\n"
    "  for (const client of await self.clients.matchAll({ type: 'window' })) "
    "client.navigate(client.url).catch(() => {});\n"
    "})()));\n";

} // namespace

WebResponse webRefusal(const QByteArray& status)
{
    return respond(status, {}, {}, false, false);
}

WebResponse cockpitResponse(const WebRequest& request, bool mayKeepOpen)
{
    const bool head = request.method == "HEAD";
    if (request.method != "GET" && !head)
        return respond("405 Method Not Allowed", {}, {}, false, false, "Allow: GET, HEAD\r\n");
    const QList<QByteArray> lengths = request.values("content-length");
    if (!request.values("transfer-encoding").isEmpty() ||
        std::any_of(lengths.begin(), lengths.end(), [](const QByteArray& l) { return l != "0"; }))
        return webRefusal("400 Bad Request");
    static const QRegularExpression fileName(
        QStringLiteral("^[a-z0-9][a-z0-9-]*(\\.[a-z0-9-]+)*\\.(html|js|css|svg|png|webmanifest)$"));
    const QByteArray path = request.path();
    const QByteArray name = path == "/" ? QByteArray("index.html") : path.mid(1);
    // A browser checking a service worker of this origin that is not the page's own: one that a
    // look-alike page left behind. It is replaced by a worker that removes itself.
    if (name != "sw.js" && request.values("service-worker").contains("script"))
        return respond("200 OK", contentType(".js"), selfRemovingWorker, !head, mayKeepOpen);
    QFile file(QStringLiteral(":/cockpit/") + QString::fromLatin1(name));
    if (!path.startsWith('/') || !fileName.match(QString::fromLatin1(name)).hasMatch() ||
        !file.open(QIODevice::ReadOnly))
        return respond("404 Not Found", "text/plain; charset=utf-8", "Not found.\n", !head, false);
    QByteArray body = file.readAll();
    if (name == "sw.js")
        body.replace("@VERSION@", filesVersion()).replace("@FILES@", keptFiles());
    return respond("200 OK", contentType(name), body, !head, mayKeepOpen);
}

} // namespace nimbrel
