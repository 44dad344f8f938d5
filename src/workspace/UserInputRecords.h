#pragma once

#include "peer/JSONValue.h"
#include "workspace/SessionRecords.h"

#include <QString>

#include <map>
#include <optional>
#include <vector>

namespace nimbrel {

// A question the engine asks the user, as it arrives in "item/tool/requestUserInput".
struct UserInputQuestion {
    struct Option {
        QString label;
        QString description;
        friend bool operator==(const Option&, const Option&) = default;
    };

    QString id;
    QString header;
    QString question;
    std::optional<std::vector<Option>> options;
    std::optional<bool> isSecret;

    friend bool operator==(const UserInputQuestion&, const UserInputQuestion&) = default;
};

struct UserInputRequest {
    QString id; // the bridge's local id, not the engine's
    QString threadID;
    QString turnID;
    std::vector<UserInputQuestion> questions;
    bool isBlocking = true;

    friend bool operator==(const UserInputRequest&, const UserInputRequest&) = default;
};

struct UserInputAnswerDraft {
    std::optional<qint64> selectedOption;
    bool usesCustomResponse = false;
    QString text;

    friend bool operator==(const UserInputAnswerDraft&, const UserInputAnswerDraft&) = default;
};

// What the user of this computer is answering, per session.
struct UserInputPrompt {
    UserInputRequest request;
    std::map<QString, UserInputAnswerDraft> drafts;
    bool isSubmitting = false;
    std::optional<QString> errorMessage;

    friend bool operator==(const UserInputPrompt&, const UserInputPrompt&) = default;
};

// The engine's params of "item/tool/requestUserInput" under a local id; nothing unless they hold a
// thread, a turn and at least one question, each with an id of its own and a text.
std::optional<UserInputRequest> parseUserInputRequest(const QString& id, const JSONValue& params);

// Whether response answers every question of request and nothing else, each with one non-blank
// text:
// {"answers": {"<question id>": {"answers": ["<text>"]}}}.
bool isCompleteResponse(const UserInputRequest& request, const JSONValue& response);

// The draft of a question: the stored one, or the default draft where none is stored.
UserInputAnswerDraft draftFor(const UserInputPrompt& prompt, const QString& questionID);

// The response to the engine from the drafts of prompt, or nothing while a question lacks an
// answer.
std::optional<JSONValue> makeResponse(const UserInputPrompt& prompt);

// The transcript entry that records the user's answers; a secret answer is never written in it.
TranscriptEntry answersEntry(const UserInputPrompt& prompt);

} // namespace nimbrel
