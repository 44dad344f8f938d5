#include "AppServerClient.h"

#include "engine/ChildEnvironment.h"
#include "engine/TerminalText.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QStringDecoder>

#include <algorithm>
#include <cmath>

namespace nimbrel {

namespace {

const QStringList launchArguments{QStringLiteral("app-server"), QStringLiteral("-c"),
                                  QStringLiteral("features.default_mode_request_user_input=true")};

constexpr double secondsBeforeKillingARetiredChild = 5.0;

QString clientVersion()
{
    const QString version = QCoreApplication::applicationVersion();
    return version.isEmpty() ? QStringLiteral("0.1.0") : version;
}

// The text of an error reply: its message where that is text, else the whole value as text.
QString errorText(const JSONValue& error)
{
    if (const auto members = error.objectValue(); members && !members->empty())
        if (const JSONValue* message = error.find("message"); message && message->isString())
            return *message->stringValue();
    return error.textForm();
}

} // namespace

AppServerClient::AppServerClient(Scheduler& scheduler, QObject* parent)
    : QObject(parent), m_scheduler(scheduler), m_io(new QObject)
{
    m_ioThread.setObjectName(QStringLiteral("com.halvenworks.sarvane.appserver"));
    m_io->moveToThread(&m_ioThread);
    m_ioThread.start();
}

AppServerClient::~AppServerClient()
{
    {
        std::lock_guard lock(m_outboxMutex);
        m_closing = true;
    }
    m_outboxRoom.notify_all();
    // Released: nothing more reaches the owner, and the child goes with the client.
    QMetaObject::invokeMethod(
        m_io,
        [this] {
            ++m_lifecycleGeneration;
            if (m_scheduledRecovery)
                m_scheduledRecovery->cancel();
            for (auto& [id, entry] : m_pending)
                entry.timeout->cancel();
            m_pending.clear();
            m_process = nullptr;
            // The current child and retired ones still shutting down end with the client.
            for (QProcess* child : m_io->findChildren<QProcess*>()) {
                QObject::disconnect(child, nullptr, nullptr, nullptr);
                child->terminate();
                if (!child->waitForFinished(500)) {
                    child->kill();
                    child->waitForFinished(1000);
                }
                delete child;
            }
        },
        Qt::BlockingQueuedConnection);
    m_ioThread.quit();
    m_ioThread.wait();
    delete m_io;
}

// ---- the four operations

void AppServerClient::start(const std::optional<QString>& executable)
{
    onIoQueue([this, executable] {
        m_desiredExecutable = executable;
        m_recoveryAttempts = 0;
        if (m_scheduledRecovery) {
            m_scheduledRecovery->cancel();
            m_scheduledRecovery.reset();
        }
        launch(executable);
    });
}

void AppServerClient::request(const QString& method, const JSONValue& params, RequestCompletion completion)
{
    onIoQueue([this, method, params, completion = std::move(completion)]() mutable {
        if (!m_ready) {
            onMainQueue([completion = std::move(completion)] { completion(AppServerError::notReady()); });
            return;
        }
        sendRequest(method, params, onMainThread(std::move(completion)));
    });
}

void AppServerClient::respond(const JSONValue& id, const JSONValue& result, WriteCompletion completion)
{
    onIoQueue([this, id, result, completion = std::move(completion)]() mutable {
        // Whatever the outcome, the completion runs on the owner's thread, once.
        WriteCompletion reached = [this, completion = std::move(completion)](const std::optional<AppServerError>& outcome) {
            if (completion)
                onMainQueue([completion, outcome] { completion(outcome); });
        };
        if (!m_ready)
            return reached(AppServerError::notReady());
        writeLine(JSONValue::object({{"id", id}, {"result", result}}), std::move(reached));
    });
}

void AppServerClient::respondError(const JSONValue& id, const QString& message)
{
    onIoQueue([this, id, message] {
        writeLine(JSONValue::object(
            {{"id", id}, {"error", JSONValue::object({{"code", -32601}, {"message", message}})}}));
    });
}

// ---- launching and stopping

void AppServerClient::launch(const std::optional<QString>& executable)
{
    stopProcess();
    if (!executable) {
        emitStatus(AppServerError::codexNotFound().text(), false);
        return;
    }
    auto* child = new QProcess(m_io);
    child->setProgram(*executable);
    child->setArguments(launchArguments);
    child->setProcessEnvironment(childEnvironment(*executable));
    child->setWorkingDirectory(QDir::homePath());
    connect(child, &QProcess::readyReadStandardOutput, m_io, [this, child] { readOutput(child); });
    connect(child, &QProcess::readyReadStandardError, m_io, [this, child] { readError(child); });

    const qint64 generation = ++m_lifecycleGeneration;
    const QString path = *executable;
    connect(child, &QProcess::finished, m_io, [this, generation, child, path](int exitCode, QProcess::ExitStatus) {
        handleTermination(generation, child, path, exitCode);
    });
    // A failed write surfaces here, after QProcess has flushed its buffer to a pipe with no reader.
    connect(child, &QProcess::errorOccurred, m_io, [this, child](QProcess::ProcessError error) {
        if (error == QProcess::WriteError) {
            m_inputBroken = child->errorString();
            failWrites(writeFailed(*m_inputBroken));
        }
    });
    connect(child, &QProcess::bytesWritten, m_io, [this](qint64 bytes) { writeProgressed(bytes); });

    child->start(QIODevice::ReadWrite);
    if (!child->waitForStarted(-1)) {
        const QString reason = child->errorString();
        QObject::disconnect(child, nullptr, m_io, nullptr);
        child->deleteLater();
        scheduleRecovery(path, reason);
        return;
    }
    m_process = child;
    emitStatus(QStringLiteral("Starting Codex app-server…"), false);
    sendInitialize(child, path, generation);
}

void AppServerClient::stopProcess()
{
    ++m_lifecycleGeneration;
    m_ready = false;
    if (m_process) {
        QObject::disconnect(m_process, nullptr, m_io, nullptr);
        retire(m_process);
        m_process = nullptr;
    }
    m_outputBuffer.clear();
    failPending(AppServerError::notReady());
    failWrites(AppServerError::notReady());
    m_bytesQueued = m_bytesTaken = 0;
    m_inputBroken.reset();
}

// Lets an old child end on its own terms: asked to stop, killed if it will not, then deleted.
void AppServerClient::retire(QProcess* child)
{
    if (child->state() == QProcess::NotRunning) {
        child->deleteLater();
        return;
    }
    connect(child, &QProcess::finished, child, &QObject::deleteLater);
    child->terminate();
    m_scheduler.schedule(child, secondsBeforeKillingARetiredChild, [child] { child->kill(); });
}

void AppServerClient::sendInitialize(QProcess* child, const QString& executable, qint64 generation)
{
    const JSONValue params = JSONValue::object({
        {"clientInfo", JSONValue::object({{"name", "sar_vane_bridge"},
                                          {"title", "Nimbrel Bridge"},
                                          {"version", clientVersion()}})},
        {"capabilities", JSONValue::object({{"experimentalApi", true}})},
    });
    sendRequest(QStringLiteral("initialize"), params,
                [this, child, executable, generation](const RequestResult& result) {
                    if (m_lifecycleGeneration != generation || m_process != child)
                        return;
                    if (!result.ok()) {
                        scheduleRecovery(executable,
                                         QStringLiteral("Initialization failed: ") + result.error().text());
                        return;
                    }
                    writeLine(JSONValue::object(
                        {{"method", "initialized"}, {"params", JSONValue::object({})}}));
                    m_ready = true;
                    m_recoveryAttempts = 0;
                    emitStatus(QStringLiteral("Codex app-server ready"), true);
                });
}

// ---- requests and writing

void AppServerClient::sendRequest(const QString& method, const JSONValue& params, IoCompletion completion)
{
    const qint64 id = m_nextID++;
    TaskHandle timeout = m_scheduler.schedule(m_io, requestTimeoutSeconds, [this, id, method] {
        const auto entry = m_pending.find(id);
        if (entry == m_pending.end())
            return;
        IoCompletion completion = std::move(entry->second.completion);
        m_pending.erase(entry);
        completion(AppServerError::requestTimedOut(method));
    });
    m_pending.emplace(id, PendingRequest{std::move(completion), std::move(timeout)});
    // A request that cannot be written fails at once rather than waiting for its limit.
    const std::optional<AppServerError> error =
        writeLine(JSONValue::object({{"id", static_cast<double>(id)}, {"method", method}, {"params", params}}));
    const auto entry = error ? m_pending.find(id) : m_pending.end();
    if (entry == m_pending.end())
        return;
    IoCompletion failed = std::move(entry->second.completion);
    m_pending.erase(entry);
    failed(*error);
}

AppServerClient::IoCompletion AppServerClient::onMainThread(RequestCompletion completion)
{
    return [this, completion = std::move(completion)](const RequestResult& result) {
        onMainQueue([completion, result] { completion(result); });
    };
}

std::optional<AppServerError> AppServerClient::writeLine(const JSONValue& message, WriteCompletion reached)
{
    const auto fail = [&](const AppServerError& error) {
        if (reached)
            reached(error);
        return error;
    };
    if (!m_process)
        return fail(AppServerError::notReady());
    std::string line;
    if (!message.encodeTo(line))
        return fail(writeFailed(message.encode().error().message));
    line.push_back('\n');
    const auto size = static_cast<qint64>(line.size());
    if (size > maximumLineBytes)
        return fail(AppServerError::server(tooLargeText(size)));
    // QProcess would take more after a failed write, and never send it.
    if (m_inputBroken)
        return fail(writeFailed(*m_inputBroken));
    // A child that does not read makes no one wait for ever, and holds no unbounded input.
    if (m_process->bytesToWrite() + size > maximumUnsentInputBytes)
        return fail(writeFailed(QStringLiteral("Codex is not reading its input.")));
    if (m_process->write(line.data(), size) != size)
        return fail(writeFailed(m_process->errorString()));
    m_bytesQueued += size;
    if (reached)
        m_writeWaiters.emplace_back(m_bytesQueued, std::move(reached));
    return std::nullopt;
}

QString AppServerClient::tooLargeText(qint64 bytes)
{
    constexpr double megabyte = 1024.0 * 1024.0;
    return QStringLiteral("This message is too large to send (%1 MB; Codex takes at most %2 MB). "
                          "Remove an image or shorten the text, then send it again.")
        .arg(double(bytes) / megabyte, 0, 'f', 1)
        .arg(double(maximumLineBytes) / megabyte, 0, 'f', 0);
}

// Logs the failure and gives the error that callers get.
AppServerError AppServerClient::writeFailed(const QString& reason)
{
    const QString text = QStringLiteral("Write failed: ") + reason;
    log(text);
    return AppServerError::server(text);
}

void AppServerClient::writeProgressed(qint64 bytes)
{
    m_bytesTaken += bytes;
    const auto arrived = std::find_if(m_writeWaiters.begin(), m_writeWaiters.end(),
                                      [this](const auto& waiter) { return waiter.first > m_bytesTaken; });
    std::vector<std::pair<qint64, WriteCompletion>> done(std::make_move_iterator(m_writeWaiters.begin()),
                                                         std::make_move_iterator(arrived));
    m_writeWaiters.erase(m_writeWaiters.begin(), arrived);
    for (auto& [target, reached] : done)
        reached(std::nullopt);
}

void AppServerClient::failWrites(const AppServerError& error)
{
    for (auto& [target, reached] : std::exchange(m_writeWaiters, {}))
        reached(error);
}

// ---- reading

void AppServerClient::readOutput(QProcess* child)
{
    const QByteArray bytes = child->readAllStandardOutput();
    if (bytes.isEmpty())
        return;
    m_staging = true;
    m_outputBuffer.consume(std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())), [this](std::string_view line) {
        auto decoded = JSONValue::decode(line);
        if (!decoded.ok()) {
            log(QStringLiteral("Could not decode a Codex response (") + QString::number(line.size())
                + QStringLiteral(" bytes): ") + decoded.error().message);
            return;
        }
        handleLine(decoded.value());
    });
    m_staging = false;
    flushStaged();
}

