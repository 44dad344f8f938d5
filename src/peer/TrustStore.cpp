#include "TrustStore.h"

#include "platform/Scheduler.h"

namespace nimbrel {

namespace {

double nowSinceReferenceDate() { return secondsSince1970() - referenceDateOffset; }

} // namespace

TrustStore::TrustStore(SecretStore store, Clock clock)
    : m_store(std::move(store)), m_clock(clock ? std::move(clock) : Clock(nowSinceReferenceDate))
{
    auto stored = m_store.read(keychainService, account);
    if (!stored.ok() || !stored.value())
        return;
    if (auto peers = decodeDocument(*stored.value()))
        m_peers = std::move(*peers);
}

std::optional<TrustedPeer> TrustStore::peer(const QString& deviceID) const
{
    const auto found = m_peers.find(deviceID);
    if (found == m_peers.end())
        return std::nullopt;
    return found->second;
}

std::optional<QString> TrustStore::trust(const HelloPayload& hello)
{
    m_peers[hello.deviceID] = TrustedPeer{hello.deviceID, hello.displayName, hello.publicKey, m_clock()};
    return save();
}

std::optional<QString> TrustStore::remove(const QString& deviceID)
{
    m_peers.erase(deviceID);
    return save();
}

std::optional<QString> TrustStore::save() const
{
    if (auto error = m_store.write(encodeDocument(m_peers), keychainService, account))
        return error->description();
    return std::nullopt;
}

QByteArray TrustStore::encodeDocument(const std::map<QString, TrustedPeer>& peers)
{
    std::vector<std::pair<std::string, JSONValue>> members;
    for (const auto& [id, peer] : peers)
        members.emplace_back(id.toStdString(), JSONValue::object({{"deviceID", peer.deviceID},
                                                                  {"displayName", peer.displayName},
                                                                  {"publicKey", peer.publicKey},
                                                                  {"pairedAt", peer.pairedAt}}));
    return QByteArray::fromStdString(*JSONValue::object(std::move(members)).encode());
}

std::optional<std::map<QString, TrustedPeer>> TrustStore::decodeDocument(const QByteArray& bytes)
{
    auto decoded = JSONValue::decode(std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())));
    if (!decoded.ok() || !decoded.value().isObject())
        return std::nullopt;
    std::map<QString, TrustedPeer> peers;
    for (const JSONMember& member : decoded.value().members()) {
        const JSONValue& entry = member.value;
        const JSONValue* deviceID = entry.find("deviceID");
        const JSONValue* displayName = entry.find("displayName");
        const JSONValue* publicKey = entry.find("publicKey");
        const JSONValue* pairedAt = entry.find("pairedAt");
        // One broken entry spoils the whole document.
        if (!deviceID || !deviceID->isString() || !displayName || !displayName->isString() || !publicKey
            || !publicKey->isString() || !pairedAt || !pairedAt->isNumber())
            return std::nullopt;
        const QString key = QString::fromUtf8(member.name().data(), static_cast<qsizetype>(member.name().size()));
        peers[key] = TrustedPeer{*deviceID->stringValue(), *displayName->stringValue(), *publicKey->stringValue(),
                                 *pairedAt->numberValue()};
    }
    return peers;
}

} // namespace nimbrel
