#pragma once
// A real PostgreSQL server for tests, from Debian's packages: initdb into a temporary folder, then
// pg_ctl on a free loopback port. One per test program (shared()), stopped and removed at exit;
// each test takes a database of its own. PostgreSQL refuses to run as root, so under root (as in
// CI) it runs as the "postgres" user that Debian's package creates.
#include <memory>
#include <string>

namespace qlm_test {

class PostgresServer {
public:
    // The program's server, started on first use; null when PostgreSQL is not installed (the test
    // should skip) — a server that is installed but fails to start fails the test instead.
    static PostgresServer* shared();

    // A new, empty database: its "postgresql://..." URI.
    std::string freshDatabase();

    ~PostgresServer();
    PostgresServer(const PostgresServer&) = delete;
    PostgresServer& operator=(const PostgresServer&) = delete;

private:
    PostgresServer(std::string bin, std::string folder, int port);

    const std::string bin_;     // the folder of initdb, pg_ctl, psql
    const std::string folder_;  // removed by the destructor
    const int port_;
    int databases_ = 0;  // used from the test's thread only
};

}  // namespace qlm_test
