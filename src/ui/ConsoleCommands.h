#pragma once

#include <QObject>

namespace nimbrel {

class BridgeController;

// Lines typed on standard input while there is no window:
//   approve <code>    accept the pairing showing that code
//   reject <code>     refuse it
//   forget <deviceID> end a device's trust
class ConsoleCommands : public QObject {
    Q_OBJECT
public:
    explicit ConsoleCommands(BridgeController& controller, QObject* parent = nullptr);

    // The answer to one line, for standard error.
    QString run(const QString& line);

private:
    BridgeController& m_controller;
};

} // namespace nimbrel
