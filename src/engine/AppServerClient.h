#pragma once

#include "engine/AppServerError.h"
#include "engine/AppServerLineBuffer.h"
#include "peer/JSONValue.h"
#include "platform/Scheduler.h"

#include <QObject>
#include <QThread>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

class QProcess;

namespace nimbrel {

// Owns the one `codex app-server` child: launches it, performs the initialise exchange, sends
// requests with a 30-second limit, delivers notifications and server requests, writes answers,
// and relaunches a failed child at most twice. All state lives on a worker thread (the I/O
// queue); every callback and completion runs on the thread that created the client, in the order
// the I/O queue produced them.
class AppServerClient : public QObject {
    Q_OBJECT
public:
    using RequestResult = Result<JSONValue, AppServerError>;
    using RequestCompletion = std::function<void(const RequestResult&)>;
    using WriteCompletion = std::function<void(const std::optional<AppServerError>&)>;

    static constexpr int maximumRecoveryAttempts = 2;
    static constexpr double requestTimeoutSeconds = 30.0;
    static constexpr double recoveryDelaySeconds = 0.5;
    // Deliveries read from the engine and not yet taken by the owner's thread. Past this the I/O
    // queue stops reading the engine's output until the owner catches up, so the engine waits.
    static constexpr std::size_t maximumUndelivered = 4096;
    // Input written for the child that it has not read yet. Past this, writes fail at once.
    static constexpr qint64 maximumUnsentInputBytes = 16 * 1024 * 1024;
    // The longest line Codex reads; a longer request fails at once, saying so.
    static constexpr qint64 maximumLineBytes = 16 * 1024 * 1024;
    // "This message is too large to send (…)", for a line of this many bytes.
    static QString tooLargeText(qint64 bytes);

    explicit AppServerClient(Scheduler& scheduler, QObject* parent = nullptr);
    ~AppServerClient() override;

    // Assigned once, before start. Absent callbacks drop their events.
    std::function<void(const QString& method, const JSONValue& params)> onNotification;
    std::function<void(const JSONValue& id, const QString& method, const JSONValue& params)> onServerRequest;
    std::function<void(const QString& message, bool ready)> onStatus;
    std::function<void(const QString& line)> onLog;

    // The one way in: first start, restart and recheck. No executable means Codex was not found.
    void start(const std::optional<QString>& executable);
    void request(const QString& method, const JSONValue& params, RequestCompletion completion);
    // The completion runs once the answer has reached the child, or with "Write failed: …" when it
    // cannot.
    void respond(const JSONValue& id, const JSONValue& result, WriteCompletion completion = {});
    void respondError(const JSONValue& id, const QString& message);
    // While paused, nothing more is delivered: what the engine sends waits, up to the bound above,
    // and then in the engine. Deliveries resume in order.
    void setDeliveryPaused(bool paused);

private:
    using IoCompletion = std::function<void(const RequestResult&)>;
    struct PendingRequest {
        IoCompletion completion;
        TaskHandle timeout;
    };

    // I/O queue only.
    void launch(const std::optional<QString>& executable);
    void stopProcess();
    void retire(QProcess* child);
    void sendInitialize(QProcess* child, const QString& executable, qint64 generation);
    void sendRequest(const QString& method, const JSONValue& params, IoCompletion completion);
    std::optional<AppServerError> writeLine(const JSONValue& message, WriteCompletion reached = {});
    AppServerError writeFailed(const QString& reason);
    void writeProgressed(qint64 bytes);
    void failWrites(const AppServerError& error);
    void readOutput(QProcess* child);
    void readError(QProcess* child);
    void handleLine(const JSONValue& message);
    void handleReply(const JSONValue& message, const JSONValue& id);
    void handleTermination(qint64 generation, QProcess* child, const QString& executable, int exitCode);
    void failPending(const AppServerError& error);
    void scheduleRecovery(const QString& executable, const QString& reason);
    void emitStatus(const QString& message, bool ready);
    void log(const QString& line);
    IoCompletion onMainThread(RequestCompletion completion);

    // What goes to the owner's thread: a notification as a plain record, anything else as work.
    struct Delivery {
        QString method;
        JSONValue params;
        std::function<void()> work;
    };

    void onIoQueue(std::function<void()> work);
    void onMainQueue(std::function<void()> work);
    void deliver(Delivery delivery);
    void flushStaged();
    void drainMainQueue();
    QString methodName(std::string_view utf8);

    Scheduler& m_scheduler;
    QThread m_ioThread;
    QObject* m_io; // context object living on the I/O thread

    QProcess* m_process = nullptr;
    AppServerLineBuffer m_outputBuffer;
    qint64 m_nextID = 1;
    bool m_ready = false;
    qint64 m_lifecycleGeneration = 0;
    std::optional<QString> m_desiredExecutable;
    int m_recoveryAttempts = 0;
    TaskHandle m_scheduledRecovery;
    std::map<qint64, PendingRequest> m_pending;
    // Bytes handed to the current child and bytes it has taken, and who waits for which to arrive.
    qint64 m_bytesQueued = 0;
    qint64 m_bytesTaken = 0;
    std::vector<std::pair<qint64, WriteCompletion>> m_writeWaiters;
    std::optional<QString> m_inputBroken; // why the current child's input failed, once it has

    // While a chunk of output is read, deliveries gather here and leave together.
    bool m_staging = false;
    std::vector<Delivery> m_staged;
    std::string m_lastMethodUtf8;
    QString m_lastMethod;

    std::mutex m_outboxMutex;
    std::condition_variable m_outboxRoom;
    std::vector<Delivery> m_outbox;
    bool m_closing = false;        // guarded by m_outboxMutex
    bool m_deliveryPaused = false; // owner's thread
};

} // namespace nimbrel