void AppServerClient::readError(QProcess* child)
{
    const QByteArray bytes = child->readAllStandardError();
    if (bytes.isEmpty())
        return;
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder(bytes);
    if (decoder.hasError())
        return;
    // Codex colours its own log for a terminal; the log shows the words.
    log(withoutTerminalSequences(text).trimmed());
}

void AppServerClient::handleLine(const JSONValue& message)
{
    const auto members = message.objectValue();
    if (!members || members->empty())
        return;
    const JSONValue* method = message.find("method");
    if (method && method->isString()) {
        const QString name = methodName(*method->stringView());
        const JSONValue* given = message.find("params");
        const JSONValue params = given ? *given : JSONValue::object({});
        if (const JSONValue* id = message.find("id")) {
            onMainQueue([this, id = *id, name, params] {
                if (onServerRequest)
                    onServerRequest(id, name, params);
            });
        } else {
            deliver(Delivery{name, params, nullptr});
        }
        return;
    }
    if (const JSONValue* id = message.find("id"); id && id->isNumber())
        handleReply(message, *id);
}

void AppServerClient::handleReply(const JSONValue& message, const JSONValue& id)
{
    const double number = *id.numberValue();
    // Ids beyond the 64-bit range match nothing that was sent.
    if (!std::isfinite(number) || std::fabs(number) >= 9223372036854775808.0)
        return;
    const auto entry = m_pending.find(static_cast<qint64>(number));
    if (entry == m_pending.end())
        return;
    PendingRequest pending = std::move(entry->second);
    m_pending.erase(entry);
    pending.timeout->cancel();
    if (const JSONValue* error = message.find("error"))
        pending.completion(AppServerError::server(errorText(*error)));
    else if (const JSONValue* result = message.find("result"))
        pending.completion(*result);
    else
        pending.completion(AppServerError::invalidResponse());
}

