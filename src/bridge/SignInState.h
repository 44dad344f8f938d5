#pragma once

#include <QString>

namespace nimbrel {

// Where signing the account in stands, for the window and the console. The API key itself is
// never kept here or anywhere else of ours: it goes to Codex once.
struct SignInState {
    enum class Phase { Idle, Starting, Waiting, Failed };
    Phase phase = Phase::Idle;
    QString type;    // "chatgpt", "chatgptDeviceCode" or "apiKey"
    QString loginID; // Codex's id of the attempt, to match its completion
    QString url;     // the address to open (chatgpt) or to visit (device code)
    QString code;    // the one-time code to enter there (device code)
    QString error;   // Codex's text when the attempt failed

    friend bool operator==(const SignInState&, const SignInState&) = default;
};

} // namespace nimbrel
