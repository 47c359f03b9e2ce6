#include "support/postgres.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
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
    static const std::pair<const char*, const char*> kKeys[] = {{"host", "host"},
                                                                {"port", "port"},
                                                                {"database", "dbname"},
                                                                {"user id", "user"},
                                                                {"password", "password"}};
    std::string out;
    for (const auto& [ours, theirs] : kKeys) {
        if (!cs.has(ours)) continue;
        if (!out.empty()) out += ' ';
        out += std::string(theirs) + "=" + quoted_value(cs.get(ours));
    }
    return out;
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
}

PostgresDatabase::~PostgresDatabase() {
    try {
        Connection admin(postgres_conninfo(postgres_server()));
        admin.exec("DROP DATABASE IF EXISTS " + name_ + " WITH (FORCE)");
    } catch (const std::exception&) {
        // A server that went away takes its databases with it.
    }
}

std::vector<std::string> PostgresDatabase::exec(const std::string& sql) const {
    return Connection(conninfo_).exec(sql);
}

}  // namespace billdata::testing
