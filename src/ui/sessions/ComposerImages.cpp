#include "ComposerImages.h"

#include "platform/TextFormatting.h"
#include "workspace/CodexWorkspace.h"

#include <QBuffer>
#include <QClipboard>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImageReader>
#include <QMimeData>
#include <QPainter>

namespace nimbrel {

namespace {

// Smaller than this many pixels, a picture stays PNG: screenshots of text stay sharp.
constexpr qint64 pngPixelLimit = 1024 * 1024;

std::optional<QByteArray> encoded(const QImage& image, const char* format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, format, qstrcmp(format, "PNG") == 0 ? -1 : 85))
        return std::nullopt;
    return bytes;
}

} // namespace

// Shrunk to the long side, then to the byte budget: a PNG over it becomes JPEG (transparency on
// white), and a JPEG over it is made smaller until it fits.
std::optional<DraftImage> preparedImage(const QImage& original, const QString& name)
{
    if (original.isNull())
        return std::nullopt;
    QImage image = original;
    if (std::max(image.width(), image.height()) > imageLongSideLimit)
        image = image.scaled(imageLongSideLimit, imageLongSideLimit, Qt::KeepAspectRatio,
                             Qt::SmoothTransformation);
    bool png = image.hasAlphaChannel() || qint64(image.width()) * image.height() <= pngPixelLimit;
    std::optional<QByteArray> bytes = encoded(image, png ? "PNG" : "JPEG");
    if (bytes && bytes->size() > imageByteBudget && png) {
        png = false;
        QImage flat(image.size(), QImage::Format_RGB32);
        flat.fill(Qt::white);
        QPainter(&flat).drawImage(0, 0, image);
        image = flat;
        bytes = encoded(image, "JPEG");
    }
    while (bytes && bytes->size() > imageByteBudget &&
           std::max(image.width(), image.height()) > 64) {
        image = image.scaled(image.width() * 3 / 4, image.height() * 3 / 4, Qt::KeepAspectRatio,
                             Qt::SmoothTransformation);
        bytes = encoded(image, "JPEG");
    }
    if (!bytes || bytes->size() > imageByteBudget)
        return std::nullopt;
    return DraftImage{randomUUIDText(), name,
                      QStringLiteral("data:image/%1;base64,").arg(png ? "png" : "jpeg") +
                          QString::fromLatin1(bytes->toBase64()),
                      image.width(), image.height()};
}

std::optional<DraftImage> preparedImageFile(const QString& path)
{
    const QFileInfo info(path);
    if (!info.isFile() || info.size() > imageFileByteLimit)
        return std::nullopt;
    QImageReader reader(path);
    reader.setAutoTransform(true);
    // A huge picture is read at a size near the limit, where the format allows.
    const QSize size = reader.size();
    if (size.isValid() && std::max(size.width(), size.height()) > 2 * imageLongSideLimit)
        reader.setScaledSize(
            size.scaled(2 * imageLongSideLimit, 2 * imageLongSideLimit, Qt::KeepAspectRatio));
    return preparedImage(reader.read(), info.fileName());
}

ComposerImages::ComposerImages(CodexWorkspace& workspace, QString threadID, QObject* parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_threadID(std::move(threadID))
{
    connect(&m_workspace, &CodexWorkspace::sessionChanged, this, [this](const QString& id) {
        if (id == m_threadID)
            emit imagesChanged();
    });
}

QStringList ComposerImages::chooserFilters()
{
    return {QStringLiteral("Images (*.png *.jpg *.jpeg *.gif *.webp *.bmp)")};
}

QVariantList ComposerImages::images() const
{
    QVariantList list;
    if (const CodexSessionState* state = m_workspace.session(m_threadID))
        for (const DraftImage& image : state->draftImages)
            list.append(
                QVariantMap{{QStringLiteral("id"), image.id},
                            {QStringLiteral("name"), image.name},
                            {QStringLiteral("source"), image.url},
                            {QStringLiteral("sizeText"),
                             QStringLiteral("%1 × %2").arg(image.width).arg(image.height)}});
    return list;
}

bool ComposerImages::add(const std::optional<DraftImage>& image, const QString& name)
{
    const CodexSessionState* state = m_workspace.session(m_threadID);
    if (state && state->draftImages.size() >= std::size_t(draftImageLimit)) {
        m_error = QStringLiteral("A message takes at most %1 images.").arg(draftImageLimit);
    } else if (!image) {
        m_error = QStringLiteral("%1 is not an image that can be sent.").arg(name);
    } else {
        m_error.clear();
        m_workspace.addDraftImage(*image, m_threadID);
        return true;
    }
    emit imagesChanged();
    return false;
}

void ComposerImages::attachFiles(const QList<QUrl>& files)
{
    for (const QUrl& file : files)
        if (file.isLocalFile())
            add(preparedImageFile(file.toLocalFile()), file.fileName());
}

bool ComposerImages::pasteImage()
{
    const QClipboard* clipboard = QGuiApplication::clipboard();
    const QMimeData* data = clipboard ? clipboard->mimeData() : nullptr;
    if (!data || !data->hasImage())
        return false;
    attachImage(qvariant_cast<QImage>(data->imageData()), QStringLiteral("Pasted image"));
    return true;
}

void ComposerImages::attachImage(const QImage& image, const QString& name)
{
    add(preparedImage(image, name), name);
}

void ComposerImages::remove(const QString& id)
{
    m_workspace.removeDraftImage(id, m_threadID);
}

} // namespace nimbrel
