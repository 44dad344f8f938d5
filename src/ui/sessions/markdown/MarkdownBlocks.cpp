#include "MarkdownBlocks.h"

#include <QUrl>

#include <md4c.h>

#include <optional>

namespace nimbrel {

namespace {

// GitHub's dialect (tables, struck text, task lists, bare addresses as links) with raw HTML read
// as text.
constexpr unsigned parserFlags = MD_FLAG_TABLES | MD_FLAG_STRIKETHROUGH | MD_FLAG_TASKLISTS |
                                 MD_FLAG_PERMISSIVEURLAUTOLINKS | MD_FLAG_PERMISSIVEWWWAUTOLINKS |
                                 MD_FLAG_PERMISSIVEEMAILAUTOLINKS | MD_FLAG_NOHTML;

QString entityText(const char* text, MD_SIZE size)
{
    const QString raw = QString::fromUtf8(text, static_cast<qsizetype>(size));
    if (raw.size() > 3 && raw.startsWith(QLatin1String("&#")) && raw.endsWith(QLatin1Char(';'))) {
        const bool hex = raw.at(2) == QLatin1Char('x') || raw.at(2) == QLatin1Char('X');
        bool ok = false;
        const uint code =
            raw.mid(hex ? 3 : 2, raw.size() - (hex ? 4 : 3)).toUInt(&ok, hex ? 16 : 10);
        if (!ok || code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return QString(QChar::ReplacementCharacter);
        const char32_t point = code;
        return QString::fromUcs4(&point, 1);
    }
    static const std::pair<const char*, const char*> named[] = {
        {"&amp;", "&"},        {"&lt;", "<"},          {"&gt;", ">"},         {"&quot;", "\""},
        {"&apos;", "'"},       {"&nbsp;", "\u00a0"},   {"&copy;", "\u00a9"},  {"&reg;", "\u00ae"},
        {"&trade;", "\u2122"}, {"&hellip;", "\u2026"}, {"&mdash;", "\u2014"}, {"&ndash;", "\u2013"},
        {"&laquo;", "\u00ab"}, {"&raquo;", "\u00bb"},  {"&times;", "\u00d7"}, {"&rarr;", "\u2192"},
        {"&larr;", "\u2190"}};
    for (const auto& [name, value] : named)
        if (raw == QLatin1String(name))
            return QString::fromUtf8(value);
    return raw;
}

QString attributeText(const MD_ATTRIBUTE& attribute)
{
    QString text;
    for (int i = 0; attribute.substr_offsets && attribute.substr_offsets[i] < attribute.size; ++i) {
        const MD_OFFSET start = attribute.substr_offsets[i];
        const MD_SIZE size = attribute.substr_offsets[i + 1] - start;
        switch (attribute.substr_types[i]) {
        case MD_TEXT_ENTITY:
            text += entityText(attribute.text + start, size);
            break;
        case MD_TEXT_NULLCHAR:
            text += QChar::ReplacementCharacter;
            break;
        default:
            text += QString::fromUtf8(attribute.text + start, static_cast<qsizetype>(size));
        }
    }
    return text;
}

// A bare address written as a link: www.… is read as http, name@host as mail.
QString autolinkAddress(const QString& label, const QString& target)
{
    if (label != target || target.contains(QLatin1Char(':')))
        return target;
    if (target.startsWith(QLatin1String("www."), Qt::CaseInsensitive))
        return QStringLiteral("http://") + target;
    if (target.contains(QLatin1Char('@')))
        return QStringLiteral("mailto:") + target;
    return target;
}

struct ListLevel {
    bool ordered = false;
    unsigned next = 1;
};

// Turns md4c's callbacks into flat blocks. Inline text gathers in `spans` until a block begins or
// ends; where that happens decides which block the text belongs to.
class BlockBuilder {
public:
    explicit BlockBuilder(qsizetype offset)
        : m_offset(offset)
    {
    }

    std::vector<MarkdownBlock> blocks;

    void enterBlock(MD_BLOCKTYPE type, void* detail)
    {
        flushParagraph();
        switch (type) {
        case MD_BLOCK_QUOTE:
            ++m_quoteDepth;
            break;
        case MD_BLOCK_UL:
            m_lists.push_back({false, 0});
            break;
        case MD_BLOCK_OL:
            m_lists.push_back({true, static_cast<MD_BLOCK_OL_DETAIL*>(detail)->start});
            break;
        case MD_BLOCK_LI: {
            const auto* item = static_cast<MD_BLOCK_LI_DETAIL*>(detail);
            if (item->is_task)
                m_marker = item->task_mark == ' ' ? QStringLiteral("☐") : QStringLiteral("☑");
            else if (!m_lists.empty() && m_lists.back().ordered)
                m_marker = QString::number(m_lists.back().next++) + QLatin1Char('.');
            else
                m_marker = QStringLiteral("•");
            break;
        }
        case MD_BLOCK_H:
            m_headingLevel = static_cast<int>(static_cast<MD_BLOCK_H_DETAIL*>(detail)->level);
            break;
        case MD_BLOCK_CODE:
            m_inCode = true;
            m_code.clear();
            m_language = attributeText(static_cast<MD_BLOCK_CODE_DETAIL*>(detail)->lang);
            break;
        case MD_BLOCK_TABLE:
            m_rows.clear();
            break;
        case MD_BLOCK_TR:
            m_rows.emplace_back();
            break;
        case MD_BLOCK_HR:
            blocks.push_back(newBlock(MarkdownBlockKind::Rule));
            break;
        default:
            break;
        }
    }

    void leaveBlock(MD_BLOCKTYPE type)
    {
        switch (type) {
        case MD_BLOCK_QUOTE:
            flushParagraph();
            --m_quoteDepth;
            break;
        case MD_BLOCK_UL:
        case MD_BLOCK_OL:
            flushParagraph();
            m_lists.pop_back();
            break;
        case MD_BLOCK_LI:
            flushParagraph();
            m_marker.clear();
            break;
        case MD_BLOCK_H:
            flushParagraph(MarkdownBlockKind::Heading);
            m_headingLevel = 0;
            break;
        case MD_BLOCK_CODE: {
            MarkdownBlock block = newBlock(MarkdownBlockKind::Code);
            if (m_code.endsWith(QLatin1Char('\n')))
                m_code.chop(1);
            block.code = m_code;
            block.language = m_language;
            blocks.push_back(std::move(block));
            m_inCode = false;
            break;
        }
        case MD_BLOCK_TH:
        case MD_BLOCK_TD:
            if (!m_rows.empty())
                m_rows.back().push_back(std::move(m_spans));
            m_spans.clear();
            break;
        case MD_BLOCK_TABLE: {
            MarkdownBlock block = newBlock(MarkdownBlockKind::Table);
            block.rows = std::move(m_rows);
            m_rows.clear();
            blocks.push_back(std::move(block));
            break;
        }
        default:
            flushParagraph();
        }
    }

    void enterSpan(MD_SPANTYPE type, void* detail)
    {
        switch (type) {
        case MD_SPAN_EM:
            ++m_emphasis;
            break;
        case MD_SPAN_STRONG:
            ++m_strong;
            break;
        case MD_SPAN_CODE:
            ++m_code_;
            break;
        case MD_SPAN_DEL:
            ++m_struck;
            break;
        case MD_SPAN_A: {
            const QString target = attributeText(static_cast<MD_SPAN_A_DETAIL*>(detail)->href);
            m_links.push_back({target, m_spans.size()});
            m_breakSpan = true;
            break;
        }
        case MD_SPAN_IMG:
            m_images.push_back(attributeText(static_cast<MD_SPAN_IMG_DETAIL*>(detail)->src));
            append(QStringLiteral("Image: "));
            break;
        default:
            break;
        }
    }

    void leaveSpan(MD_SPANTYPE type)
    {
        switch (type) {
        case MD_SPAN_EM:
            --m_emphasis;
            break;
        case MD_SPAN_STRONG:
            --m_strong;
            break;
        case MD_SPAN_CODE:
            --m_code_;
            break;
        case MD_SPAN_DEL:
            --m_struck;
            break;
        case MD_SPAN_A: {
            const auto [target, firstSpan] = m_links.back();
            m_links.pop_back();
            QString label;
            for (std::size_t i = firstSpan; i < m_spans.size(); ++i)
                label += m_spans[i].text;
            const QString address = autolinkAddress(label, target);
            if (isOpenableLink(address))
                for (std::size_t i = firstSpan; i < m_spans.size(); ++i)
                    m_spans[i].link = address;
            // The target shows beside the words, unless the words are the target.
            if (label != target && target != QStringLiteral("http://") + label &&
                target != QStringLiteral("mailto:") + label)
                appendAddress(target);
            m_breakSpan = true;
            break;
        }
        case MD_SPAN_IMG: {
            const QString source = m_images.back();
            m_images.pop_back();
            appendAddress(source);
            break;
        }
        default:
            break;
        }
    }

    void text(MD_TEXTTYPE type, const char* text, MD_SIZE size)
    {
        switch (type) {
        case MD_TEXT_NULLCHAR:
            return append(QString(QChar::ReplacementCharacter));
        case MD_TEXT_BR:
            return append(m_inCode ? QString() : QStringLiteral("\n"));
        // A line break in a paragraph stays one, as in a chat: Codex writes lines it means.
        case MD_TEXT_SOFTBR:
            return append(QStringLiteral("\n"));
        case MD_TEXT_ENTITY:
            return append(entityText(text, size));
        default:
            break;
        }
        const QString decoded = QString::fromUtf8(text, static_cast<qsizetype>(size));
        if (m_inCode)
            m_code += decoded;
        else
            append(decoded);
    }

private:
    MarkdownBlock newBlock(MarkdownBlockKind kind)
    {
        MarkdownBlock block;
        block.kind = kind;
        block.listDepth = static_cast<int>(m_lists.size());
        block.quoteDepth = m_quoteDepth;
        block.marker = m_marker;
        block.sourceStart = m_offset;
        m_marker.clear(); // only the item's first block carries it
        return block;
    }

    void append(const QString& text, bool address = false)
    {
        if (text.isEmpty())
            return;
        MarkdownSpan span{text,
                          m_strong > 0,
                          m_emphasis > 0,
                          m_code_ > 0,
                          m_struck > 0,
                          QString(),
                          address || !m_images.empty()};
        // A link's words get spans of their own, which take the link when it closes.
        if (!m_spans.empty() && !m_breakSpan) {
            MarkdownSpan& last = m_spans.back();
            if (last.strong == span.strong && last.emphasis == span.emphasis &&
                last.code == span.code && last.struck == span.struck && last.link.isEmpty() &&
                last.address == span.address) {
                last.text += text;
                return;
            }
        }
        m_breakSpan = false;
        m_spans.push_back(std::move(span));
    }

    void appendAddress(const QString& address)
    {
        MarkdownSpan span;
        span.text = QStringLiteral(" (") + address + QLatin1Char(')');
        span.address = true;
        m_spans.push_back(std::move(span));
        m_breakSpan = true;
    }

    void flushParagraph(MarkdownBlockKind kind = MarkdownBlockKind::Paragraph)
    {
        if (m_spans.empty() || !m_rows.empty() || m_inCode)
            return;
        MarkdownBlock block = newBlock(kind);
        block.headingLevel = kind == MarkdownBlockKind::Heading ? m_headingLevel : 0;
        block.spans = std::move(m_spans);
        m_spans.clear();
        blocks.push_back(std::move(block));
    }

    qsizetype m_offset = 0;
    int m_quoteDepth = 0;
    std::vector<ListLevel> m_lists;
    QString m_marker;
    int m_headingLevel = 0;
    bool m_inCode = false;
    QString m_code;
    QString m_language;
    std::vector<std::vector<MarkdownSpans>> m_rows;
    MarkdownSpans m_spans;
    int m_strong = 0;
    int m_emphasis = 0;
    int m_code_ = 0;
    int m_struck = 0;
    std::vector<std::pair<QString, std::size_t>> m_links; // target, its first span
    std::vector<QString> m_images;
    bool m_breakSpan = false;
};

} // namespace

std::vector<MarkdownBlock> parseMarkdown(QStringView text, qsizetype offset)
{
    const QByteArray source = text.toUtf8();
    BlockBuilder builder(offset);
    MD_PARSER parser{};
    parser.flags = parserFlags;
    parser.enter_block = [](MD_BLOCKTYPE type, void* detail, void* user) {
        static_cast<BlockBuilder*>(user)->enterBlock(type, detail);
        return 0;
    };
    parser.leave_block = [](MD_BLOCKTYPE type, void*, void* user) {
        static_cast<BlockBuilder*>(user)->leaveBlock(type);
        return 0;
    };
    parser.enter_span = [](MD_SPANTYPE type, void* detail, void* user) {
        static_cast<BlockBuilder*>(user)->enterSpan(type, detail);
        return 0;
    };
    parser.leave_span = [](MD_SPANTYPE type, void*, void* user) {
        static_cast<BlockBuilder*>(user)->leaveSpan(type);
        return 0;
    };
    parser.text = [](MD_TEXTTYPE type, const MD_CHAR* chars, MD_SIZE size, void* user) {
        static_cast<BlockBuilder*>(user)->text(type, chars, size);
        return 0;
    };
    if (md_parse(source.constData(), static_cast<MD_SIZE>(source.size()), &parser, &builder) != 0) {
        MarkdownBlock block;
        block.spans.push_back(MarkdownSpan{text.toString(), false, false, false, false, {}, false});
        block.sourceStart = offset;
        return {block};
    }
    return std::move(builder.blocks);
}

bool isOpenableLink(const QString& address)
{
    const QUrl url(address, QUrl::StrictMode);
    if (!url.isValid())
        return false;
    const QString scheme = url.scheme().toLower();
    if (scheme == QLatin1String("mailto"))
        return !url.path().isEmpty();
    return (scheme == QLatin1String("http") || scheme == QLatin1String("https")) &&
           !url.host().isEmpty();
}

QString plainText(const MarkdownSpans& spans)
{
    QString text;
    for (const MarkdownSpan& span : spans)
        text += span.text;
    return text;
}

} // namespace nimbrel
