#pragma once

#include "support/EventLoop.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>

namespace nimbrel::test {

// A program of ours run for real, its output collected as it comes.
class RunningProgram {
public:
    RunningProgram(const QString& program, const QStringList& arguments,
                   const QProcessEnvironment& environment)
    {
        m_process.setProcessEnvironment(environment);
        QObject::connect(&m_process, &QProcess::readyReadStandardOutput,
                         [this] { out += QString::fromUtf8(m_process.readAllStandardOutput()); });
        QObject::connect(&m_process, &QProcess::readyReadStandardError,
                         [this] { err += QString::fromUtf8(m_process.readAllStandardError()); });
        m_process.start(program, arguments);
    }
    ~RunningProgram()
    {
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
        m_process.waitForFinished(5000);
    }
    void type(const QString& line) { m_process.write((line + "\n").toUtf8()); }
    // The process's resident memory now, and its peak so far, in MiB.
    double residentMiB() const { return statusMiB("VmRSS:"); }
    double peakMiB() const { return statusMiB("VmHWM:"); }
    bool saysOnError(const QString& text)
    {
        return waitFor([&] { return err.contains(text); });
    }
    bool waitForExit()
    {
        return waitFor([&] { return m_process.state() == QProcess::NotRunning; });
    }
    int exitCode() const { return m_process.exitCode(); }
    bool saysOnOutput(const QString& text)
    {
        return waitFor([&] { return out.contains(text); });
    }
    // The first group of pattern's first match on standard error (or output), waiting for one.
    QString captured(const QString& pattern,
                     const QString RunningProgram::*stream = &RunningProgram::err)
    {
        QString found;
        waitFor([&] {
            const auto match = QRegularExpression(pattern).match(this->*stream);
            found = match.hasMatch() ? match.captured(1) : QString();
            return !found.isEmpty();
        });
        return found;
    }

    QString out, err;

private:
    double statusMiB(const char* field) const
    {
        QFile status(QStringLiteral("/proc/%1/status").arg(m_process.processId()));
        status.open(QIODevice::ReadOnly);
        for (const QByteArray& line : status.readAll().split('\n'))
            if (line.startsWith(field))
                return line.simplified().split(' ').value(1).toDouble() / 1024;
        return -1;
    }
    QProcess m_process;
};

} // namespace nimbrel::test
