#pragma once

#include <QSettings>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <memory>
#include <optional>

namespace nimbrel {

// The user's choices that outlive the process, by key.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;
    virtual QVariant value(const QString& key) const = 0;
    virtual void setValue(const QString& key, const QVariant& value) = 0;
    virtual void remove(const QString& key) = 0;

    // The text under key, where one is stored as text.
    std::optional<QString> string(const QString& key) const;
    QStringList stringList(const QString& key) const;
};

// User defaults kept by QSettings: the user's configuration file, or a file of the caller's.
class SettingsUserDefaults final : public UserDefaults {
public:
    SettingsUserDefaults();
    explicit SettingsUserDefaults(const QString& filePath);

    QVariant value(const QString& key) const override;
    void setValue(const QString& key, const QVariant& value) override;
    void remove(const QString& key) override;

private:
    std::unique_ptr<QSettings> m_settings;
};

// User defaults that last as long as the object: for tools, benchmarks and runs that must leave
// nothing behind.
class MemoryUserDefaults final : public UserDefaults {
public:
    QVariant value(const QString& key) const override { return m_values.value(key); }
    void setValue(const QString& key, const QVariant& value) override { m_values.insert(key, value); }
    void remove(const QString& key) override { m_values.remove(key); }

private:
    QVariantMap m_values;
};

} // namespace nimbrel
