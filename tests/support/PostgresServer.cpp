#include "tests/support/PostgresServer.h"

#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace qlm_test {

namespace {

namespace fs = std::filesystem;

std::string findBin() {
    const fs::path root = "/usr/lib/postgresql";
    std::error_code error;
    for (const auto& version : fs::directory_iterator(root, error)) {
        if (fs::exists(version.path() / "bin" / "pg_ctl")) return (version.path() / "bin").string();
    }
    return {};
}

// Runs a PostgreSQL program, as the postgres user when we are root. Paths here are our own, with
// no characters the shell would read.
bool runAsOwner(const std::string& command) {
    const std::string line = (::geteuid() == 0 ? "runuser -u postgres -- " : "") + command + " >/dev/null 2>&1";
    return std::system(line.c_str()) == 0;
}

}  // namespace

PostgresServer* PostgresServer::shared() {
    static std::unique_ptr<PostgresServer> server = []() -> std::unique_ptr<PostgresServer> {
        // The run's server; when its setup skipped (no PostgreSQL), there is no file and no server.
        if (const char* stateFile = std::getenv("QLM_TEST_POSTGRES")) return attach(stateFile);
        std::string error;
        auto started = start(error);
        if (!error.empty()) ADD_FAILURE() << error;
        return started;
    }();
    return server.get();
}

std::unique_ptr<PostgresServer> PostgresServer::start(std::string& error) {
    const std::string bin = findBin();
    if (bin.empty()) return nullptr;
    std::string folder = (fs::temp_directory_path() / "qlm-postgres-XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) {
        error = "could not make a folder for PostgreSQL";
        return nullptr;
    }
    if (::geteuid() == 0) std::system(("chown postgres: " + folder).c_str());
    const int port = unusedLoopbackPort();
    const std::string data = folder + "/data";
    const bool started =
        runAsOwner(bin + "/initdb --no-sync -A trust -U qlm -E UTF8 -D " + data) &&
        runAsOwner(bin + "/pg_ctl -w -D " + data + " -l " + folder + "/log -o \"-p " + std::to_string(port) +
                   " -k " + folder + " -c listen_addresses=127.0.0.1 -c fsync=off -c synchronous_commit=off"
                   " -c full_page_writes=off\" start");
    std::unique_ptr<PostgresServer> made(new PostgresServer(bin, folder, port, true));
    if (!started) {
        error = "PostgreSQL is installed but did not start; see " + folder + "/log";
        made->owned_ = false;  // keeps the log for reading
        return nullptr;
    }
    return made;
}

std::unique_ptr<PostgresServer> PostgresServer::attach(const std::string& stateFile) {
    std::ifstream in(stateFile);
    std::string bin, folder;
    int port = 0;
    if (!std::getline(in, bin) || !std::getline(in, folder) || !(in >> port)) return nullptr;
    return std::unique_ptr<PostgresServer>(new PostgresServer(bin, folder, port, false));
}

bool PostgresServer::save(const std::string& stateFile) const {
    std::ofstream out(stateFile, std::ios::trunc);
    out << bin_ << '\n' << folder_ << '\n' << port_ << '\n';
    return static_cast<bool>(out.flush());
}

PostgresServer::PostgresServer(std::string bin, std::string folder, int port, bool owned)
    : bin_(std::move(bin)), folder_(std::move(folder)), port_(port), owned_(owned) {}

PostgresServer::~PostgresServer() {
    if (owned_) stopAndRemove();
}

void PostgresServer::stopAndRemove() {
    runAsOwner(bin_ + "/pg_ctl -D " + folder_ + "/data -m immediate stop");
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
    owned_ = false;
}

std::string PostgresServer::freshDatabase() {
    const std::string name = "test_" + std::to_string(::getpid()) + "_" + std::to_string(++databases_);
    const bool made = runAsOwner(bin_ + "/createdb -h 127.0.0.1 -p " + std::to_string(port_) + " -U qlm " + name);
    EXPECT_TRUE(made) << "createdb " << name;
    return "postgresql://qlm@127.0.0.1:" + std::to_string(port_) + "/" + name;
}

}  // namespace qlm_test
