#include "server/ingest/InnerMessage.h"

#include <climits>

#include "wire/qm.pb.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"
#include "wire/qm_network.pb.h"

namespace qlm::ingest {

namespace {

const std::vector<const google::protobuf::Message*>& prototypes() {
    static const std::vector<const google::protobuf::Message*> all = {
        &qm::Identify::default_instance(),
        &qm::core::LogEvent::default_instance(),
        &qm::Metadata::default_instance(),
        &qm::ios::PDFViewCapture::default_instance(),
        &qm::network::RequestEvent::default_instance(),
        &qm::network::ResponseEvent::default_instance(),
        &qm::ios::TouchEvent::default_instance(),
    };
    return all;
}

}  // namespace

const std::vector<std::string>& knownEventTypes() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> out;
        for (const auto* prototype : prototypes()) out.push_back(prototype->GetDescriptor()->full_name());
        return out;
    }();
    return names;
}

std::unique_ptr<google::protobuf::Message> decodeInnerMessage(std::string_view type, std::string_view data) {
    if (data.size() > static_cast<std::size_t>(INT_MAX)) return nullptr;
    for (const auto* prototype : prototypes()) {
        if (prototype->GetDescriptor()->full_name() != type) continue;
        std::unique_ptr<google::protobuf::Message> message(prototype->New());
        if (!message->ParseFromArray(data.data(), static_cast<int>(data.size()))) return nullptr;
        return message;
    }
    return nullptr;
}

}  // namespace qlm::ingest
