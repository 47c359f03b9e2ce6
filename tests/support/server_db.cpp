#include "support/server_db.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "billdata/ado/ado.h"
#include "billdata/ado/driver.h"
#include "billdata/dialect/dialect.h"
#include "billdata/drivers/odbc/odbc_driver.h"
#include "billdata/schema/schema.h"

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

std::string sqlserver_server() {
    const char* server = std::getenv("BILLDATA_TEST_SQLSERVER");
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
    return engine == "postgresql" || engine == "odbc" || engine == "sqlserver";
}

bool on_sqlserver() {
    return test_engine() == "sqlserver";
}

std::string missing_test_server() {
    if (on_sqlserver())
        return sqlserver_server().empty()
                   ? "no SQL Server for the tests (BILLDATA_TEST_SQLSERVER is not set)"
                   : "";
    return on_test_server() && postgres_server().empty()
               ? "no PostgreSQL server for the tests (BILLDATA_TEST_POSTGRES is not set)"
               : "";
}

namespace {

// A text as it goes between single quotes.
std::string doubled_quotes(std::string_view text) {
    std::string out;
    for (char c : text) {
        out += c;
        if (c == '\'') out += '\'';
    }
    return out;
}

}  // namespace

std::string sqlserver_quoted(std::string_view name) {
    std::string out = "[";
    for (char c : name) {
        out += c;
        if (c == ']') out += ']';
    }
    return out + "]";
}

std::string sqlserver_database_string(const std::string& server, const std::string& name) {
    const auto cs = ado::ConnectionString::parse(server);
    std::string out;
    for (const auto& [key, value] : cs.items()) {
        if (key == "initial catalog" || key == "database") continue;
        // A value that holds what would end it goes in quotes, as the string's reader takes it.
        const bool quote = value.find_first_of(";\"'") != std::string::npos ||
                           (!value.empty() && (value.front() == ' ' || value.back() == ' '));
        std::string written = value;
        if (quote) {
            written = "\"";
            for (char c : value) {
                written += c;
                if (c == '"') written += '"';
            }
            written += '"';
        }
        out += key + "=" + written + ";";
    }
    return out + (cs.has("provider") ? "Initial Catalog=" : "Database=") + name;
}

std::vector<std::string> sqlserver_create_database(const std::string& name) {
    // The collation the shops' databases have: case-insensitive, accent-sensitive. Lists read
    // committed rows without waiting for a till's open transaction, as on the other engines.
    return {"CREATE DATABASE " + sqlserver_quoted(name) + " COLLATE Chinese_PRC_CI_AS",
            "ALTER DATABASE " + sqlserver_quoted(name) + " SET READ_COMMITTED_SNAPSHOT ON"};
}

std::string sqlserver_drop_database(const std::string& name) {
    const std::string literal = doubled_quotes(name);
    return "IF DB_ID(N'" + literal + "') IS NOT NULL BEGIN ALTER DATABASE " +
           sqlserver_quoted(name) + " SET SINGLE_USER WITH ROLLBACK IMMEDIATE; DROP DATABASE " +
           sqlserver_quoted(name) + " END";
}

std::string sqlserver_refusal_trigger(const std::string& event, const std::string& table,
                                      const std::string& when, const std::string& message) {
    const std::string text = doubled_quotes(message);
    // An error raised in a trigger ends the statement and rolls its transaction back, as a full
    // disk would.
    return "CREATE TRIGGER tr_test_refuse ON " + table + " AFTER " + event +
           " AS\nIF EXISTS (SELECT 1 FROM " + (event == "DELETE" ? "deleted" : "inserted") +
           " AS new" + (when.empty() ? "" : " WHERE " + when) + ")\n    THROW 50000, N'" + text +
           "', 1;\n";
}

std::string sqlserver_contents_query(const std::vector<std::string>& tables) {
    std::string sql;
    for (const std::string& table : tables) {
        sql += std::string(sql.empty() ? "select " : "+N';'+") + "(select N'" +
               doubled_quotes(table) +
               ":'+cast(count(*) as nvarchar(20))+N':'+"
               "isnull(cast(checksum_agg(binary_checksum(*)) as nvarchar(20)),N'') from " +
               sqlserver_quoted(table) + ")";
    }
    return sql;
}

EngineDatabase::EngineDatabase() {
    if (on_test_server()) {
        server_ = std::make_unique<ServerDatabase>();
        target_ = server_->connection_string();
    } else {
        target_ = dir_.file("shop.db");
    }
}

