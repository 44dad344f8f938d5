#pragma once

#include <QObject>
#include <QSet>

#include <functional>
#include <optional>

namespace nimbrel {

class BridgeController;

// Lines typed on standard input while there is no window:
//   approve <code>                 accept the pairing showing that code
//   reject <code>                  refuse it
//   forget <deviceID>              end a device's trust
//   accept | accept-session | decline [<id>]
//                                  decide the approval shown (its id, or the start of it, to be
//                                  sure). Without an id only the approval printed last is decided:
//                                  where another one has taken its place by then (a phone answered
//                                  first), the command is refused, naming the one shown now.
//   answer <id> <reply> [| <reply>…]
//                                  answer a question: one reply per question, an option's number or
//                                  a text
//   fill <name>=<value> [| <name>=<value>…]
//                                  send the form a tool server asks for (blank fields take their
//                                  defaults); decline and cancel refuse it, done answers an address
//                                  the user has visited
//   login                          sign Codex in with a code entered at an address on any device
// Approvals and questions are printed as they arrive, with their ids.
class ConsoleCommands : public QObject {
    Q_OBJECT
public:
    // print takes every line meant for the user; by default standard error.
    explicit ConsoleCommands(BridgeController& controller,
                             std::function<void(const QString&)> print = {},
                             QObject* parent = nullptr);

    // The answer to one line.
    QString run(const QString& line);

private:
    QString runPairing(const QString& command, const QString& argument);
    QString decideApproval(const QString& decision, const QString& id);
    QString answerQuestion(const QString& arguments);
    QString answerForm(const QString& action, const QString& arguments);
    // Why a decision typed without an id must not decide the approval shown now, else nothing.
    std::optional<QString> shownChangedSincePrinted();
    void showApproval();
    void showNewQuestions();

    BridgeController& m_controller;
    std::function<void(const QString&)> m_print;
    QSet<QString> m_shownQuestions;
    // The approval a decision without an id is meant for: the one printed last, until it is
    // decided here or the user is told that another one took its place.
    QString m_printedApprovalID;
};

} // namespace nimbrel
