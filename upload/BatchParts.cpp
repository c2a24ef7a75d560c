#include "upload/BatchParts.h"

#include <google/protobuf/io/coded_stream.h>

#include <utility>

namespace quillmere {

namespace {

// What one event adds to a list: its tag, its length and itself.
std::size_t fieldSize(const qm::Event& event) {
    const std::size_t size = event.ByteSizeLong();
    return 1 + google::protobuf::io::CodedOutputStream::VarintSize64(size) + size;
}

}  // namespace

std::vector<qm::EventList> splitIntoParts(qm::EventList&& list, std::size_t limit) {
    std::vector<qm::EventList> parts;
    if (list.ByteSizeLong() <= limit) {
        parts.push_back(std::move(list));
        return parts;
    }
    qm::EventList empty;
    empty.set_appid(list.appid());
    const std::size_t base = empty.ByteSizeLong();
    std::size_t size = 0;
    for (auto& event : *list.mutable_events()) {
        const std::size_t added = fieldSize(event);
        if (parts.empty() || (parts.back().events_size() > 0 && size + added > limit)) {
            parts.push_back(empty);
            size = base;
        }
        *parts.back().add_events() = std::move(event);
        size += added;
    }
    return parts;
}

}  // namespace quillmere
