#pragma once

#include "ui/common/RecordListModel.h"
#include "workspace/PermissionMode.h"

#include <QObject>

namespace nimbrel {

class CodexWorkspace;

// The model and thinking effort of one session as its menus, its header capsule and its settings
// sheet show them, and the choices they make. Choices apply to the next turn; during a turn the
// options are disabled and the hints say why.
class SessionConfigurationViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(bool isIdle READ isIdle NOTIFY changed)
    // The model menu.
    Q_PROPERTY(QString modelName READ modelName NOTIFY changed)
    Q_PROPERTY(QString modelAccessibleName READ modelAccessibleName NOTIFY changed)
    Q_PROPERTY(QString modelHint READ modelHint NOTIFY changed)
    Q_PROPERTY(nimbrel::RecordListModel* modelOptions READ modelOptions CONSTANT)
    Q_PROPERTY(QString modelsPlaceholder READ modelsPlaceholder NOTIFY changed)
    Q_PROPERTY(QString modelLoadError READ modelLoadError NOTIFY changed)
    // The effort menu.
    Q_PROPERTY(QString effortName READ effortName NOTIFY changed)
    Q_PROPERTY(QString effortLabel READ effortLabel NOTIFY changed)
    Q_PROPERTY(QString effortAccessibleName READ effortAccessibleName NOTIFY changed)
    Q_PROPERTY(QString effortHint READ effortHint NOTIFY changed)
    Q_PROPERTY(nimbrel::RecordListModel* effortOptions READ effortOptions CONSTANT)
    Q_PROPERTY(QString effortsPlaceholder READ effortsPlaceholder NOTIFY changed)
    // The settings sheet.
    Q_PROPERTY(nimbrel::RecordListModel* modelPickerRows READ modelPickerRows CONSTANT)
    Q_PROPERTY(int modelPickerIndex READ modelPickerIndex NOTIFY changed)
    Q_PROPERTY(bool modelNoteIsProgress READ modelNoteIsProgress NOTIFY changed)
    Q_PROPERTY(bool modelNoteShowsReload READ modelNoteShowsReload NOTIFY changed)
    Q_PROPERTY(QString modelNote READ modelNote NOTIFY changed)
    Q_PROPERTY(nimbrel::RecordListModel* effortPickerRows READ effortPickerRows CONSTANT)
    Q_PROPERTY(int effortPickerIndex READ effortPickerIndex NOTIFY changed)
    Q_PROPERTY(QString effortNote READ effortNote NOTIFY changed)
    Q_PROPERTY(QString footer READ footer NOTIFY changed)
    Q_PROPERTY(QString footerSymbol READ footerSymbol NOTIFY changed)
    // The permission mode for the next turn: its title, colour, and the menu's rows (roles id,
    // label, summary, colour and selected).
    Q_PROPERTY(QString permissionTitle READ permissionTitle NOTIFY changed)
    Q_PROPERTY(QString permissionColour READ permissionColour NOTIFY changed)
    Q_PROPERTY(QString permissionSummary READ permissionSummary NOTIFY changed)
    Q_PROPERTY(nimbrel::RecordListModel* permissionOptions READ permissionOptions CONSTANT)

public:
    SessionConfigurationViewModel(CodexWorkspace& workspace, QString threadID,
                                  QObject* parent = nullptr);

    static QVariantMap texts();
    bool isIdle() const;
    QString modelName() const;
    QString modelAccessibleName() const { return QStringLiteral("Model, ") + modelName(); }
    QString modelHint() const;
    // Roles id, label and selected.
    RecordListModel* modelOptions() { return &m_modelOptions; }
    QString modelsPlaceholder() const;
    QString modelLoadError() const;
    QString effortName() const;
    QString effortLabel() const { return QStringLiteral("Thinking: ") + effortName(); }
    QString effortAccessibleName() const
    {
        return QStringLiteral("Thinking depth, ") + effortName();
    }
    QString effortHint() const;
    // Roles id, label and selected.
    RecordListModel* effortOptions() { return &m_effortOptions; }
    QString effortsPlaceholder() const;
    // Roles id and label.
    RecordListModel* modelPickerRows() { return &m_modelPickerRows; }
    int modelPickerIndex() const;
    bool modelNoteIsProgress() const;
    bool modelNoteShowsReload() const;
    QString modelNote() const;
    RecordListModel* effortPickerRows() { return &m_effortPickerRows; }
    int effortPickerIndex() const;
    QString effortNote() const;
    QString footer() const;
    QString footerSymbol() const;

    Q_INVOKABLE void chooseModel(const QString& modelID);
    Q_INVOKABLE void chooseEffort(const QString& effort);
    QString permissionTitle() const;
    QString permissionColour() const;
    QString permissionSummary() const;
    RecordListModel* permissionOptions() { return &m_permissionOptions; }

    Q_INVOKABLE void reloadModels();
    // Applies from the session's next turn on, even while one runs.
    Q_INVOKABLE void choosePermissionMode(const QString& key);

signals:
    void changed();

private:
    void refresh();
    QString effectiveModelID() const;
    // Nothing while nobody has chosen one and Codex has not reported one.
    std::optional<PermissionMode> permissionMode() const;

    CodexWorkspace& m_workspace;
    QString m_threadID;
    RecordListModel m_modelOptions{{"id", "label", "selected"}};
    RecordListModel m_effortOptions{{"id", "label", "selected"}};
    RecordListModel m_modelPickerRows{{"id", "label"}};
    RecordListModel m_effortPickerRows{{"id", "label"}};
    RecordListModel m_permissionOptions{{"id", "label", "summary", "colour", "selected"}};
};

} // namespace nimbrel
