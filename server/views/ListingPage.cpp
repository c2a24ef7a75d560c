#include "server/views/ListingPage.h"

#include <algorithm>
#include <cmath>

#include "server/http/QueryString.h"
#include "server/views/HtmlPages.h"
#include "server/views/TimeText.h"

namespace qlm::ingest {

namespace {

std::string field(const char* name, const std::string& value, const char* label, const char* type = "text",
                  const char* placeholder = "") {
    return std::string("<label>") + label + " <input type=\"" + type + "\" name=\"" + name + "\" value=\"" +
           escapeHtml(value) + "\" placeholder=\"" + placeholder + "\"></label>";
}

std::string searchForm(const ListingQuery& query) {
    return "<form class=\"search\" method=\"get\" action=\"/\">\n<p><input type=\"search\" name=\"q\" "
           "id=\"q\" "
           "value=\"" +
           escapeHtml(query.text) +
           "\" placeholder=\"Words on the screen, in a log line or in an address\" aria-label=\"Search what "
           "users "
           "saw\"> <button type=\"submit\">Search</button> <a href=\"/\">Clear</a></p>\n<p "
           "class=\"filters\">" +
           field("app", query.appID, "App") + field("user", query.userID, "User id") +
           field("trait", query.trait, "Trait", "text", "name=value") +
           field("from", query.from, "Seen from", "datetime-local") +
           field("to", query.to, "to", "datetime-local") +
           "<span class=\"muted\">UTC</span><label><input type=\"checkbox\" name=\"errors\" value=\"1\"" +
           (query.withErrors ? " checked" : "") + "> Has errors</label></p>\n</form>\n";
}

std::string momentsRow(const FoundRecording& found, const std::string& queryText) {
    std::string row = "<tr class=\"moments\"><td></td><td colspan=\"6\">" + std::to_string(found.hits) +
                      (found.hits == 1 ? " moment" : " moments") + ":";
    for (const SearchMoment& moment : found.moments) {
        // A screen capture's summary is only its size; a log line's or a request's says what matched.
        const std::string kind = momentKind(moment.type);
        const std::string title = kind == "screen" ? "" : " title=\"" + escapeHtml(moment.summary) + "\"";
        row += " <a class=\"moment\" href=\"" +
               escapeHtml(momentLink(found.recording.key, moment, queryText)) + "\"" + title + ">" +
               offsetText(moment.timeOffset) + " " + escapeHtml(kind) + "</a>";
    }
    if (found.hits > static_cast<int64_t>(found.moments.size())) row += " …";
    return row + "</td></tr>\n";
}

std::string joined(const std::vector<std::string>& texts) {
    std::string out;
    for (const std::string& text : texts) out += (out.empty() ? "" : ", ") + text;
    return out;
}

}  // namespace

std::string momentKind(std::string_view type) {
    if (type == "qm.ios.PDFViewCapture") return "screen";
    if (type == "qm.core.LogEvent") return "log";
    if (type == "qm.network.RequestEvent" || type == "qm.network.ResponseEvent") return "network";
    return std::string(type);
}

std::string momentLink(const RecordingKey& key, const SearchMoment& moment, const std::string& queryText) {
    // Rounded up: the player shows the last capture taken at or before the time it is given.
    const double at = std::isfinite(moment.timeOffset) ? std::max(0.0, std::ceil(moment.timeOffset)) : 0;
    return recordingPath(key) + "#at=" + std::to_string(static_cast<long long>(at)) +
           (queryText.empty() ? "" : "&q=" + percentEncode(queryText));
}

std::string recordingListPage(const ListingQuery& query, const RecordingPage& page) {
    const bool searching = !query.text.empty();
    const std::string filters = listingQueryString(query);
    std::string content = "<h1>Recordings</h1>\n" + searchForm(query) + "<p class=\"muted\" id=\"summary\">";
    const bool filtered = !filters.empty();
    if (page.recordings.empty()) {
        content += filtered ? "No recordings match." : "No recordings.";
    } else {
        const std::size_t count = page.recordings.size();
        content += std::to_string(count) + (count == 1 ? " recording" : " recordings") +
                   (page.next ? " on this page" : "") + (filtered ? " found" : "") + ", most recent first.";
    }
    content += " <a href=\"/recordings.json" + escapeHtml(filters) + "\">JSON</a></p>\n";
    if (page.recordings.empty()) {
        if (!filtered && !query.after)
            content +=
                "<p>Nothing recorded yet: point the library's serverURL at this server's "
                "<code>/i</code>.</p>";
        return htmlDocument("Recordings", content);
    }
    content +=
        "<table "
        "id=\"recordings\"><tr><th>App</th><th>Recording</th><th>Session</th><th>User</th><th>Events</th>"
        "<th>First seen (UTC)</th><th>Last seen (UTC)</th></tr>\n";
    for (const FoundRecording& found : page.recordings) {
        const RecordingSummary& r = found.recording;
        content += "<tr><td>" + escapeHtml(r.key.appID) + "</td><td><a href=\"" + recordingPath(r.key) +
                   "\">" + escapeHtml(r.key.recordingID) + "</a>" +
                   (r.hasErrors ? " <span class=\"errors\">errors</span>" : "") + "</td><td class=\"n\">" +
                   std::to_string(r.key.sessionID) + "</td><td>" + escapeHtml(joined(r.userIDs)) +
                   "</td><td class=\"n\">" + std::to_string(r.eventCount) + "</td><td>" +
                   utcText(r.firstSeen) + "</td><td>" + utcText(r.lastSeen) + "</td></tr>\n";
        if (searching) content += momentsRow(found, query.text);
    }
    content += "</table>";
    if (page.next) {
        content += "\n<p><a id=\"older\" href=\"/" + escapeHtml(listingQueryString(query, page.next)) +
                   "\">Older recordings</a></p>";
    }
    return htmlDocument("Recordings", content);
}

}  // namespace qlm::ingest
