#pragma once
// A real PostgreSQL server for tests, from Debian's packages: initdb into a temporary folder, then
// pg_ctl on a free loopback port; each test takes a database of its own. PostgreSQL refuses to run
// as root, so under root (as in CI) it runs as the "postgres" user that Debian's package creates.
//
// Under ctest one server serves the whole run: a setup test starts it (tests/postgres) and names
// it in the file that QLM_TEST_POSTGRES points to, a cleanup test stops it. A test program run on
// its own starts one for itself instead, stopped and removed at exit.
#include <memory>
#include <string>

namespace qlm_test {

class PostgresServer {
public:
    // The program's server: the run's when QLM_TEST_POSTGRES is set, else one started on first
    // use. Null when PostgreSQL is not installed (the test should skip); a server that is installed
    // but fails to start fails the test instead.
    static PostgresServer* shared();

    // Starts a server of its own, stopped and removed by the destructor. Null when PostgreSQL is
    // not installed; `error` says why when it is installed but did not start.
    static std::unique_ptr<PostgresServer> start(std::string& error);
    // The server described in `stateFile` (by save()); it is left running. Null when the file is
    // missing or unreadable.
    static std::unique_ptr<PostgresServer> attach(const std::string& stateFile);

    // Describes this server in `stateFile` for attach(); false when it could not be written.
    bool save(const std::string& stateFile) const;
    // Stops the server and removes its folder; the destructor does it for a server it started.
    void stopAndRemove();
    // The destructor leaves this server running, for another process to stop later.
    void leaveRunning() { owned_ = false; }

    // A new, empty database: its "postgresql://..." URI.
    std::string freshDatabase();

    ~PostgresServer();
    PostgresServer(const PostgresServer&) = delete;
    PostgresServer& operator=(const PostgresServer&) = delete;

private:
    PostgresServer(std::string bin, std::string folder, int port, bool owned);

    const std::string bin_;     // the folder of initdb, pg_ctl, createdb
    const std::string folder_;  // the server's data, socket and log
    const int port_;
    bool owned_;         // stopped and removed by the destructor
    int databases_ = 0;  // used from the test's thread only
};

}  // namespace qlm_test
