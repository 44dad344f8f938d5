#include "MarkdownActions.h"

#include "ui/sessions/markdown/MarkdownBlocks.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QQuickTextDocument>
#include <QTextCursor>
#include <QTextDocument>

namespace nimbrel {

MarkdownActions::MarkdownActions(QObject* parent)
    : QObject(parent)
    , m_opener([](const QUrl& url) { return QDesktopServices::openUrl(url); })
{
}

void MarkdownActions::write(QObject* target, const QVariantList& spans, const QColor& linkColor,
                            const QColor& addressColor) const
{
    auto* quickDocument = qobject_cast<QQuickTextDocument*>(target);
    if (quickDocument && quickDocument->textDocument())
        writeSpans(*quickDocument->textDocument(), spans, linkColor, addressColor);
}

bool MarkdownActions::openLink(const QString& address) const
{
    if (!isOpenableLink(address))
        return false;
    return m_opener(QUrl(address, QUrl::StrictMode));
}

void MarkdownActions::copy(const QString& text) const
{
    if (QClipboard* clipboard = QGuiApplication::clipboard())
        clipboard->setText(text);
}

void writeSpans(QTextDocument& document, const QVariantList& spans, const QColor& linkColor,
                const QColor& addressColor)
{
    document.clear();
    QTextCursor cursor(&document);
    // One edit, so that the document is laid out once, not once a span.
    cursor.beginEditBlock();
    for (const QVariant& value : spans) {
        const QVariantMap span = value.toMap();
        QTextCharFormat format;
        if (span.value(QStringLiteral("strong")).toBool())
            format.setFontWeight(QFont::Bold);
        if (span.value(QStringLiteral("emphasis")).toBool())
            format.setFontItalic(true);
        if (span.value(QStringLiteral("struck")).toBool())
            format.setFontStrikeOut(true);
        if (span.value(QStringLiteral("code")).toBool()) {
            format.setFontFamilies({QStringLiteral("monospace")});
            format.setFontFixedPitch(true);
        }
        if (span.value(QStringLiteral("address")).toBool())
            format.setForeground(addressColor);
        const QString link = span.value(QStringLiteral("link")).toString();
        if (!link.isEmpty() && isOpenableLink(link)) {
            format.setAnchor(true);
            format.setAnchorHref(link);
            format.setFontUnderline(true);
            format.setForeground(linkColor);
        }
        cursor.insertText(span.value(QStringLiteral("text")).toString(), format);
    }
    cursor.endEditBlock();
}

} // namespace nimbrel
