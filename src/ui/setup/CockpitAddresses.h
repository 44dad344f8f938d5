#pragma once

#include <QHostAddress>
#include <QImage>
#include <QList>
#include <QQuickImageProvider>
#include <QSslCertificate>
#include <QStringList>

namespace nimbrel {

// The browser cockpit's addresses for a link listening on `listening`:`port`, given the addresses
// of this machine's network interfaces that are up: every IPv4 address other than loopback and
// link-local, then every global IPv6 address, or only the listening address where the link listens
// on one. Nothing while the link has no port.
QStringList cockpitAddresses(const QList<QHostAddress>& interfaceAddresses,
                             const QHostAddress& listening, quint16 port);

// The addresses of the interfaces of this machine that are up and running.
QList<QHostAddress> upInterfaceAddresses();

// The SHA-256 fingerprint of a certificate as browsers show it: upper-case hexadecimal pairs
// joined by colons.
QString certificateFingerprint(const QSslCertificate& certificate);

// A QR code of text, black modules on white with a quiet zone of four, each module `scale` pixels;
// a null image where the text does not fit in one.
QImage qrCodeImage(const QString& text, int scale);

// "image://qr/<percent-encoded text>" in QML: the QR code of the text.
class QrCodeImageProvider : public QQuickImageProvider {
public:
    QrCodeImageProvider()
        : QQuickImageProvider(QQuickImageProvider::Image)
    {
    }
    QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};

} // namespace nimbrel
