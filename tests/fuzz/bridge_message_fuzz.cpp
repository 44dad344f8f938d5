// Decodes arbitrary bytes as a peer message; whatever decodes must encode and decode to the same
// message, and any body is tried as a hello (read, verified, and paired with itself), as the answer
// to an open question, and as the engine's question itself.
#include "peer/BridgeMessage.h"
#include "peer/HelloPayload.h"
#include "workspace/UserInputRecords.h"

#include <cstdlib>

using namespace nimbrel;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    auto decoded = decodeBridgeMessage(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!decoded.ok())
        return 0;
    const BridgeMessage& message = decoded.value();
    auto encoded = encodeBridgeMessage(message);
    if (!encoded.ok())
        std::abort();
    auto again = decodeBridgeMessage(encoded.value().toStdString());
    if (!again.ok() || !(again.value() == message))
        std::abort();
    if (message.body) {
        auto hello = HelloPayload::fromBody(*message.body);
        if (hello.ok()) {
            (void)verify(hello.value());
            if (pairingCode(hello.value(), hello.value()).size() != 6)
                std::abort();
        }
        static const UserInputRequest open = *parseUserInputRequest(
            QStringLiteral("Q"), JSONValue::decode(R"({"threadId":"t","turnId":"u","questions":[
                {"id":"a","header":"","question":"A?"},{"id":"b","header":"","question":"B?","options":[]}]})").value());
        (void)isCompleteResponse(open, *message.body);
        if (auto asked = parseUserInputRequest(QStringLiteral("Q"), *message.body)) {
            if (asked->questions.empty() || asked->threadID.isEmpty())
                std::abort();
            UserInputPrompt prompt{*asked, {}, false, std::nullopt};
            for (const UserInputQuestion& question : asked->questions)
                prompt.drafts[question.id] = UserInputAnswerDraft{0, question.header.size() % 2 == 1, question.question};
            if (auto response = makeResponse(prompt))
                (void)isCompleteResponse(*asked, *response);
            (void)answersEntry(prompt);
        }
    }
    return 0;
}