// ---- the end of a child and recovery

void AppServerClient::handleTermination(qint64 generation, QProcess* child, const QString& executable, int exitCode)
{
    if (m_lifecycleGeneration != generation || m_process != child)
        return;
    m_ready = false;
    QObject::disconnect(child, nullptr, m_io, nullptr);
    child->deleteLater();
    m_process = nullptr;
    m_outputBuffer.clear();
    const AppServerError error = AppServerError::terminated(exitCode);
    failPending(error);
    failWrites(error);
    m_bytesQueued = m_bytesTaken = 0;
    m_inputBroken.reset();
    scheduleRecovery(executable, error.text());
}

void AppServerClient::failPending(const AppServerError& error)
{
    std::map<qint64, PendingRequest> failed;
    failed.swap(m_pending);
    for (auto& [id, entry] : failed) {
        entry.timeout->cancel();
        entry.completion(error);
    }
}

void AppServerClient::scheduleRecovery(const QString& executable, const QString& reason)
{
    if (m_desiredExecutable != executable || m_recoveryAttempts >= maximumRecoveryAttempts) {
        emitStatus(reason, false);
        return;
    }
    const int attempt = ++m_recoveryAttempts;
    const qint64 generation = m_lifecycleGeneration;
    // The retry is on the clock before anyone hears of it, so that whoever reads the line below
    // and moves the clock on finds it there.
    if (m_scheduledRecovery)
        m_scheduledRecovery->cancel();
    m_scheduledRecovery = m_scheduler.schedule(m_io, attempt * recoveryDelaySeconds, [this, generation, executable] {
        if (m_lifecycleGeneration != generation || m_desiredExecutable != executable)
            return;
        m_scheduledRecovery.reset();
        launch(executable);
    });
    emitStatus(QStringLiteral("Codex connection interrupted; reconnecting automatically…"), false);
    // The engine's own text goes in as it is: no placeholder of it is ever filled.
    log(reason + QStringLiteral(" Retry ") + QString::number(attempt) + QStringLiteral(" of ")
        + QString::number(maximumRecoveryAttempts) + QLatin1Char('.'));
}

