#pragma once

#include "workspace/ServerRequestRecords.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace nimbrel {

// One Codex session as listed.
struct CodexThread {
    QString id;
    QString title;   // at most 160 characters plus "…"
    QString preview; // at most 500 characters plus "…"
    QString cwd;
    QString source;
    QString status;
    double updatedAt = 0; // seconds since 1970
    std::optional<QString> model;
    std::optional<QString> reasoningEffort;

    friend bool operator==(const CodexThread&, const CodexThread&) = default;
};

struct CodexReasoningEffortOption {
    QString id;
    QString description;
    friend bool operator==(const CodexReasoningEffortOption&,
                           const CodexReasoningEffortOption&) = default;
};

// One model of the catalogue.
struct CodexModelOption {
    QString id;
    QString displayName;
    QString description;
    QString defaultReasoningEffort;
    std::vector<CodexReasoningEffortOption> supportedReasoningEfforts;
    bool isDefault = false;

    friend bool operator==(const CodexModelOption&, const CodexModelOption&) = default;
};

// One approval the user is asked for.
struct ApprovalPrompt {
    QString id;
    QString method;
    QString title;
    QString detail;
    std::optional<QString> command;
    std::optional<QString> cwd;
    std::optional<QString> threadID; // the session that asks, where the engine names it
    QStringList access;              // what a permissions request asks for, one line each
    std::optional<ElicitationRequest> elicitation; // what a tool server asks the user

    friend bool operator==(const ApprovalPrompt&, const ApprovalPrompt&) = default;
};

enum class TranscriptKind { User, Assistant, Command, FileChange, Reasoning, System };

QString transcriptKindText(TranscriptKind kind);

// One item of a transcript.
struct TranscriptEntry {
    QString id;
    TranscriptKind kind = TranscriptKind::System;
    QString title;
    QString text;
    std::optional<QString> status;
    std::optional<QString> phase;
    QStringList progressMessages;
    // The images of a user's message: data URLs, or paths on this computer.
    QStringList images = {};

    // A step of the work rather than part of the conversation.
    bool isActivity() const;
    // Progress lines, then the text; empty parts dropped; joined with blank lines.
    QString combinedText() const;

    friend bool operator==(const TranscriptEntry&, const TranscriptEntry&) = default;
};

// An image attached to the message being written, already shrunk to send: url is a data URL.
struct DraftImage {
    QString id;
    QString name;
    QString url;
    int width = 0;
    int height = 0;

    friend bool operator==(const DraftImage&, const DraftImage&) = default;
};

// The newest unified diff Codex sent for one turn: everything the turn changed so far. While the
// turn runs its card follows the newest entry; once it ends, the card stays after the entry that
// was newest then.
struct TurnDiff {
    QString turnID;
    QString diff;
    std::optional<QString> afterEntryID;

    friend bool operator==(const TurnDiff&, const TurnDiff&) = default;
};

// One conversation entry alone, or a run of consecutive activity entries. Never empty.
struct TranscriptBlock {
    std::vector<TranscriptEntry> entries;
    const QString& id() const { return entries.front().id; }
    friend bool operator==(const TranscriptBlock&, const TranscriptBlock&) = default;
};

} // namespace nimbrel
