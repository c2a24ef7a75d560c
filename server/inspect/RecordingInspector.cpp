#include "server/inspect/RecordingInspector.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

#include "server/ingest/InnerMessage.h"
#include "server/inspect/PdfText.h"
#include "wire/qm_ios.pb.h"

namespace qlm::ingest {

using google::protobuf::FieldDescriptor;
using nlohmann::json;

namespace {

const std::string kCaptureType = qm::ios::PDFViewCapture::descriptor()->full_name();

// The recordings a command runs over (only those with `recordingID` when it is not empty), oldest
// first, which reads more naturally in a dump than the list page's most recent first. Empty, with
// a line on `err`, when there is none.
std::vector<RecordingSummary> selected(const RecordingStore& store, const std::string& recordingID,
                                       std::string_view command, std::ostream& err) {
    std::vector<RecordingSummary> out;
    for (RecordingSummary& recording : store.recordings()) {
        if (recordingID.empty() || recording.key.recordingID == recordingID)
            out.push_back(std::move(recording));
    }
    std::reverse(out.begin(), out.end());
    if (out.empty()) {
        err << command << ": no recording" << (recordingID.empty() ? "" : " " + recordingID) << " in "
            << store.describe() << "\n";
    }
    return out;
}

std::string joinPages(const std::vector<std::string>& pages) {
    std::string text;
    for (const std::string& page : pages) {
        if (!text.empty()) text += '\f';
        text += page;
    }
    return text;
}

void collectTexts(const google::protobuf::Descriptor& type, const json& printed, const std::string& prefix,
                  std::vector<std::pair<std::string, std::string>>& out);

void collectValue(const FieldDescriptor& field, const json& value, const std::string& path,
                  std::vector<std::pair<std::string, std::string>>& out) {
    if (field.cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE && value.is_object()) {
        collectTexts(*field.message_type(), value, path, out);
    } else if (field.type() == FieldDescriptor::TYPE_STRING && value.is_string()) {
        out.emplace_back(path, value.get<std::string>());
    }
}

// Every text of a decoded message with its path, read from its JSON form with the schema beside it:
// field names are not texts, map keys are, and bytes fields (a PDF) are not text. (Walking the
// message itself by reflection would touch its maps' lazily synced internals, which is not worth
// the risk for a read.)
void collectTexts(const google::protobuf::Descriptor& type, const json& printed, const std::string& prefix,
                  std::vector<std::pair<std::string, std::string>>& out) {
    for (const auto& [name, value] : printed.items()) {
        const FieldDescriptor* field = type.FindFieldByName(name);
        if (field == nullptr) continue;
        const std::string path = prefix.empty() ? name : prefix + "." + name;
        if (field->is_map() && value.is_object()) {
            const FieldDescriptor& mapValue = *field->message_type()->map_value();
            for (const auto& [key, item] : value.items()) {
                out.emplace_back(path + " key", key);
                collectValue(mapValue, item, path + "[" + key + "]", out);
            }
        } else if (field->is_repeated() && value.is_array()) {
            for (const json& item : value) collectValue(*field, item, path, out);
        } else {
            collectValue(*field, value, path, out);
        }
    }
}

bool jsonHolds(const json& value, std::string_view secret) {
    if (value.is_string()) return value.get_ref<const std::string&>().find(secret) != std::string::npos;
    if (value.is_object()) {
        for (const auto& [key, item] : value.items()) {
            if (key.find(secret) != std::string::npos || jsonHolds(item, secret)) return true;
        }
    }
    if (value.is_array()) {
        for (const json& item : value) {
            if (jsonHolds(item, secret)) return true;
        }
    }
    return false;
}

bool textHolds(const std::string& text, std::string_view secret) {
    if (text.find(secret) != std::string::npos) return true;
    // Bodies and captured output are JSON texts, in which the secret's quotes, slashes or
    // non-ASCII letters may stand escaped.
    const json parsed = json::parse(text, nullptr, false);
    return !parsed.is_discarded() && jsonHolds(parsed, secret);
}

bool isSpace(char c) {
    return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == '\v';
}

std::string collapseSpaces(std::string_view text) {
    std::string out;
    bool pendingSpace = false;
    for (const char c : text) {
        if (isSpace(c)) {
            pendingSpace = !out.empty();
            continue;
        }
        if (pendingSpace) out += ' ';
        pendingSpace = false;
        out += c;
    }
    return out;
}

// Where `secret` appears in one event, as checkPrivacy tells.
std::vector<std::string> findSecret(const StoredEvent& event, std::string_view data,
                                    std::string_view secret) {
    std::vector<std::string> sightings;
    const auto message = decodeInnerMessage(event.type, data);
    if (!message) return {"unreadable message"};
    if (event.type == kCaptureType) {
        const auto pages = pdfPageTexts(static_cast<const qm::ios::PDFViewCapture&>(*message).pdfdata());
        if (!pages) return {"unreadable frame"};
        const std::string wanted = collapseSpaces(secret);
        for (std::size_t i = 0; i < pages->size(); ++i) {
            if (collapseSpaces((*pages)[i]).find(wanted) != std::string::npos) {
                sightings.push_back(pages->size() == 1 ? "frame text"
                                                       : "frame text, page " + std::to_string(i + 1));
            }
        }
    }
    // The message's JSON form was made from these same bytes when they were stored.
    std::vector<std::pair<std::string, std::string>> texts;
    collectTexts(*message->GetDescriptor(), json::parse(event.json), "", texts);
    for (const auto& [path, text] : texts) {
        if (textHolds(text, secret)) sightings.push_back("field " + path);
    }
    return sightings;
}

}  // namespace

int inspectRecordings(const RecordingStore& store, const std::string& recordingID, std::ostream& out,
                      std::ostream& err) {
    try {
        const auto recordings = selected(store, recordingID, "inspect", err);
        if (recordings.empty()) return kInspectFailed;
        for (const RecordingSummary& recording : recordings) {
            store.forEachEvent(recording.key, [&](const StoredEvent& event, std::string_view data) {
                json line = {{"appID", recording.key.appID},
                             {"recordingID", recording.key.recordingID},
                             {"sessionID", recording.key.sessionID},
                             {"seqID", event.seqID},
                             {"time", event.time},
                             {"timeOffset", event.timeOffset},
                             {"type", event.type},
                             {"message", nullptr}};
                const auto message = decodeInnerMessage(event.type, data);
                if (!message) {
                    line["error"] = "the stored bytes are not a " + event.type;
                } else {
                    // Made from these same bytes when they were stored.
                    line["message"] = json::parse(event.json);
                    if (event.type == kCaptureType) {
                        const auto* capture = static_cast<const qm::ios::PDFViewCapture*>(message.get());
                        const auto pages = pdfPageTexts(capture->pdfdata());
                        json& pdf = line["message"]["pdfData"];
                        pdf["pages"] = pages ? json(pages->size()) : json(nullptr);
                        pdf["text"] = pages ? json(joinPages(*pages)) : json(nullptr);
                        if (!pages) line["error"] = "the PDF cannot be read";
                    }
                }
                out << line.dump(-1, ' ', false, json::error_handler_t::replace) << '\n';
            });
        }
        out.flush();
        return kInspectOK;
    } catch (const std::exception& e) {
        err << "inspect: " << e.what() << "\n";
        return kInspectFailed;
    }
}

int checkPrivacy(const RecordingStore& store, const std::string& secret, const std::string& recordingID,
                 std::ostream& out, std::ostream& err) {
    try {
        const auto recordings = selected(store, recordingID, "check-privacy", err);
        if (recordings.empty()) return kInspectFailed;
        std::size_t events = 0, frames = 0, sightings = 0;
        for (const RecordingSummary& recording : recordings) {
            store.forEachEvent(recording.key, [&](const StoredEvent& event, std::string_view data) {
                ++events;
                frames += event.type == kCaptureType;
                for (const std::string& where : findSecret(event, data, secret)) {
                    ++sightings;
                    const RecordingKey& key = recording.key;
                    out << "check-privacy: FOUND in " << key.appID << "/" << key.recordingID << "/"
                        << key.sessionID << " seq " << event.seqID << " " << event.type << ": " << where
                        << "\n";
                }
            });
        }
        const std::string scope = std::to_string(events) + " events (" + std::to_string(frames) +
                                  " screen captures) of " + std::to_string(recordings.size()) + " recording" +
                                  (recordings.size() == 1 ? "" : "s");
        if (sightings > 0) {
            out << "check-privacy: FAIL: the secret, or something unreadable, is in " << sightings
                << (sightings == 1 ? " place" : " places") << " among " << scope << std::endl;
            return kSecretFound;
        }
        out << "check-privacy: PASS: the secret appears nowhere in " << scope << std::endl;
        return kInspectOK;
    } catch (const std::exception& e) {
        err << "check-privacy: " << e.what() << "\n";
        return kInspectFailed;
    }
}

}  // namespace qlm::ingest