void AppServerClient::emitStatus(const QString& message, bool ready)
{
    onMainQueue([this, message, ready] {
        if (onStatus)
            onStatus(message, ready);
    });
}

void AppServerClient::log(const QString& line)
{
    onMainQueue([this, line] {
        if (onLog)
            onLog(line);
    });
}

// ---- queues

void AppServerClient::onIoQueue(std::function<void()> work)
{
    QMetaObject::invokeMethod(m_io, std::move(work), Qt::QueuedConnection);
}

// Deliveries to the owner's thread keep the I/O queue's order. A burst of them travels as one
// event: the first item of an empty outbox posts the drain, later ones ride along with it.
void AppServerClient::onMainQueue(std::function<void()> work) { deliver(Delivery{{}, {}, std::move(work)}); }

void AppServerClient::deliver(Delivery delivery)
{
    m_staged.push_back(std::move(delivery));
    if (!m_staging)
        flushStaged();
}

void AppServerClient::flushStaged()
{
    if (m_staged.empty())
        return;
    bool first;
    {
        std::unique_lock lock(m_outboxMutex);
        first = m_outbox.empty();
        if (first)
            m_outbox.swap(m_staged);
        else
            std::move(m_staged.begin(), m_staged.end(), std::back_inserter(m_outbox));
        m_staged.clear();
        if (first)
            QMetaObject::invokeMethod(this, &AppServerClient::drainMainQueue, Qt::QueuedConnection);
        // Reading no more makes the engine's own writes wait once the pipe is full.
        m_outboxRoom.wait(lock, [this] { return m_outbox.size() < maximumUndelivered || m_closing; });
    }
}

void AppServerClient::drainMainQueue()
{
    if (m_deliveryPaused)
        return; // resuming drains
    std::vector<Delivery> batch;
    {
        std::lock_guard lock(m_outboxMutex);
        batch.swap(m_outbox);
    }
    m_outboxRoom.notify_all();
    for (Delivery& delivery : batch) {
        if (delivery.work)
            delivery.work();
        else if (onNotification)
            onNotification(delivery.method, delivery.params);
    }
}

void AppServerClient::setDeliveryPaused(bool paused)
{
    if (m_deliveryPaused == paused)
        return;
    m_deliveryPaused = paused;
    if (!paused)
        QMetaObject::invokeMethod(this, &AppServerClient::drainMainQueue, Qt::QueuedConnection);
}

// Notifications mostly repeat a few names; equal names share one text.
QString AppServerClient::methodName(std::string_view utf8)
{
    if (utf8 != m_lastMethodUtf8) {
        m_lastMethodUtf8.assign(utf8);
        m_lastMethod = QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
    }
    return m_lastMethod;
}

} // namespace nimbrel
