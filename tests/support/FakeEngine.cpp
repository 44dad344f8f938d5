#include "FakeEngine.h"

#include <QFile>

namespace nimbrel::test {

FakeEngine::FakeEngine(const JSONValue& scenario)
    : m_scenarioPath(m_folder.filePath(QStringLiteral("scenario.json")))
    , m_recordPath(m_folder.filePath(QStringLiteral("record.jsonl")))
{
    setScenario(scenario);
    qputenv("FAKE_CODEX_SCENARIO", m_scenarioPath.toUtf8());
    qputenv("FAKE_CODEX_RECORD", m_recordPath.toUtf8());
}

FakeEngine::~FakeEngine()
{
    qunsetenv("FAKE_CODEX_SCENARIO");
    qunsetenv("FAKE_CODEX_RECORD");
}

QString FakeEngine::executablePath()
{
    return QStringLiteral(FAKE_CODEX_PATH);
}

void FakeEngine::setScenario(const JSONValue& scenario)
{
    QFile file(m_scenarioPath);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        const std::string text = *scenario.encode();
        file.write(text.data(), static_cast<qint64>(text.size()));
    }
}

std::vector<JSONValue> FakeEngine::records() const
{
    std::vector<JSONValue> entries;
    QFile file(m_recordPath);
    if (!file.open(QIODevice::ReadOnly))
        return entries;
    for (const QByteArray& line : file.readAll().split('\n'))
        if (auto decoded = JSONValue::decode(std::string_view(line.constData(), line.size()));
            decoded.ok())
            entries.push_back(decoded.value());
    return entries;
}

std::vector<JSONValue> FakeEngine::received() const
{
    std::vector<JSONValue> messages;
    for (const JSONValue& entry : records())
        if (const JSONValue* message = entry.find("received"))
            messages.push_back(*message);
    return messages;
}

std::vector<std::string> FakeEngine::receivedMethods() const
{
    std::vector<std::string> methods;
    for (const JSONValue& message : received())
        if (const JSONValue* method = message.find("method"); method && method->isString())
            methods.emplace_back(*method->stringView());
    return methods;
}

int FakeEngine::launches() const
{
    int count = 0;
    for (const JSONValue& entry : records())
        if (const JSONValue* event = entry.find("event"); event && *event == JSONValue("start"))
            ++count;
    return count;
}

} // namespace nimbrel::test
