// Starts or stops the PostgreSQL server that a whole ctest run shares:
//   qlm_postgres_fixture start STATE_FILE   exits 77 when PostgreSQL is not installed
//   qlm_postgres_fixture stop STATE_FILE
#include <cstdio>
#include <filesystem>
#include <string_view>

#include "tests/support/PostgresServer.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s start|stop STATE_FILE\n", argv[0]);
        return 2;
    }
    const std::string_view command = argv[1];
    const std::string stateFile = argv[2];
    if (command == "start") {
        // A file left by an interrupted run would name a server that is gone.
        std::filesystem::remove(stateFile);
        std::string error;
        auto server = qlm_test::PostgresServer::start(error);
        if (!server) {
            if (error.empty()) {
                std::puts("PostgreSQL is not installed (scripts/setup installs it)");
                return 77;
            }
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        if (!server->save(stateFile)) {
            std::fprintf(stderr, "could not write %s\n", stateFile.c_str());
            return 1;
        }
        server->leaveRunning();  // for the run's tests; the stop command removes it
        return 0;
    }
    if (command == "stop") {
        auto server = qlm_test::PostgresServer::attach(stateFile);
        if (server) server->stopAndRemove();
        std::filesystem::remove(stateFile);
        return 0;
    }
    std::fprintf(stderr, "unknown command %s\n", argv[1]);
    return 2;
}
