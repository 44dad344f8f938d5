#include "ui/sessions/ComposerImages.h"
#include "support/ScriptedWorkspace.h"
#include "ui/sessions/SessionPresentation.h"
#include "ui/sessions/transcript/ChangesCard.h"
#include "ui/sessions/transcript/TranscriptPresentation.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

QImage decoded(const DraftImage& image)
{
    return QImage::fromData(QByteArray::fromBase64(image.url.section(',', 1).toLatin1()));
}

} // namespace

TEST(ComposerImages, ShrunkToTheLimitAsPngOrJpeg)
{
    struct Case {
        QSize size;
        QImage::Format format;
        QSize sent;
        const char* prefix;
    } cases[] = {
        {{4000, 3000}, QImage::Format_RGB32, {2048, 1536}, "data:image/jpeg;base64,"},
        {{1000, 5000}, QImage::Format_RGB32, {409, 2048}, "data:image/png;base64,"},
        {{3000, 3000}, QImage::Format_ARGB32, {2048, 2048}, "data:image/png;base64,"},
        {{800, 600}, QImage::Format_RGB32, {800, 600}, "data:image/png;base64,"},
        {{2048, 1000}, QImage::Format_RGB32, {2048, 1000}, "data:image/jpeg;base64,"},
    };
    for (const Case& c : cases) {
        QImage image(c.size, c.format);
        image.fill(QColor(10, 120, 200, 200));
        const std::optional<DraftImage> prepared = preparedImage(image, "a.png");
        ASSERT_TRUE(prepared);
        EXPECT_TRUE(prepared->url.startsWith(c.prefix)) << c.size.width();
        EXPECT_EQ(decoded(*prepared).size(), c.sent) << c.size.width();
        EXPECT_EQ(QSize(prepared->width, prepared->height), c.sent);
    }
    EXPECT_FALSE(preparedImage(QImage(), "none"));
}

TEST(ComposerImages, TheMostImagesOfNoisyScreenshotsWithTransparencyFitInOneMessage)
{
    QImage shot(4000, 3000, QImage::Format_ARGB32);
    quint32 noise = 12345;
    for (int y = 0; y < shot.height(); ++y) {
        auto* line = reinterpret_cast<quint32*>(shot.scanLine(y));
        for (int x = 0; x < shot.width(); ++x)
            line[x] = (noise = noise * 1664525u + 1013904223u) | 0x80000000u;
    }
    const std::optional<DraftImage> prepared = preparedImage(shot, "shot.png");
    ASSERT_TRUE(prepared);
    EXPECT_LE(QByteArray::fromBase64(prepared->url.section(',', 1).toLatin1()).size(),
              imageByteBudget);
    // Each of the most a message takes is this one at worst.
    EXPECT_LT(qint64(prepared->url.size()) * draftImageLimit + 64 * 1024,
              AppServerClient::maximumLineBytes);
}

class ComposerImagesTest : public ScriptedWorkspace {};

TEST_F(ComposerImagesTest, FilesThatAreNoImagesAreRefusedAndAnImageAloneCanBeSent)
{
    workspace.changeSession("s", [](CodexSessionState&) {});
    ComposerImages images(workspace, "s");
    EXPECT_FALSE(composerCanSend(*workspace.session("s")));
    home.makeFile("notes.png", "not a picture", false);
    QImage picture(30, 20, QImage::Format_RGB32);
    picture.fill(Qt::red);
    ASSERT_TRUE(picture.save(home.filePath("shot.png")));
    images.attachFiles({QUrl::fromLocalFile(home.filePath("notes.png")),
                        QUrl::fromLocalFile(home.filePath("missing.png")),
                        QUrl::fromLocalFile(home.filePath("shot.png"))});
    ASSERT_EQ(images.images().size(), 1);
    EXPECT_EQ(images.images()[0].toMap()["sizeText"], "30 × 20");
    EXPECT_TRUE(composerCanSend(*workspace.session("s")));
    for (int i = 1; i < draftImageLimit + 2; ++i)
        images.attachImage(picture, "copy");
    EXPECT_EQ(images.images().size(), draftImageLimit);
    EXPECT_EQ(images.error(), "A message takes at most 8 images.");
    images.remove(images.images()[0].toMap()["id"].toString());
    EXPECT_EQ(images.images().size(), draftImageLimit - 1);
}

TEST_F(ComposerImagesTest, PastingAttachesAnImageAndLeavesTextToTheField)
{
    workspace.changeSession("s", [](CodexSessionState&) {});
    ComposerImages images(workspace, "s");
    QGuiApplication::clipboard()->setText("just words");
    EXPECT_FALSE(images.pasteImage());
    QImage shot(3000, 2000, QImage::Format_RGB32);
    shot.fill(Qt::darkGreen);
    QGuiApplication::clipboard()->setImage(shot);
    EXPECT_TRUE(images.pasteImage());
    ASSERT_EQ(images.images().size(), 1);
    EXPECT_EQ(images.images()[0].toMap()["sizeText"], "2048 × 1365");
}

TEST(TranscriptImages, OnlyPictureDataIsDrawnAndEverythingElseIsText)
{
    TranscriptEntry entry;
    entry.images = {"data:image/png;base64,iVBO", "https://example.com/x.png",
                    "data:text/html;base64,PHNjcmlwdD4=", "/home/ada/shot.png"};
    const QVariantList shown = transcriptImages(entry);
    ASSERT_EQ(shown.size(), 4);
    EXPECT_EQ(shown[0].toMap()["source"], "data:image/png;base64,iVBO");
    for (int i = 1; i < 4; ++i) {
        EXPECT_EQ(shown[i].toMap()["source"], "") << i;
        EXPECT_EQ(shown[i].toMap()["label"], entry.images[i]) << i;
    }
}

TEST(ChangesCard, LongDiffsAreShortenedLikeLongOutput)
{
    QString diff = "--- a/big.txt\n+++ b/big.txt\n@@ -0,0 +1,600 @@\n";
    for (int i = 0; i < 600; ++i)
        diff += QStringLiteral("+line %1\n").arg(i);
    const std::vector<DiffFile> files = parseUnifiedDiff(diff);
    ASSERT_EQ(files.size(), 1u);
    const DiffLines folded = diffLines(files[0], false);
    EXPECT_EQ(folded.toggleLabel, "Show complete diff");
    ASSERT_EQ(folded.lines.size(), diffLineHead + 1 + diffLineTail);
    EXPECT_EQ(folded.lines[0].toMap()["kind"], "hunk");
    EXPECT_EQ(folded.lines[diffLineHead].toMap()["kind"], "notice");
    EXPECT_EQ(folded.lines.back().toMap()["text"], "+line 599");
    const DiffLines full = diffLines(files[0], true);
    EXPECT_EQ(full.lines.size(), 601);
    EXPECT_EQ(full.toggleLabel, "Collapse diff");

    ChangesCard card;
    card.show(diff);
    EXPECT_EQ(card.summary(), "1 file changed  +600 −0");
    EXPECT_EQ(card.files()->value(0, "lines").toList().size(), 0) << "folded by default";
    card.toggleFile("big.txt");
    EXPECT_EQ(card.files()->value(0, "lines").toList().size(), diffLineHead + 1 + diffLineTail);
    card.toggleFullDiff("big.txt");
    EXPECT_EQ(card.files()->value(0, "lines").toList().size(), 601);
}
