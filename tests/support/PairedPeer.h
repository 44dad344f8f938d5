#pragma once

#include "support/TestPeer.h"

#include <memory>

namespace nimbrel {
class BridgeController;
}

namespace nimbrel::test {

// A test peer that has connected to controller's link, greeted it, and been paired by the user.
std::unique_ptr<TestPeer> pairedPeer(BridgeController& controller, quint16 port,
                                     const QString& transportName,
                                     const QString& helloName = QStringLiteral("Test Phone"));

} // namespace nimbrel::test
