#pragma once

#include "ui/common/RecordListModel.h"

#include <QObject>

namespace nimbrel {

class CodexWorkspace;
struct UserInputPrompt;

// The card in which the user of this computer answers one question of the engine: its title, one
// block per question with its rows (one radio group) and its field, the error and the send button.
// It reads the prompt from the workspace and writes drafts back; it keeps nothing of its own. The
// engine's texts are shown with their control characters escaped, line breaks kept.
class UserInputRequestViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString title READ title NOTIFY changed)
    Q_PROPERTY(QString symbol READ symbol CONSTANT)
    Q_PROPERTY(nimbrel::RecordListModel* questions READ questions CONSTANT)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY changed)
    Q_PROPERTY(bool canSend READ canSend NOTIFY changed)
    Q_PROPERTY(bool isSubmitting READ isSubmitting NOTIFY changed)
    Q_PROPERTY(QString sendText READ sendText NOTIFY changed)
    Q_PROPERTY(QString sendSymbol READ sendSymbol CONSTANT)
    Q_PROPERTY(QString submitID READ submitID CONSTANT)

public:
    // Roles of a question: questionID, header, question, rows (each: label, detail, selected,
    // accessibilityID, option: the option's index or -1 for the written answer), showsField,
    // isSecret, text, placeholder, fieldID.
    static const QList<QByteArray> roles;

    UserInputRequestViewModel(CodexWorkspace& workspace, QString threadID, QString requestID,
                              QObject* parent = nullptr);

    QString title() const;
    static QString symbol() { return QStringLiteral("dialog-question"); }
    RecordListModel* questions() { return &m_questions; }
    QString errorMessage() const;
    bool canSend() const;
    bool isSubmitting() const;
    QString sendText() const;
    static QString sendSymbol() { return QStringLiteral("mail-send"); }
    QString submitID() const { return QStringLiteral("question-submit-") + m_requestID; }

    // A row pressed: an option by its index, or -1 for the written answer.
    Q_INVOKABLE void choose(const QString& questionID, int option);
    Q_INVOKABLE void setText(const QString& questionID, const QString& text);
    Q_INVOKABLE void send();

signals:
    void changed();

private:
    const UserInputPrompt* prompt() const;
    void refresh();

    CodexWorkspace& m_workspace;
    QString m_threadID;
    QString m_requestID;
    RecordListModel m_questions{roles};
};

} // namespace nimbrel
