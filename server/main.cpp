// quillmere-ingest: the reference ingest server. Runs until SIGINT or SIGTERM.
#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>

#include "server/ServerCommandLine.h"
#include "server/app/IngestService.h"
#include "server/http/HttpServer.h"
#include "server/inspect/RecordingInspector.h"
#include "server/store/RecordingStore.h"
#include "server/store/SqliteStore.h"

namespace {

using namespace qlm::ingest;

// Written whole under another name and renamed, so a script polling for the file never reads half.
void writeReadyFile(const std::string& path, const std::string& url) {
    const std::string partial = path + ".partial";
    {
        std::ofstream out(partial, std::ios::trunc);
        out << url << '\n';
        if (!out.flush()) throw std::runtime_error("cannot write " + partial);
    }
    std::filesystem::rename(partial, path);
}

int run(const ServerSettings& settings) {
    // Signals are taken by sigwait() below: blocked here, before any thread exists, so every
    // thread inherits the mask and none is interrupted by them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    std::unique_ptr<RecordingStore> store = settings.databasePath.empty()
                                                ? SqliteStore::createTemporary()
                                                : openStore(settings.databasePath);
    std::optional<IngestService> service;  // made once the port is known, before the first accept
    HttpServerOptions http = settings.http;
    http.headers = IngestService::securityHeaders();
    HttpServer server(std::move(http),
                      [&service](const HttpRequest& request) { return service->handle(request); });
    server.listen();
    const std::string baseURL = "http://" + settings.http.host + ":" + std::to_string(server.port());
    service.emplace(*store, settings.dashboardURL.empty() ? baseURL : settings.dashboardURL,
                    WebFolders{settings.webFolder, settings.pdfjsFolder});
    server.start();

    std::cout << "Quillmere ingest server listening on " << baseURL << " (store: " << store->describe() << ")"
              << std::endl;
    if (!settings.readyFile.empty()) writeReadyFile(settings.readyFile, baseURL);

    int received = 0;
    sigwait(&signals, &received);
    server.stop();
    if (!settings.readyFile.empty()) std::filesystem::remove(settings.readyFile);
    return 0;
}

int inspect(const InspectorSettings& settings) {
    // Opening a missing path would create an empty store and report it clean.
    const bool file = !settings.databasePath.starts_with("postgres");
    if (file && !std::filesystem::is_regular_file(settings.databasePath)) {
        std::cerr << "quillmere-ingest: no store at " << settings.databasePath << std::endl;
        return kInspectFailed;
    }
    const auto store = openStore(settings.databasePath);
    return settings.checkPrivacy
               ? checkPrivacy(*store, settings.secret, settings.recordingID, std::cout, std::cerr)
               : inspectRecordings(*store, settings.recordingID, std::cout, std::cerr);
}

}  // namespace

int main(int argc, char** argv) {
    const auto parsed = parseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
    if (const auto* message = std::get_if<CommandLineMessage>(&parsed)) {
        (message->isError ? std::cerr : std::cout) << message->text;
        return message->isError ? 2 : 0;
    }
    try {
        if (const auto* inspector = std::get_if<InspectorSettings>(&parsed)) return inspect(*inspector);
        return run(std::get<ServerSettings>(parsed));
    } catch (const std::exception& e) {
        std::cerr << "quillmere-ingest: " << e.what() << std::endl;
        return 1;
    }
}
