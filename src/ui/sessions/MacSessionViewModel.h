#pragma once

#include "platform/Scheduler.h"
#include "ui/sessions/ComposerImages.h"
#include "ui/sessions/SessionPresentation.h"
#include "ui/sessions/UserInputRequestViewModel.h"
#include "ui/sessions/configuration/SessionConfigurationViewModel.h"
#include "ui/sessions/transcript/TranscriptViewModel.h"
#include "ui/usage/UsageStatusButtonViewModel.h"

#include <QObject>
#include <QVariantMap>

#include <map>

namespace nimbrel {

class CodexWorkspace;
class SessionActivityPreference;

// The pane of the selected session: its header, the page of its transcript on screen, whether the
// view follows live output, its open questions and the composer. It follows the workspace's
// selection; another thread resets the paging and the following.
//
// The view scrolls when scrollRequested says so: "bottom" aligns the end of the transcript with the
// bottom edge, "top" its start with the top edge, once the new content is laid out.
class MacSessionViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(bool present READ present NOTIFY threadChanged)
    Q_PROPERTY(QString threadID READ threadID NOTIFY threadChanged)
    Q_PROPERTY(QObject* transcript READ transcript NOTIFY threadChanged)
    Q_PROPERTY(QObject* configuration READ configuration NOTIFY threadChanged)
    Q_PROPERTY(QObject* usage READ usage NOTIFY threadChanged)
    Q_PROPERTY(QObject* images READ images NOTIFY threadChanged)
    Q_PROPERTY(QVariantList questions READ questions NOTIFY questionsChanged)
    Q_PROPERTY(QString title READ title NOTIFY changed)
    Q_PROPERTY(QString folder READ folder NOTIFY changed)
    Q_PROPERTY(QString phaseText READ phaseText NOTIFY changed)
    Q_PROPERTY(bool working READ working NOTIFY changed)
    Q_PROPERTY(bool stopEnabled READ stopEnabled NOTIFY changed)
    Q_PROPERTY(qint64 pageOffset READ pageOffset NOTIFY changed)
    Q_PROPERTY(bool showsEarlier READ showsEarlier NOTIFY changed)
    Q_PROPERTY(bool earlierEnabled READ earlierEnabled NOTIFY changed)
    Q_PROPERTY(QString earlierText READ earlierText NOTIFY changed)
    Q_PROPERTY(bool showsNewer READ showsNewer NOTIFY changed)
    // The block under the transcript: "loading", "unavailable", "ready" (for a task) or empty, with
    // its title, text, symbol and tint.
    Q_PROPERTY(QString stateKind READ stateKind NOTIFY changed)
    Q_PROPERTY(QString stateTitle READ stateTitle NOTIFY changed)
    Q_PROPERTY(QString stateText READ stateText NOTIFY changed)
    Q_PROPERTY(QString stateSymbol READ stateSymbol NOTIFY changed)
    Q_PROPERTY(QString stateTint READ stateTint NOTIFY changed)
    Q_PROPERTY(bool followsLiveOutput READ followsLiveOutput NOTIFY changed)
    Q_PROPERTY(bool showsFollowLive READ showsFollowLive NOTIFY changed)
    Q_PROPERTY(QString draft READ draft WRITE setDraft NOTIFY changed)
    Q_PROPERTY(QString placeholder READ placeholder NOTIFY changed)
    Q_PROPERTY(QString sendSymbol READ sendSymbol NOTIFY changed)
    Q_PROPERTY(QString sendLabel READ sendLabel NOTIFY changed)
    Q_PROPERTY(bool sendEnabled READ sendEnabled NOTIFY changed)

public:
    // How far the user must move the transcript before it stops following live output.
    static constexpr double followBreakDistance = 10;

    MacSessionViewModel(CodexWorkspace& workspace, Scheduler& scheduler,
                        SessionActivityPreference& preference, QObject* parent = nullptr);

    static QVariantMap texts();
    bool present() const { return m_transcript != nullptr; }
    QString threadID() const { return m_threadID; }
    TranscriptViewModel* transcriptView() const { return m_transcript; }
    QObject* transcript() const { return m_transcript; }
    QObject* configuration() const { return m_configuration; }
    QObject* usage() const { return m_usage; }
    QObject* images() const { return m_images; }
    ComposerImages* composerImages() const { return m_images; }
    QVariantList questions() const;

    QString title() const;
    QString folder() const;
    QString phaseText() const;
    bool working() const;
    bool stopEnabled() const;
    qint64 pageOffset() const { return m_pageOffset; }
    bool showsEarlier() const;
    bool earlierEnabled() const;
    QString earlierText() const;
    bool showsNewer() const { return m_pageOffset >= 1; }
    QString stateKind() const { return stateBlock().kind; }
    QString stateTitle() const { return stateBlock().title; }
    QString stateText() const { return stateBlock().text; }
    QString stateSymbol() const { return stateBlock().symbol; }
    QString stateTint() const { return stateBlock().tint; }
    bool followsLiveOutput() const { return m_followsLiveOutput; }
    bool showsFollowLive() const;
    QString draft() const;
    void setDraft(const QString& text);
    QString placeholder() const;
    QString sendSymbol() const;
    QString sendLabel() const;
    bool sendEnabled() const;

    Q_INVOKABLE void showEarlier();
    Q_INVOKABLE void showNewer();
    Q_INVOKABLE void followLive();
    // The user moved the transcript by distance (drag or wheel), while it scrolled.
    Q_INVOKABLE void userMoved(double distance);
    // The send button (only while sendEnabled) and the field's own submit action (always).
    Q_INVOKABLE void send();
    Q_INVOKABLE void submit();
    Q_INVOKABLE void stop();
    Q_INVOKABLE void tryAgain();
    // The transcript appeared on screen: an open question is brought into view.
    Q_INVOKABLE void appeared();

signals:
    void threadChanged();
    void questionsChanged();
    void changed();
    void scrollRequested(const QString& anchor);

private:
    const CodexSessionState* session() const;
    SessionStateBlock stateBlock() const;
    bool hasTurnID() const;
    void followSelection();
    void sessionChanged();
    void updateQuestions();
    void setPageOffset(qint64 offset);
    void followAndScroll();

    CodexWorkspace& m_workspace;
    Scheduler& m_scheduler;
    SessionActivityPreference& m_preference;
    QString m_threadID;
    qint64 m_pageOffset = 0;
    bool m_followsLiveOutput = true;
    TurnControlState::Phase m_lastPhase = TurnControlState::Phase::Idle;
    QStringList m_questionIDs;
    // Children for the shown thread; replaced ones are deleted once the view has let go of them.
    TranscriptViewModel* m_transcript = nullptr;
    SessionConfigurationViewModel* m_configuration = nullptr;
    UsageStatusButtonViewModel* m_usage = nullptr;
    ComposerImages* m_images = nullptr;
    std::map<QString, UserInputRequestViewModel*> m_questions; // by request id
};

} // namespace nimbrel
