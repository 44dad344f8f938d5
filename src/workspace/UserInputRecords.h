#pragma once

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
    bool isBlocking = false;

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

} // namespace nimbrel
