#include "CockpitAddresses.h"

#include <QCryptographicHash>
#include <QNetworkInterface>
#include <QPainter>
#include <QUrl>

#include <qrencode.h>

#include <memory>

namespace nimbrel {

namespace {

QString addressURL(const QHostAddress& address, quint16 port)
{
    const QString host = address.protocol() == QAbstractSocket::IPv6Protocol
                             ? QLatin1Char('[') + address.toString() + QLatin1Char(']')
                             : address.toString();
    return QStringLiteral("https://") + host + QLatin1Char(':') + QString::number(port) +
           QLatin1Char('/');
}

bool reachable(const QHostAddress& address)
{
    if (address.isLoopback() || address.isLinkLocal() || address.isMulticast() || address.isNull())
        return false;
    return address.protocol() == QAbstractSocket::IPv4Protocol || address.isGlobal();
}

} // namespace

QStringList cockpitAddresses(const QList<QHostAddress>& interfaceAddresses,
                             const QHostAddress& listening, quint16 port)
{
    if (port == 0)
        return {};
    if (listening != QHostAddress::Any && listening != QHostAddress::AnyIPv4 &&
        listening != QHostAddress::AnyIPv6)
        return {addressURL(listening, port)};
    QStringList ipv4, ipv6;
    for (const QHostAddress& address : interfaceAddresses)
        if (reachable(address))
            (address.protocol() == QAbstractSocket::IPv4Protocol ? ipv4 : ipv6)
                .append(addressURL(address, port));
    ipv4.removeDuplicates();
    ipv6.removeDuplicates();
    return ipv4 + ipv6;
}

QList<QHostAddress> upInterfaceAddresses()
{
    QList<QHostAddress> addresses;
    for (const QNetworkInterface& interface : QNetworkInterface::allInterfaces())
        if (interface.flags().testFlags(QNetworkInterface::IsUp | QNetworkInterface::IsRunning))
            for (const QNetworkAddressEntry& entry : interface.addressEntries())
                addresses.append(entry.ip());
    return addresses;
}

QString certificateFingerprint(const QSslCertificate& certificate)
{
    if (certificate.isNull())
        return {};
    return QString::fromLatin1(certificate.digest(QCryptographicHash::Sha256).toHex(':').toUpper());
}

QImage qrCodeImage(const QString& text, int scale)
{
    const QByteArray bytes = text.toUtf8();
    const std::unique_ptr<QRcode, void (*)(QRcode*)> code(
        QRcode_encodeString8bit(bytes.constData(), 0, QR_ECLEVEL_M), QRcode_free);
    if (!code || scale < 1)
        return {};
    constexpr int quietZone = 4;
    const int side = (code->width + 2 * quietZone) * scale;
    QImage image(side, side, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    for (int y = 0; y < code->width; ++y)
        for (int x = 0; x < code->width; ++x)
            if (code->data[y * code->width + x] & 1)
                painter.fillRect((x + quietZone) * scale, (y + quietZone) * scale, scale, scale,
                                 Qt::black);
    return image;
}

QImage QrCodeImageProvider::requestImage(const QString& id, QSize* size, const QSize& requestedSize)
{
    const QString text = QUrl::fromPercentEncoding(id.toUtf8());
    const int wanted = requestedSize.width() > 0 ? requestedSize.width() : 200;
    QImage image = qrCodeImage(text, 1);
    if (!image.isNull())
        image = qrCodeImage(text, std::max(1, wanted / image.width()));
    if (size)
        *size = image.size();
    return image;
}

} // namespace nimbrel
