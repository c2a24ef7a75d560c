#pragma once
// The options of quillmere-ingest, parsed from argv without side effects.
#include <string>
#include <variant>
#include <vector>

#include "server/http/HttpServerOptions.h"

namespace qlm::ingest {

struct ServerSettings {
    HttpServerOptions http;
    std::string webFolder;    // the replay page's files; defaults to the source tree's server/web
    std::string pdfjsFolder;  // pdf.js's build folder; defaults to the source tree's node_modules
    std::string databasePath;  // an SQLite path or a postgresql:// URI; empty: a temporary SQLite file
    std::string dashboardURL;  // empty: "http://HOST:PORT" of the bound address
    std::string readyFile;     // empty: none written
};

// The recording inspector's commands, which read a store and print instead of serving:
//   inspect --db F [--recording ID]                    every event as a line of JSON
//   check-privacy --db F --secret S [--recording ID]   fails when S was recorded anywhere
struct InspectorSettings {
    bool checkPrivacy = false;
    std::string databasePath;  // must exist
    std::string secret;        // check-privacy only; never empty there
    std::string recordingID;   // empty: every recording in the store
};

// Either the settings, or a text to print: the usage (`isError` false, for --help) or what is wrong.
struct CommandLineMessage {
    std::string text;
    bool isError = true;
};

std::variant<ServerSettings, InspectorSettings, CommandLineMessage> parseCommandLine(const std::vector<std::string>& arguments);

std::string usageText();

}  // namespace qlm::ingest
