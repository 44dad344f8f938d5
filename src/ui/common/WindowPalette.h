#pragma once

#include <QColor>
#include <QObject>

namespace nimbrel {

// The colours that carry a state (green ready, orange not, and the cards' own), by name, chosen to
// read on light and dark system palettes alike.
class WindowPalette : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    Q_INVOKABLE QColor color(const QString& name) const;
};

} // namespace nimbrel
