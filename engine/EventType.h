#pragma once
// The kind of an event, which names the inner message that qm.Event.data carries.
#include <string_view>

namespace quillmere {

enum class EventType {
    identify = 0,
    logEvent = 1,
    metadata = 2,
    pdfViewCapture = 3,
    requestEvent = 4,
    responseEvent = 5,
    touchEvent = 6
};

// The qm.Event.type tag: the full name of the inner message.
constexpr std::string_view eventTypeTag(EventType type) {
    switch (type) {
        case EventType::identify:
            return "qm.Identify";
        case EventType::logEvent:
            return "qm.core.LogEvent";
        case EventType::metadata:
            return "qm.Metadata";
        case EventType::pdfViewCapture:
            return "qm.ios.PDFViewCapture";
        case EventType::requestEvent:
            return "qm.network.RequestEvent";
        case EventType::responseEvent:
            return "qm.network.ResponseEvent";
        case EventType::touchEvent:
            return "qm.ios.TouchEvent";
    }
    return {};
}

}  // namespace quillmere
