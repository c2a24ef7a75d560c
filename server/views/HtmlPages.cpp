#include "server/views/HtmlPages.h"

#include <cstdio>

#include "server/http/QueryString.h"
#include "server/views/TimeText.h"

namespace qlm::ingest {

std::string htmlDocument(std::string_view title, const std::string& content) {
    std::string out = "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>";
    out += escapeHtml(title);
    // Styles come from a file: the Content-Security-Policy allows no inline ones.
    out += "</title><link rel=\"stylesheet\" href=\"/assets/pages.css\"></head><body>\n";
    out += content;
    out += "\n</body></html>\n";
    return out;
}

namespace {

std::string seconds(double milliseconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f s", milliseconds / 1000);
    return text;
}

}  // namespace

std::string escapeHtml(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string recordingPath(const RecordingKey& key) {
    return "/" + percentEncode(key.appID) + "/s/" + percentEncode(key.recordingID) + "/" +
           std::to_string(key.sessionID);
}

std::string recordingPage(const RecordingSummary& recording, const std::vector<StoredEvent>& events,
                          std::optional<uint32_t> next) {
    const std::string base = recordingPath(recording.key);
    std::string content = "<p><a href=\"/\">All recordings</a></p>\n<h1>Recording " +
                          escapeHtml(recording.key.recordingID) + "</h1>\n<p>App <b>" +
                          escapeHtml(recording.key.appID) + "</b>, session " +
                          std::to_string(recording.key.sessionID) + ", tab <code>" +
                          escapeHtml(recording.tabID) + "</code>, " + std::to_string(recording.eventCount) +
                          " events. <a href=\"" + base + "\">Replay</a> &middot; <a href=\"" + base +
                          "/events.json\">Events as JSON</a></p>\n";
    content +=
        "<table><tr><th>Time (UTC)</th><th>Offset</th><th>Seq</th><th>Type</th><th>Summary</th></tr>\n";
    for (const StoredEvent& e : events) {
        content += "<tr><td>" + utcText(e.time) + "</td><td class=\"n\">" + seconds(e.timeOffset) +
                   "</td><td class=\"n\">" + std::to_string(e.seqID) + "</td><td><code>" +
                   escapeHtml(e.type) + "</code></td><td>" + escapeHtml(e.summary);
        if (e.type == "qm.ios.PDFViewCapture") {
            content += " <a href=\"" + base + "/frames/" + std::to_string(e.seqID) + ".pdf\">view</a>";
        }
        content += "</td></tr>\n";
    }
    content += "</table>";
    if (next) content += "\n<p><a href=\"" + base + "/events?after=" + std::to_string(*next) + "\">Next page</a></p>";
    return htmlDocument("Recording " + recording.key.recordingID, content);
}

std::string notFoundPage(std::string_view message) {
    return htmlDocument("Not found", "<h1>Not found</h1>\n<p>" + escapeHtml(message) +
                                         "</p>\n<p><a href=\"/\">All recordings</a></p>");
}

}  // namespace qlm::ingest
