#pragma once

#include <QObject>

class QSocketNotifier;

namespace nimbrel {

// Standard input read without blocking, one trimmed line at a time. At its end, reading stops.
class StandardInputLines : public QObject {
    Q_OBJECT
public:
    explicit StandardInputLines(QObject* parent = nullptr);

signals:
    void lineRead(const QString& line);

private:
    void readAvailable();

    QSocketNotifier* m_notifier;
    QByteArray m_pending;
};

} // namespace nimbrel
