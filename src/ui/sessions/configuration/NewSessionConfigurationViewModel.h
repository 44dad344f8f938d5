#pragma once

#include "ui/common/RecordListModel.h"
#include "workspace/PermissionMode.h"

#include <QObject>

namespace nimbrel {

class CodexWorkspace;

// The model and effort chosen in the new-session sheet, before the session exists. An empty text
// is "Use Codex Default". Changing the model keeps an effort the new model offers, else falls to
// its default.
class NewSessionConfigurationViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(QString model READ model WRITE setModel NOTIFY changed)
    Q_PROPERTY(QString effort READ effort WRITE setEffort NOTIFY changed)
    Q_PROPERTY(nimbrel::RecordListModel* modelRows READ modelRows CONSTANT)
    Q_PROPERTY(int modelIndex READ modelIndex NOTIFY changed)
    Q_PROPERTY(nimbrel::RecordListModel* effortRows READ effortRows CONSTANT)
    Q_PROPERTY(int effortIndex READ effortIndex NOTIFY changed)
    Q_PROPERTY(QString statusText READ statusText NOTIFY changed)
    Q_PROPERTY(bool statusIsProgress READ statusIsProgress NOTIFY changed)
    Q_PROPERTY(bool statusShowsReload READ statusShowsReload NOTIFY changed)
    // The permission mode, by key; the rows have roles id, label, summary, colour and selected.
    Q_PROPERTY(QString permissionMode READ permissionMode WRITE setPermissionMode NOTIFY changed)
    Q_PROPERTY(nimbrel::RecordListModel* permissionRows READ permissionRows CONSTANT)

public:
    explicit NewSessionConfigurationViewModel(CodexWorkspace& workspace, QObject* parent = nullptr);

    static QVariantMap texts();
    const QString& model() const { return m_model; }
    void setModel(const QString& model);
    const QString& effort() const { return m_effort; }
    void setEffort(const QString& effort);
    // Roles id and label; the first row is "Use Codex Default".
    RecordListModel* modelRows() { return &m_modelRows; }
    int modelIndex() const;
    RecordListModel* effortRows() { return &m_effortRows; }
    int effortIndex() const;
    QString statusText() const;
    bool statusIsProgress() const;
    bool statusShowsReload() const;

    QString permissionMode() const;
    void setPermissionMode(const QString& key);
    RecordListModel* permissionRows() { return &m_permissionRows; }

    Q_INVOKABLE void reloadModels();

signals:
    void changed();

private:
    void refresh();

    CodexWorkspace& m_workspace;
    QString m_model;
    QString m_effort;
    RecordListModel m_modelRows{{"id", "label"}};
    RecordListModel m_effortRows{{"id", "label"}};
    PermissionMode m_permissionMode;
    RecordListModel m_permissionRows{{"id", "label", "summary", "colour", "selected"}};
};

} // namespace nimbrel
