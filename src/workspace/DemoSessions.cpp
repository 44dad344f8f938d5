#include "DemoSessions.h"

namespace nimbrel {

namespace {

TranscriptEntry entry(const QString& id, TranscriptKind kind, const QString& title,
                      const QString& text, std::optional<QString> status = std::nullopt)
{
    return TranscriptEntry{id, kind, title, text, std::move(status), std::nullopt, {}};
}

CodexThread thread(const char* id, const char* title, const char* cwd, double updatedAt)
{
    CodexThread made;
    made.id = QString::fromLatin1(id);
    made.title = QString::fromUtf8(title);
    made.preview = made.title;
    made.cwd = QString::fromLatin1(cwd);
    made.source = QStringLiteral("demo");
    made.status = QStringLiteral("idle");
    made.updatedAt = updatedAt;
    return made;
}

DemoSession finishedSession(double now)
{
    DemoSession session{thread("demo-thread-build", "Fix the failing date test",
                               "~/projects/calendar", now - 3 * 60),
                        {},
                        std::nullopt};
    session.transcript = {
        entry("demo-build-1", TranscriptKind::User, QStringLiteral("You"),
              QStringLiteral("The date test fails since the clocks changed. Find out why and fix "
                             "it.")),
        entry("demo-build-2", TranscriptKind::Reasoning, QStringLiteral("Thinking"),
              QStringLiteral("The failure names a time an hour off: the test builds a local time "
                             "and compares it with one in UTC.")),
        entry("demo-build-3", TranscriptKind::Command, QStringLiteral("Command"),
              QStringLiteral("$ ctest --test-dir build -R dates\n"
                             "1/1 Test #4: dates ....***Failed    0.02 sec\n"
                             "expected 09:00, got 10:00"),
              QStringLiteral("failed")),
        entry("demo-build-4", TranscriptKind::FileChange, QStringLiteral("File changes"),
              QStringLiteral("M tests/dates_test.cpp\n"
                             "- QDateTime expected(QDate(2026, 3, 29), QTime(9, 0));\n"
                             "+ QDateTime expected(QDate(2026, 3, 29), QTime(9, 0), Qt::UTC);"),
              QStringLiteral("completed")),
        entry("demo-build-5", TranscriptKind::Command, QStringLiteral("Command"),
              QStringLiteral("$ ctest --test-dir build -R dates\n"
                             "1/1 Test #4: dates ....   Passed    0.02 sec\n"
                             "100% tests passed, 0 tests failed out of 1"),
              QStringLiteral("completed")),
        entry("demo-build-6", TranscriptKind::System, QStringLiteral("Plan"),
              QStringLiteral("✓ Reproduce the failure\n✓ Compare both times in UTC\n✓ Run the "
                             "tests again")),
        entry("demo-build-7", TranscriptKind::Assistant, QStringLiteral("Codex"),
              QStringLiteral("The test compared a local time with a UTC one, so it failed on the "
                             "day the clocks changed. Both sides are UTC now, and the test "
                             "passes.")),
    };
    return session;
}

DemoSession questionSession(double now)
{
    DemoSession session{
        thread("demo-thread-question", "Add a table for accounts", "~/projects/ledger", now - 60),
        {},
        std::nullopt};
    session.transcript = {
        entry("demo-question-1", TranscriptKind::User, QStringLiteral("You"),
              QStringLiteral("Add a table for the accounts and a migration for it.")),
        entry("demo-question-2", TranscriptKind::Assistant, QStringLiteral("Codex"),
              QStringLiteral("The project has no database yet. Before I write the migration, "
                             "tell me which one to use.")),
    };
    UserInputQuestion database{
        QStringLiteral("database"), QStringLiteral("Database"),
        QStringLiteral("Which database should the accounts live in?"),
        std::vector<UserInputQuestion::Option>{
            {QStringLiteral("PostgreSQL"), QStringLiteral("A server, for several users at once")},
            {QStringLiteral("SQLite"), QStringLiteral("One file beside the program")}},
        false};
    session.question = UserInputRequest{QStringLiteral("demo-question"),
                                        session.thread.id,
                                        QStringLiteral("demo-turn"),
                                        {database},
                                        true};
    return session;
}

DemoSession longSession(double now)
{
    DemoSession session{
        thread("demo-thread-notes", "Tidy the release notes", "~/projects/website", now - 2 * 3600),
        {},
        std::nullopt};
    for (int step = 1; step <= 24; ++step) {
        const QString number = QString::number(step);
        session.transcript.push_back(
            entry(QStringLiteral("demo-notes-user-") + number, TranscriptKind::User,
                  QStringLiteral("You"),
                  QStringLiteral("Tidy section %1 of the release notes.").arg(number)));
        session.transcript.push_back(
            entry(QStringLiteral("demo-notes-codex-") + number, TranscriptKind::Assistant,
                  QStringLiteral("Codex"),
                  QStringLiteral("Section %1 now lists its changes newest first, one line each.")
                      .arg(number)));
    }
    return session;
}

} // namespace

std::vector<DemoSession> demoSessions(double now)
{
    return {questionSession(now), finishedSession(now), longSession(now)};
}

} // namespace nimbrel
