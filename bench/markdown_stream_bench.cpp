// A 2,000-line Markdown answer streamed into a session one line at a time, through the workspace
// and the transcript's view model (parsing, slicing, rows), as the window gets it. Prints the time
// per update in each stretch of 250 lines: flat figures mean the total grows linearly. Beside them,
// the time to parse the whole message once at that size, which is what each update would cost if
// everything were parsed again.
#include "platform/Scheduler.h"
#include "platform/UserDefaults.h"
#include "ui/sessions/markdown/MarkdownBlocks.h"
#include "ui/sessions/transcript/SessionActivityPreference.h"
#include "ui/sessions/transcript/TranscriptViewModel.h"
#include "workspace/CodexWorkspace.h"

#include <QElapsedTimer>
#include <QGuiApplication>

#include <cstdio>

using namespace nimbrel;

namespace {

// Line n of an answer that mixes what Codex writes: headings, prose, lists, code and tables.
QString answerLine(int n)
{
    switch (n % 50) {
    case 0:
        return QStringLiteral("## Step %1").arg(n / 50 + 1);
    case 1:
    case 9:
    case 19:
    case 26:
    case 38:
    case 43:
        return QString();
    case 10:
        return QStringLiteral("```cpp");
    case 18:
        return QStringLiteral("```");
    case 20:
    case 21:
    case 22:
        return QStringLiteral("- item %1 with `code` and a [link](https://example.com/%1)").arg(n);
    case 23:
        return QStringLiteral("  1. nested **detail** %1").arg(n);
    case 27:
        return QStringLiteral("| File | Lines |");
    case 28:
        return QStringLiteral("|---|--:|");
    case 29:
    case 30:
    case 31:
        return QStringLiteral("| `src/part%1.cpp` | %1 |").arg(n);
    case 32:
        return QString();
    case 39:
        return QStringLiteral("> The build is green again after step %1.").arg(n);
    default:
        break;
    }
    if (n % 50 > 10 && n % 50 < 18)
        return QStringLiteral("    int value%1 = compute(%1); // keeps the cache warm").arg(n);
    return QStringLiteral("The *generated* header was **not** a dependency, so line %1 explains "
                          "why a clean build failed.")
        .arg(n);
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    MemoryUserDefaults defaults;
    SystemScheduler scheduler;
    CodexWorkspace workspace(defaults, scheduler, QStringLiteral("Tabs"), 4, 20);
    SessionActivityPreference preference(defaults);
    const QString id = QStringLiteral("s");
    workspace.changeSession(id, [](CodexSessionState& session) {
        session.turnControl.phase = TurnControlState::Phase::Running;
        session.transcript.push_back({QStringLiteral("a1"),
                                      TranscriptKind::Assistant,
                                      QStringLiteral("Codex"),
                                      QString(),
                                      QStringLiteral("running"),
                                      std::nullopt,
                                      {}});
    });
    TranscriptViewModel view(workspace, preference, id);

    constexpr int lines = 2000;
    constexpr int stretch = 250;
    std::printf("A %d-line Markdown answer streamed a line per update (workspace and view model)\n",
                lines);
    std::printf("  lines      chars   per update (this stretch)   whole parse at this size\n");
    QElapsedTimer clock;
    qint64 stretchNanoseconds = 0;
    qint64 totalNanoseconds = 0;
    for (int n = 0; n < lines; ++n) {
        const QString line = answerLine(n) + QLatin1Char('\n');
        clock.start();
        workspace.changeSession(
            id, [&](CodexSessionState& session) { session.transcript.back().text += line; });
        stretchNanoseconds += clock.nsecsElapsed();
        if ((n + 1) % stretch == 0) {
            const QString text = workspace.session(id)->transcript.back().text;
            QElapsedTimer whole;
            whole.start();
            const std::size_t blocks = parseMarkdown(text).size();
            const double wholeMicroseconds = double(whole.nsecsElapsed()) / 1e3;
            std::printf("  %5d  %9lld   %9.1f µs               %9.1f µs (%zu blocks)\n", n + 1,
                        static_cast<long long>(text.size()),
                        double(stretchNanoseconds) / stretch / 1e3, wholeMicroseconds, blocks);
            totalNanoseconds += stretchNanoseconds;
            stretchNanoseconds = 0;
        }
    }
    std::printf("  all %d updates: %.1f ms\n", lines, double(totalNanoseconds) / 1e6);
    return 0;
}
