// Reads arbitrary bytes as the head of an HTTP request to the link, and answers it as the link
// would: every answer is a whole HTTP response with the security headers, and only a file served
// keeps the connection.
#include "peer/CockpitFiles.h"

#include <cstdlib>

using namespace nimbrel;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const QByteArray head(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const std::optional<WebRequest> request = parseWebRequest(head);
    if (!request)
        return 0;
    if (!request->target.startsWith('/') || request->path().contains('?'))
        std::abort();
    const WebResponse response = cockpitResponse(*request);
    if (!response.bytes.startsWith("HTTP/1.1 ") ||
        !response.bytes.contains("\r\nX-Content-Type-Options: nosniff\r\n"))
        std::abort();
    if (response.keepOpen != response.bytes.startsWith("HTTP/1.1 200 "))
        std::abort();
    return 0;
}
