// qlm_encode_events: reads a batch written as JSON on standard input and writes it to standard output
// as the qm.EventList body the library would upload. Lets the browser test add events (touches) to
// a recording without a protobuf encoder of its own.
//
//   {"appID": "...", "events": [{"seqID": N, "time": MS, "timeOffset": MS, "type": "qm.ios.TouchEvent",
//                                "message": { protobuf's JSON form of the inner message }}]}
#include <google/protobuf/descriptor.h>
#include <google/protobuf/util/json_util.h>

#include <iostream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>

#include "wire/qm.pb.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"
#include "wire/qm_network.pb.h"

int main() {
    // Each schema file registers its types when its object file is linked in; naming one type of
    // each makes sure they all are.
    (void)qm::Identify::descriptor();
    (void)qm::core::LogEvent::descriptor();
    (void)qm::ios::TouchEvent::descriptor();
    (void)qm::network::RequestEvent::descriptor();
    try {
        const std::string input((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
        const nlohmann::json batch = nlohmann::json::parse(input);
        qm::EventList list;
        list.set_appid(batch.at("appID").get<std::string>());
        for (const auto& item : batch.at("events")) {
            const std::string type = item.at("type").get<std::string>();
            const auto* descriptor = google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName(type);
            if (descriptor == nullptr) throw std::runtime_error("unknown type " + type);
            std::unique_ptr<google::protobuf::Message> message(
                google::protobuf::MessageFactory::generated_factory()->GetPrototype(descriptor)->New());
            const auto status =
                google::protobuf::util::JsonStringToMessage(item.value("message", nlohmann::json::object()).dump(),
                                                            message.get());
            if (!status.ok()) throw std::runtime_error(type + ": " + std::string(status.message()));
            qm::Event& event = *list.add_events();
            event.set_seqid(item.at("seqID").get<uint32_t>());
            event.set_time(item.at("time").get<double>());
            event.set_timeoffset(item.at("timeOffset").get<double>());
            event.set_type(type);
            event.set_data(message->SerializeAsString());
        }
        std::cout << list.SerializeAsString() << std::flush;
        return 0;
    } catch (const std::exception& e) {
        std::cerr << "qlm_encode_events: " << e.what() << std::endl;
        return 1;
    }
}
