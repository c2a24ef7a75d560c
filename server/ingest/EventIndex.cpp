#include "server/ingest/EventIndex.h"

#include "server/ingest/ValueText.h"
#include "server/inspect/PdfText.h"
#include "server/search/SearchWords.h"
#include "wire/qm.pb.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"
#include "wire/qm_network.pb.h"

namespace qlm::ingest {

namespace {

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& word : words) {
        if (!out.empty()) out += ' ';
        out += word;
    }
    return out;
}

void addTag(std::vector<RecordingTag>& tags, const char* kind, const std::string& name,
            const std::string& value) {
    if (name.size() <= kMaxTagBytes && value.size() <= kMaxTagBytes) tags.push_back({kind, name, value});
}

std::string shownText(const google::protobuf::Message& message) {
    if (auto* m = dynamic_cast<const qm::ios::PDFViewCapture*>(&message)) {
        // A capture poppler cannot read shows nothing that could be searched.
        const auto pages = pdfPageTexts(m->pdfdata());
        std::string text;
        if (pages) {
            for (const std::string& page : *pages) text += page + '\n';
        }
        return text;
    }
    if (auto* m = dynamic_cast<const qm::core::LogEvent*>(&message)) {
        std::string text;
        for (const auto& arg : m->args()) text += valueText(arg.arson()) + ' ';
        return text;
    }
    // Only the address: headers and bodies are the app's business with its servers.
    if (auto* m = dynamic_cast<const qm::network::RequestEvent*>(&message)) return m->url();
    if (auto* m = dynamic_cast<const qm::network::ResponseEvent*>(&message)) return m->url();
    return {};
}

}  // namespace

EventIndexEntry indexEvent(const google::protobuf::Message& message) {
    EventIndexEntry entry;
    entry.words = joined(searchWords(shownText(message), kMaxWordsPerEvent));
    if (auto* m = dynamic_cast<const qm::Identify*>(&message)) {
        if (!m->userid().empty()) addTag(entry.tags, kUserTag, "", m->userid());
        if (!m->name().empty()) addTag(entry.tags, kTraitTag, "name", m->name());
        if (!m->email().empty()) addTag(entry.tags, kTraitTag, "email", m->email());
        for (const auto& [name, value] : m->traits()) addTag(entry.tags, kTraitTag, name, value);
    } else if (auto* m = dynamic_cast<const qm::core::LogEvent*>(&message)) {
        if (m->loglevel() == qm::core::LogEvent::ERROR) addTag(entry.tags, kErrorTag, "", "");
    } else if (auto* m = dynamic_cast<const qm::network::ResponseEvent*>(&message)) {
        if (m->status() >= 500 && m->status() <= 599) addTag(entry.tags, kErrorTag, "", "");
    }
    return entry;
}

}  // namespace qlm::ingest
