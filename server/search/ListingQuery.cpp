#include "server/search/ListingQuery.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "server/http/QueryString.h"
#include "server/ingest/IngestRequest.h"
#include "server/search/SearchWords.h"

namespace qlm::ingest {

namespace {

constexpr double kDayMilliseconds = 86400000;

// Whole text as a number, or nullopt.
std::optional<double> wholeNumber(const std::string& text) {
    if (text.empty()) return std::nullopt;
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

// Milliseconds since 1970 of a UTC time as the form's fields write it; `dateOnly` tells whether it
// named a day without a time.
std::optional<double> parseTime(const std::string& text, bool& dateOnly) {
    if (auto number = wholeNumber(text)) return number;
    for (const char* format : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d"}) {
        std::tm parts{};
        const char* end = ::strptime(text.c_str(), format, &parts);
        if (end == nullptr || *end != '\0') continue;
        dateOnly = format[8] == '\0';
        return static_cast<double>(::timegm(&parts)) * 1000;
    }
    return std::nullopt;
}

}  // namespace

std::variant<ListingQuery, std::string> parseListingQuery(std::string_view rawQuery) {
    const auto parameters = parseQuery(rawQuery, QueryForm::htmlForm);
    if (!parameters) return std::string("the query has a malformed percent-escape");
    ListingQuery query;
    for (const auto& [name, value] : *parameters) {
        if (name == "q") {
            query.text = value;
        } else if (name == "app") {
            query.appID = value;
        } else if (name == "user") {
            query.userID = value;
        } else if (name == "trait") {
            query.trait = value;
        } else if (name == "from") {
            query.from = value;
        } else if (name == "to") {
            query.to = value;
        } else if (name == "errors") {
            query.withErrors = !value.empty() && value != "0";
        } else if (name == "after") {
            query.after = parseCursor(value);
            if (!query.after) return std::string("after must be a cursor that a page named");
        } else if (name == "limit") {
            const auto limit = parseUint32(value);
            if (!limit || *limit == 0 || *limit > kLargestListingPage)
                return std::string("limit must be 1 to 200");
            query.limit = *limit;
        }
    }
    RecordingFilter& filter = query.filter;
    filter.words = searchWords(query.text, kMaxQueryWords);
    filter.appID = query.appID;
    filter.userID = query.userID;
    const auto equals = query.trait.find('=');
    filter.traitName = query.trait.substr(0, equals);
    if (equals != std::string::npos) filter.traitValue = query.trait.substr(equals + 1);
    if (!query.trait.empty() && filter.traitName.empty())
        return std::string("trait must name the trait: NAME=VALUE");
    bool dateOnly = false;
    if (!query.from.empty() && !(filter.from = parseTime(query.from, dateOnly)))
        return std::string("from must be a time: YYYY-MM-DDTHH:MM (UTC) or milliseconds since 1970");
    if (!query.to.empty()) {
        if (!(filter.to = parseTime(query.to, dateOnly)))
            return std::string("to must be a time: YYYY-MM-DDTHH:MM (UTC) or milliseconds since 1970");
        if (dateOnly) *filter.to += kDayMilliseconds - 1;
    }
    filter.withErrors = query.withErrors;
    return query;
}

std::string listingQueryString(const ListingQuery& query, std::optional<RecordingCursor> after) {
    std::string out;
    const auto add = [&](const char* name, const std::string& value) {
        if (value.empty()) return;
        out += (out.empty() ? "?" : "&") + std::string(name) + "=" + percentEncode(value);
    };
    add("q", query.text);
    add("app", query.appID);
    add("user", query.userID);
    add("trait", query.trait);
    add("from", query.from);
    add("to", query.to);
    add("errors", query.withErrors ? "1" : "");
    add("after", after ? cursorText(*after) : "");
    return out;
}

std::string cursorText(const RecordingCursor& cursor) {
    char lastSeen[32];
    std::snprintf(lastSeen, sizeof lastSeen, "%.17g", cursor.lastSeen);
    return std::string(lastSeen) + "_" + std::to_string(cursor.storeID);
}

std::optional<RecordingCursor> parseCursor(std::string_view text) {
    const auto underscore = text.rfind('_');
    if (underscore == std::string_view::npos) return std::nullopt;
    const auto lastSeen = wholeNumber(std::string(text.substr(0, underscore)));
    const std::string id(text.substr(underscore + 1));
    if (!lastSeen || id.empty() || id.size() > 18 || id.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    return RecordingCursor{*lastSeen, std::stoll(id)};
}

}  // namespace qlm::ingest
