#pragma once

#include <QColor>
#include <QObject>
#include <QUrl>
#include <QVariantList>

#include <functional>

class QTextDocument;

namespace nimbrel {

// What the window does with Markdown blocks: writes a block's spans into the document of a
// read-only text item (formats only, never markup, so nothing in a message can make it load
// anything), opens a link the user clicked, and copies a code block.
class MarkdownActions : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString copyLabel READ copyLabel CONSTANT)
    Q_PROPERTY(QString copySymbol READ copySymbol CONSTANT)

public:
    using Opener = std::function<bool(const QUrl&)>;
    // opener defaults to the system's handler (the browser, the mail program).
    explicit MarkdownActions(QObject* parent = nullptr);

    void setOpener(Opener opener) { m_opener = std::move(opener); }
    static QString copyLabel() { return QStringLiteral("Copy"); }
    static QString copySymbol() { return QStringLiteral("edit-copy"); }

    // target is a text item's textDocument (a QQuickTextDocument).
    Q_INVOKABLE void write(QObject* target, const QVariantList& spans, const QColor& linkColor,
                           const QColor& addressColor) const;
    // Opens address where it is http, https or mailto; returns whether it was handed on.
    Q_INVOKABLE bool openLink(const QString& address) const;
    Q_INVOKABLE void copy(const QString& text) const;

private:
    Opener m_opener;
};

// The spans into document, replacing what it held.
void writeSpans(QTextDocument& document, const QVariantList& spans, const QColor& linkColor,
                const QColor& addressColor);

} // namespace nimbrel
