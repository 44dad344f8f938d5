#pragma once

#include "workspace/SessionRecords.h"

#include <QImage>
#include <QObject>
#include <QUrl>
#include <QVariantList>

#include <optional>

namespace nimbrel {

// Images sent beside a message are shrunk to at most this many pixels on their long side.
inline constexpr int imageLongSideLimit = 2048;
// At most this many images go with one message.
inline constexpr int draftImageLimit = 8;
// An image sent takes at most this many bytes (before base64), so that a message with the most
// images, each growing by a third as text, stays under the 16 MB Codex reads: 8 × 1.25 MB × 4/3.
inline constexpr qint64 imageByteBudget = 1280 * 1024;
// A file larger than this is not read.
inline constexpr qint64 imageFileByteLimit = 64 * 1024 * 1024;

// An image made ready to send: shrunk to the limit, as PNG where it has transparency or is small,
// else as JPEG, and to the byte budget; nothing for an empty image.
std::optional<DraftImage> preparedImage(const QImage& image, const QString& name);
// The image in a file, read with a bounded allocation; nothing where it is no image or too big.
std::optional<DraftImage> preparedImageFile(const QString& path);

// The images attached to one session's message in the composer: added from files or the
// clipboard, shown as removable thumbnails, sent with the text.
class ComposerImages : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList images READ images NOTIFY imagesChanged)
    Q_PROPERTY(QString error READ error NOTIFY imagesChanged)
    Q_PROPERTY(QString attachLabel READ attachLabel CONSTANT)
    Q_PROPERTY(QString attachSymbol READ attachSymbol CONSTANT)
    Q_PROPERTY(QString chooserTitle READ chooserTitle CONSTANT)
    Q_PROPERTY(QStringList chooserFilters READ chooserFilters CONSTANT)
    Q_PROPERTY(QString removeLabel READ removeLabel CONSTANT)
    Q_PROPERTY(QString removeSymbol READ removeSymbol CONSTANT)

public:
    ComposerImages(class CodexWorkspace& workspace, QString threadID, QObject* parent = nullptr);

    // Each a map of id, name, source (the data URL) and sizeText ("1280 × 720").
    QVariantList images() const;
    QString error() const { return m_error; }
    static QString attachLabel() { return QStringLiteral("Attach images"); }
    static QString attachSymbol() { return QStringLiteral("mail-attachment"); }
    static QString chooserTitle() { return QStringLiteral("Choose images to send"); }
    static QStringList chooserFilters();
    static QString removeLabel() { return QStringLiteral("Remove image"); }
    static QString removeSymbol() { return QStringLiteral("window-close"); }

    // Files chosen in the file dialog.
    Q_INVOKABLE void attachFiles(const QList<QUrl>& files);
    // The clipboard's image, where it holds one; returns whether it did.
    Q_INVOKABLE bool pasteImage();
    void attachImage(const QImage& image, const QString& name);
    Q_INVOKABLE void remove(const QString& id);

signals:
    void imagesChanged();

private:
    bool add(const std::optional<DraftImage>& image, const QString& name);

    CodexWorkspace& m_workspace;
    QString m_threadID;
    QString m_error;
};

} // namespace nimbrel
