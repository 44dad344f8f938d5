#pragma once

#include "peer/HelloPayload.h"
#include "platform/SecretStore.h"

#include <functional>
#include <map>
#include <optional>

namespace nimbrel {

// A paired device: its id, the name it gave and the public key it proved.
struct TrustedPeer {
    QString deviceID;
    QString displayName;
    QString publicKey;
    double pairedAt = 0; // seconds since 2001-01-01 00:00:00 UTC

    friend bool operator==(const TrustedPeer&, const TrustedPeer&) = default;
};

// Seconds between 1970-01-01 and 2001-01-01, the epoch of stored dates.
constexpr double referenceDateOffset = 978307200.0;

// The persisted list of paired devices: one JSON document in one secret item, written whole.
class TrustStore {
public:
    static inline const QString account = QStringLiteral("trusted-peers-v1");
    using Clock = std::function<double()>; // now, as seconds since 2001

    // Loads the stored document; an unreadable or undecodable one leaves the store empty.
    explicit TrustStore(SecretStore store, Clock clock = {});

    std::optional<TrustedPeer> peer(const QString& deviceID) const;
    const std::map<QString, TrustedPeer>& peers() const { return m_peers; }

    // Adds or replaces the hello's device, then saves. The change in memory stands even when
    // saving fails.
    std::optional<QString> trust(const HelloPayload& hello);
    std::optional<QString> remove(const QString& deviceID);

    static QByteArray encodeDocument(const std::map<QString, TrustedPeer>& peers);
    static std::optional<std::map<QString, TrustedPeer>> decodeDocument(const QByteArray& bytes);

private:
    std::optional<QString> save() const;

    SecretStore m_store;
    Clock m_clock;
    std::map<QString, TrustedPeer> m_peers;
};

} // namespace nimbrel
