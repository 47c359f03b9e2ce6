#include "support/postgres.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "billdata/ado/driver.h"

namespace billdata::testing {

namespace {

std::string quoted_value(const std::string& v) {
    std::string out = "'";
    for (char c : v) {
        if (c == '\'' || c == '\\') out.push_back('\\');
        out.push_back(c);
    }
    return out + "'";
}

struct Connection {
    explicit Connection(const std::string& conninfo) : pg(PQconnectdb(conninfo.c_str())) {
        if (PQstatus(pg) != CONNECTION_OK) {
            std::string message = PQerrorMessage(pg);
            PQfinish(pg);
            throw std::runtime_error("test server: " + message);
        }
        // The server's notices ("… does not exist, skipping") are not the test's output.
        PQsetNoticeProcessor(
            pg, [](void*, const char*) {}, nullptr);
    }
    ~Connection() { PQfinish(pg); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    std::vector<std::string> exec(const std::string& sql) const {
        std::vector<std::string> rows;
        if (!PQsendQuery(pg, sql.c_str())) throw std::runtime_error(PQerrorMessage(pg));
        std::string error;
        while (PGresult* r = PQgetResult(pg)) {
            const ExecStatusType status = PQresultStatus(r);
            if (status == PGRES_TUPLES_OK) {
                for (int i = 0; i < PQntuples(r); ++i) {
                    std::string row;
                    for (int j = 0; j < PQnfields(r); ++j)
                        row += (PQgetisnull(r, i, j) ? "NULL" : PQgetvalue(r, i, j)) +
                               std::string("|");
                    rows.push_back(row);
                }
            } else if (status != PGRES_COMMAND_OK && error.empty()) {
                error = PQresultErrorMessage(r);
            }
            PQclear(r);
        }
        if (!error.empty()) throw std::runtime_error(error + "in: " + sql);
        return rows;
    }

    PGconn* pg;
};

}  // namespace

std::string postgres_server() {
    const char* server = std::getenv("BILLDATA_TEST_POSTGRES");
    return server ? server : "";
}

std::string postgres_conninfo(const std::string& connection_string) {
    const auto cs = ado::ConnectionString::parse(connection_string);
    // The native driver's keywords, and the ODBC driver's for the same.
    static const std::pair<const char*, const char*> kKeys[] = {
        {"host", "host"},         {"servername", "host"}, {"port", "port"},
        {"database", "dbname"},   {"user id", "user"},    {"uid", "user"},
        {"password", "password"}, {"pwd", "password"}};
    std::string out;
    for (const auto& [ours, theirs] : kKeys) {
        if (!cs.has(ours)) continue;
        if (!out.empty()) out += ' ';
        out += std::string(theirs) + "=" + quoted_value(cs.get(ours));
    }
    return out;
}

std::string test_engine() {
    const char* engine = std::getenv("BILLDATA_TEST_ENGINE");
    return engine && *engine ? engine : "sqlite";
}

bool on_test_server() {
    const std::string engine = test_engine();
    return engine == "postgresql" || engine == "odbc";
}

EngineDatabase::EngineDatabase() {
    if (on_test_server()) {
        server_ = std::make_unique<PostgresDatabase>();
        target_ = server_->connection_string();
    } else {
        target_ = dir_.file("shop.db");
    }
}

std::string EngineDatabase::connection_string() const {
    return server_ ? target_ : "Provider=SQLite;Data Source=" + target_;
}

PostgresDatabase::PostgresDatabase() {
    const std::string server = postgres_server();
    if (server.empty())
        throw std::runtime_error("no test server: BILLDATA_TEST_POSTGRES is not set");
    static std::atomic<int> counter{0};
    name_ = "bd_test_" + std::to_string(getpid()) + "_" + std::to_string(++counter);
    Connection admin(postgres_conninfo(server));
    admin.exec("DROP DATABASE IF EXISTS " + name_ + " WITH (FORCE)");
    admin.exec("CREATE DATABASE " + name_ + " TEMPLATE template0 ENCODING 'UTF8'");
    auto cs = ado::ConnectionString::parse(server);
    connection_string_.clear();
    for (const auto& [key, value] : cs.items()) {
        if (key == "database") continue;
        connection_string_ += key + "=" + value + ";";
    }
    connection_string_ += "Database=" + name_;
    conninfo_ = postgres_conninfo(connection_string_);
    if (test_engine() == "odbc") {
        const auto own = ado::ConnectionString::parse(connection_string_);
        connection_string_ = "Driver={PostgreSQL Unicode};Servername=" + own.get("host") +
                             ";Port=" + own.get("port", "5432") + ";Database=" + name_ +
                             ";UID=" + own.get("user id") + ";Dialect=PostgreSQL";
        if (own.has("password")) connection_string_ += ";PWD=" + own.get("password");
    }
}

PostgresDatabase::~PostgresDatabase() {
    try {
        Connection admin(postgres_conninfo(postgres_server()));
        admin.exec("DROP DATABASE IF EXISTS " + name_ + " WITH (FORCE)");
    } catch (const std::exception&) {
        // A server that went away takes its databases with it.
    }
}

namespace {

std::string server_bin() {
    if (const char* bin = std::getenv("BILLDATA_PG_BIN"); bin && *bin) return bin;
    std::string best;
    std::error_code ec;
    for (const auto& e : std::filesystem::directory_iterator("/usr/lib/postgresql", ec)) {
        const std::string bin = (e.path() / "bin").string();
        if (std::filesystem::exists(bin + "/initdb") && bin > best) best = bin;
    }
    return best;
}

}  // namespace

PrivateServer::PrivateServer() {
    bin_ = server_bin();
    if (bin_.empty()) throw std::runtime_error("the PostgreSQL server programs are not installed");
    char pattern[] = "/tmp/billdata-pg-own.XXXXXX";
    if (!mkdtemp(pattern)) throw std::runtime_error("cannot make a directory for the server");
    dir_ = pattern;
    if (getuid() == 0) {
        as_server_ = "runuser -u nobody -- ";
        run("chown nobody '" + dir_ + "'");
    }
    run(as_server_ + bin_ + "/initdb -D '" + dir_ + "/data' -A trust -U postgres -E UTF8 " +
        "--locale=C.UTF-8 >'" + dir_ + "/initdb.log' 2>&1");
    {
        // The password role logs in with its password; everyone else is trusted.
        const std::string hba = dir_ + "/data/pg_hba.conf";
        std::ifstream in(hba);
        std::string rest((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        in.close();
        std::string tmp = dir_ + "/hba.tmp";
        std::ofstream(tmp) << "local all billdata_pw scram-sha-256\n" << rest;
        run("cp '" + tmp + "' '" + hba + "'");
    }
    start();
    connection_string_ = "Provider=PostgreSQL;Host=" + dir_ + ";Port=" + std::to_string(port_) +
                         ";Database=postgres;User ID=postgres";
    PostgresDatabase::exec_on(postgres_conninfo(connection_string_),
                              "CREATE ROLE billdata_pw LOGIN CREATEDB PASSWORD 'secret'");
}

PrivateServer::~PrivateServer() {
    try {
        stop();
    } catch (const std::exception&) {
        // Removing the directory below ends what is left.
    }
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
}

void PrivateServer::run(const std::string& command) const {
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("test server command failed: " + command);
}

void PrivateServer::start() {
    run(as_server_ + bin_ + "/pg_ctl -D '" + dir_ + "/data' -l '" + dir_ + "/server.log' -w " +
        "-t 60 -o \"-k " + dir_ + " -p " + std::to_string(port_) +
        " -c listen_addresses='' -c fsync=off\" start >/dev/null");
}

void PrivateServer::stop() {
    run(as_server_ + bin_ + "/pg_ctl -D '" + dir_ + "/data' -m fast -w stop >/dev/null 2>&1");
}

std::vector<std::string> PostgresDatabase::exec_on(const std::string& conninfo,
                                                   const std::string& sql) {
    return Connection(conninfo).exec(sql);
}

std::vector<std::string> PostgresDatabase::exec(const std::string& sql) const {
    return Connection(conninfo_).exec(sql);
}

}  // namespace billdata::testing
