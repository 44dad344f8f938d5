#pragma once

#include "peer/WebRequest.h"

namespace nimbrel {

// An HTTP response to send whole, and whether the connection may take another request after it.
struct WebResponse {
    QByteArray bytes;
    bool keepOpen = false;
};

// The browser cockpit: the page's files, built into the program under :/cockpit, served to GET and
// HEAD. "/" is index.html; any other path names one file directly under that folder. Everything
// else gets 404, other methods 405 and a request with a body 400, and the connection closes after
// them. Every response carries the page's security headers. A browser's check of a service worker
// (Service-Worker: script) at any path but the page's own worker gets a worker that removes itself.
// Where mayKeepOpen is false, a file's response says the connection closes after it too.
WebResponse cockpitResponse(const WebRequest& request, bool mayKeepOpen = true);

// A response with the status ("400 Bad Request") and no body, after which the connection closes.
WebResponse webRefusal(const QByteArray& status);

} // namespace nimbrel
