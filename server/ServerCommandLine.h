#pragma once
// The options of quillmere-ingest, parsed from argv without side effects.
#include <string>
#include <variant>
#include <vector>

#include "server/http/HttpServerOptions.h"

namespace qlm::ingest {

struct ServerSettings {
    HttpServerOptions http;
    std::string databasePath;  // empty: a temporary database, removed at exit
    std::string dashboardURL;  // empty: "http://HOST:PORT" of the bound address
    std::string readyFile;     // empty: none written
};

// Either the settings, or a text to print: the usage (`isError` false, for --help) or what is wrong.
struct CommandLineMessage {
    std::string text;
    bool isError = true;
};

std::variant<ServerSettings, CommandLineMessage> parseCommandLine(const std::vector<std::string>& arguments);

std::string usageText();

}  // namespace qlm::ingest
