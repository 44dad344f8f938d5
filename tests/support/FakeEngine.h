#pragma once

#include "peer/JSONValue.h"

#include <QString>
#include <QTemporaryDir>

#include <vector>

namespace nimbrel::test {

// A scenario for the fake engine in a temporary folder, and what the engine recorded.
// Setting it up points the fake engine at the scenario through the environment of this process,
// which children inherit.
class FakeEngine {
public:
    explicit FakeEngine(const JSONValue& scenario = JSONValue::object({}));
    ~FakeEngine();

    static QString executablePath();
    void setScenario(const JSONValue& scenario);
    QString folder() const { return m_folder.path(); }

    // Every entry written so far, in order.
    std::vector<JSONValue> records() const;
    // The messages the engine read, in order.
    std::vector<JSONValue> received() const;
    // Methods of the messages read, in order.
    std::vector<std::string> receivedMethods() const;
    int launches() const;

private:
    QTemporaryDir m_folder;
    QString m_scenarioPath;
    QString m_recordPath;
};

} // namespace nimbrel::test
