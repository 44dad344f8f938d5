#pragma once

#include <QObject>
#include <QString>

#include <memory>

namespace nimbrel {

// DNS-SD on the local network through the Avahi daemon: publishes one service, or browses for a
// type. Avahi works on its own thread; every signal arrives on this object's thread.
class ServiceDiscovery : public QObject {
    Q_OBJECT
public:
    explicit ServiceDiscovery(QObject* parent = nullptr);
    ~ServiceDiscovery() override;

    // type such as "_sarvane._tcp"; txt entries such as "version=1".
    void publish(const QString& instanceName, const QString& type, quint16 port, const QStringList& txt);
    void browse(const QString& type);

signals:
    void failed(const QString& errorText);
    void serviceFound(const QString& name, const QString& address, quint16 port);
    void serviceLost(const QString& name);

private:
    struct Avahi;
    std::unique_ptr<Avahi> m_avahi;
};

} // namespace nimbrel