std::string EngineDatabase::connection_string() const {
    return server_ ? target_ : "Provider=SQLite;Data Source=" + target_;
}

namespace {

// A connection of its own to the SQL Server's master database (the configured string).
std::unique_ptr<drivers::odbc::ScriptConnection> sqlserver_master() {
    try {
        return std::make_unique<drivers::odbc::ScriptConnection>(
            ado::ConnectionString::parse(sqlserver_server()));
    } catch (const ado::ComError& e) {
        throw std::runtime_error("test SQL Server: " + e.description());
    }
}

void run_on(drivers::odbc::ScriptConnection& server, const std::string& sql) {
    try {
        server.exec(sql);
    } catch (const ado::ComError& e) {
        throw std::runtime_error("test SQL Server: " + e.description() + " in: " + sql);
    }
}

std::string unique_name() {
    static std::atomic<int> counter{0};
    return "bd_test_" + std::to_string(getpid()) + "_" + std::to_string(++counter);
}

}  // namespace

ServerDatabase::ServerDatabase() {
    if (on_sqlserver()) {
        const std::string server = sqlserver_server();
        if (server.empty())
            throw std::runtime_error("no test server: BILLDATA_TEST_SQLSERVER is not set");
        sqlserver_ = true;
        name_ = unique_name();
        const auto master = sqlserver_master();
        run_on(*master, sqlserver_drop_database(name_));  // a name a killed run left behind
        try {
            for (const std::string& sql : sqlserver_create_database(name_))
                run_on(*master, sql);
        } catch (...) {
            // Half made (created, then refused the setting): gone all the same.
            try {
                run_on(*master, sqlserver_drop_database(name_));
            } catch (const std::exception&) {
                // The connection is gone, and the session that was making the database with it.
            }
            throw;
        }
        connection_string_ = sqlserver_database_string(server, name_);
        return;
    }
    const std::string server = postgres_server();
    if (server.empty())
        throw std::runtime_error("no test server: BILLDATA_TEST_POSTGRES is not set");
    name_ = unique_name();
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

ServerDatabase::~ServerDatabase() {
    try {
        if (sqlserver_) {
            run_on(*sqlserver_master(), sqlserver_drop_database(name_));
            return;
        }
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
    ServerDatabase::exec_on(postgres_conninfo(connection_string_),
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

std::vector<std::string> ServerDatabase::exec_on(const std::string& conninfo,
                                                 const std::string& sql) {
    return Connection(conninfo).exec(sql);
}

std::string ServerDatabase::scalar(const std::string& sql) const {
    if (!sqlserver_) {
        const std::vector<std::string> rows = exec(sql);
        return rows.empty() ? "" : rows[0].substr(0, rows[0].find('|'));
    }
    try {
        return drivers::odbc::ScriptConnection(ado::ConnectionString::parse(connection_string_))
            .scalar(sql);
    } catch (const ado::ComError& e) {
        throw std::runtime_error(e.description() + " in: " + sql);
    }
}

void ServerDatabase::create_postgresql_schema(const std::string& then) const {
    exec(std::string(schema::postgresql_runtime()) + "\n" +
         std::string(schema::postgresql_schema()) + "\n" + schema::information_schema_sql(true) +
         then);
}

std::vector<std::string> ServerDatabase::exec(const std::string& sql) const {
    if (!sqlserver_) return Connection(conninfo_).exec(sql);
    bool query = false;
    try {
        query = dialect::check_single_statement(sql) == dialect::StatementKind::Select;
    } catch (const dialect::DialectError&) {
        // Not a statement the component sends: the server's own script.
    }
    std::vector<std::string> rows;
    try {
        if (!query) {
            drivers::odbc::ScriptConnection(ado::ConnectionString::parse(connection_string_))
                .exec(sql);
            return rows;
        }
        auto cn = ado::Connection::create();
        cn->Open(connection_string_);
        auto rs = cn->Execute(sql);
        for (; !rs->Eof(); rs->MoveNext()) {
            std::string row;
            for (std::size_t i = 0; i < rs->GetFields().Count(); ++i) {
                const ado::Variant v = rs->Fields(i).Value();
                row += (v.is_null() ? std::string("NULL") : v.to_string()) + "|";
            }
            rows.push_back(row);
        }
        rs->Close();
        cn->Close();
    } catch (const ado::ComError& e) {
        throw std::runtime_error(e.description() + " in: " + sql);
    }
    return rows;
}

}  // namespace billdata::testing
