#include "ServiceDiscovery.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/thread-watch.h>

#include <QStringList>

namespace nimbrel {

struct ServiceDiscovery::Avahi {
    ServiceDiscovery* owner = nullptr;
    AvahiThreadedPoll* poll = nullptr;
    AvahiClient* client = nullptr;
    AvahiEntryGroup* group = nullptr;
    AvahiServiceBrowser* browser = nullptr;
    bool publishing = false;
    QByteArray name, type;
    quint16 port = 0;
    QStringList txt;

    // Runs on Avahi's thread; everything the owner sees hops to its thread.
    void report(std::function<void(ServiceDiscovery*)> event)
    {
        QMetaObject::invokeMethod(owner, [owner = owner, event = std::move(event)] { event(owner); }, Qt::QueuedConnection);
    }
    void fail(int error)
    {
        const QString text = QString::fromUtf8(avahi_strerror(error));
        report([text](ServiceDiscovery* o) { emit o->failed(text); });
    }

    void addService(AvahiClient* c)
    {
        if (!group)
            group = avahi_entry_group_new(c, &Avahi::groupChanged, this);
        if (!group) {
            fail(avahi_client_errno(c));
            return;
        }
        if (!avahi_entry_group_is_empty(group))
            return;
        AvahiStringList* list = nullptr;
        for (const QString& entry : txt)
            list = avahi_string_list_add(list, entry.toUtf8().constData());
        int error = avahi_entry_group_add_service_strlst(group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags(0),
                                                        name.constData(), type.constData(), nullptr, nullptr, port, list);
        avahi_string_list_free(list);
        if (error >= 0)
            error = avahi_entry_group_commit(group);
        if (error < 0)
            fail(error);
    }

    static void clientChanged(AvahiClient* c, AvahiClientState state, void* context)
    {
        auto* self = static_cast<Avahi*>(context);
        if (state == AVAHI_CLIENT_S_RUNNING) {
            if (self->publishing)
                self->addService(c);
            else if (!self->browser) {
                self->browser = avahi_service_browser_new(c, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, self->type.constData(),
                                                          nullptr, AvahiLookupFlags(0), &Avahi::browsed, self);
                if (!self->browser)
                    self->fail(avahi_client_errno(c));
            }
        } else if (state == AVAHI_CLIENT_FAILURE || state == AVAHI_CLIENT_S_COLLISION) {
            self->fail(avahi_client_errno(c));
        }
    }

    static void groupChanged(AvahiEntryGroup* group, AvahiEntryGroupState state, void* context)
    {
        auto* self = static_cast<Avahi*>(context);
        if (state == AVAHI_ENTRY_GROUP_COLLISION)
            self->fail(AVAHI_ERR_COLLISION);
        else if (state == AVAHI_ENTRY_GROUP_FAILURE)
            self->fail(avahi_client_errno(avahi_entry_group_get_client(group)));
    }

    static void browsed(AvahiServiceBrowser* browser, AvahiIfIndex interface, AvahiProtocol protocol, AvahiBrowserEvent event,
                        const char* name, const char* type, const char* domain, AvahiLookupResultFlags, void* context)
    {
        auto* self = static_cast<Avahi*>(context);
        if (event == AVAHI_BROWSER_NEW) {
            avahi_service_resolver_new(avahi_service_browser_get_client(browser), interface, protocol, name, type, domain,
                                       AVAHI_PROTO_UNSPEC, AvahiLookupFlags(0), &Avahi::resolved, self);
        } else if (event == AVAHI_BROWSER_REMOVE) {
            const QString lost = QString::fromUtf8(name);
            self->report([lost](ServiceDiscovery* o) { emit o->serviceLost(lost); });
        } else if (event == AVAHI_BROWSER_FAILURE) {
            self->fail(avahi_client_errno(avahi_service_browser_get_client(browser)));
        }
    }

    static void resolved(AvahiServiceResolver* resolver, AvahiIfIndex, AvahiProtocol, AvahiResolverEvent event,
                         const char* name, const char*, const char*, const char*, const AvahiAddress* address,
                         uint16_t port, AvahiStringList*, AvahiLookupResultFlags, void* context)
    {
        auto* self = static_cast<Avahi*>(context);
        if (event == AVAHI_RESOLVER_FOUND && address) {
            char text[AVAHI_ADDRESS_STR_MAX];
            avahi_address_snprint(text, sizeof text, address);
            const QString found = QString::fromUtf8(name), where = QString::fromLatin1(text);
            self->report([found, where, port](ServiceDiscovery* o) { emit o->serviceFound(found, where, port); });
        }
        avahi_service_resolver_free(resolver);
    }

    bool begin()
    {
        poll = avahi_threaded_poll_new();
        if (!poll) {
            fail(AVAHI_ERR_NO_MEMORY);
            return false;
        }
        int error = 0;
        client = avahi_client_new(avahi_threaded_poll_get(poll), AvahiClientFlags(0), &Avahi::clientChanged, this, &error);
        if (!client) {
            fail(error);
            return false;
        }
        if (avahi_threaded_poll_start(poll) < 0) {
            fail(AVAHI_ERR_FAILURE);
            return false;
        }
        return true;
    }

    ~Avahi()
    {
        if (poll)
            avahi_threaded_poll_stop(poll);
        if (client)
            avahi_client_free(client); // frees its groups, browsers and resolvers
        if (poll)
            avahi_threaded_poll_free(poll);
    }
};

ServiceDiscovery::ServiceDiscovery(QObject* parent) : QObject(parent) {}

ServiceDiscovery::~ServiceDiscovery() = default;

void ServiceDiscovery::publish(const QString& instanceName, const QString& type, quint16 port, const QStringList& txt)
{
    m_avahi = std::make_unique<Avahi>();
    m_avahi->owner = this;
    m_avahi->publishing = true;
    m_avahi->name = instanceName.toUtf8();
    m_avahi->type = type.toUtf8();
    m_avahi->port = port;
    m_avahi->txt = txt;
    m_avahi->begin();
}

void ServiceDiscovery::browse(const QString& type)
{
    m_avahi = std::make_unique<Avahi>();
    m_avahi->owner = this;
    m_avahi->type = type.toUtf8();
    m_avahi->begin();
}

} // namespace nimbrel
