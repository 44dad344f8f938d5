#pragma once

#include "peer/BridgeMessage.h"
#include "workspace/UserInputRecords.h"

#include <optional>
#include <vector>

namespace nimbrel {

// The engine's open questions, oldest first, each under a local id of the bridge's making. An entry
// is answered at most once at a time: `beginAnswer` takes it, `endAnswer` gives it back.
struct PendingUserInputRequests {
    struct Pending {
        JSONValue serverID; // the engine's id; never sent to a peer
        UserInputRequest request;
        JSONValue params; // as the engine gave them, for peers
        bool isSubmitting = false;

        friend bool operator==(const Pending&, const Pending&) = default;
    };

    std::vector<Pending> requests;

    // The entry for this engine id, made on its first delivery; nothing where params do not parse.
    std::optional<Pending> add(const JSONValue& serverID, const JSONValue& params);
    // The open entry, now marked as being answered, when response answers it completely.
    std::optional<Pending> beginAnswer(const QString& requestID, const JSONValue& response);
    void endAnswer(const QString& requestID);
    std::optional<Pending> remove(const QString& requestID);

    // The "sarvane/userInputRequest" event that offers an entry to peers.
    static BridgeMessage questionEvent(const Pending& entry);
};

// Whether an engine notification ends the question of entry: the engine resolved that very request,
// its turn completed, or another turn of its thread started.
bool closesQuestion(const PendingUserInputRequests::Pending& entry, const QString& method,
                    const JSONValue& params);

} // namespace nimbrel
