#pragma once
// The wire messages of a captured HTTP exchange. A request and its response carry the same reqId
// text, "ios-" and the number, which is all that pairs them. Any thread.
#include <string>

#include "capture/network/Request.h"
#include "capture/network/Response.h"
#include "wire/qm_network.pb.h"

namespace quillmere {

// A body is reported as jsonValue of its text, and left out when it isn't UTF-8; nothing is cut.
// Text fields that aren't UTF-8 (a header a host or server wrote in another encoding) are left
// out too: the wire's strings must be UTF-8, and one bad byte would spoil the whole batch.
qm::network::RequestEvent makeRequestEvent(const Request& request);
// `elapsedSeconds` goes on the wire divided by 1000.
qm::network::ResponseEvent makeResponseEvent(const Response& response, double elapsedSeconds);

// Exact, case-sensitive; a method the wire has no name for (or a lower-case spelling) is GET.
qm::network::MethodType methodTypeFrom(const std::string& text);

}  // namespace quillmere
