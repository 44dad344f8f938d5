#include "UserDefaults.h"

namespace nimbrel {

std::optional<QString> UserDefaults::string(const QString& key) const
{
    const QVariant stored = value(key);
    if (stored.typeId() != QMetaType::QString)
        return std::nullopt;
    return stored.toString();
}

QStringList UserDefaults::stringList(const QString& key) const
{
    const QVariant stored = value(key);
    if (stored.typeId() == QMetaType::QStringList)
        return stored.toStringList();
    // A list of one is read back from the settings file as plain text.
    if (stored.typeId() == QMetaType::QString)
        return {stored.toString()};
    if (stored.typeId() == QMetaType::QVariantList) {
        QStringList texts;
        for (const QVariant& item : stored.toList())
            if (item.typeId() == QMetaType::QString)
                texts.append(item.toString());
        return texts;
    }
    return {};
}

SettingsUserDefaults::SettingsUserDefaults()
    : m_settings(std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                             QStringLiteral("nimbrel-bridge"), QStringLiteral("nimbrel-bridge")))
{
}

SettingsUserDefaults::SettingsUserDefaults(const QString& filePath)
    : m_settings(std::make_unique<QSettings>(filePath, QSettings::IniFormat))
{
}

QVariant SettingsUserDefaults::value(const QString& key) const { return m_settings->value(key); }

void SettingsUserDefaults::setValue(const QString& key, const QVariant& value)
{
    // QSettings writes its file back by itself once the event loop runs, and when it is destroyed.
    m_settings->setValue(key, value);
}

void SettingsUserDefaults::remove(const QString& key)
{
    m_settings->remove(key);
}

} // namespace nimbrel
