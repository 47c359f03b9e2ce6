// The billdata command-line program: a thin layer over the library for people and scripts.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/ado/version.h"
#include "billdata/dialect/dialect.h"
#include "billdata/schema/builtin_catalog.h"
#include "billdata/schema/schema.h"
#include "billdata/server/describe.h"
#include "billdata/server/dispatch.h"
#include "billdata/server/json_call.h"
#include "cli.h"
#include "manual.h"
#include "output.h"

namespace billdata::cli {

namespace {

using ado::ComError;

int report(const ComError& e) {
    std::cerr << "billdata: error " << e.number() << ": " << e.description() << "\n";
    return 1;
}

int run_init(const std::string& path, bool demo, int year, int period) {
    schema::create_database(path, demo, year, period);
    std::cout << "billdata: created " << path << (demo ? " with demo master data" : "") << "\n";
    return 0;
}

// `billdata upgrade`: what it did, a line each, or that there was nothing to do.
int run_upgrade(const std::string& db) {
    const std::string target = database_from(db);
    const std::vector<std::string> done = schema::upgrade_database(target);
    const std::string name = db.empty() ? std::string(std::getenv("BILLDATA_DB")) : db;
    if (done.empty()) {
        std::cout << "billdata: " << name << " is up to date\n";
        return 0;
    }
    std::cout << "billdata: upgraded " << name << "\n";
    for (const std::string& line : done)
        std::cout << "  " << line << "\n";
    return 0;
}

int run_sql(const std::string& db, const std::string& sql, Format format) {
    auto cn = ado::Connection::create();
    cn->Open(database_from(db));
    long affected = 0;
    auto rs = cn->Execute(sql, &affected);
    if (rs->State() == ado::adStateOpen) {
        print_recordset(std::cout, *rs, format);
    } else {
        std::cout << "(" << affected << " row" << (affected == 1 ? "" : "s") << " affected)\n";
    }
    cn->Close();
    return 0;
}

int run_translate(const std::string& engine, const std::string& sql) {
    if (engine != "sqlite" && engine != "postgresql") {
        throw ComError(ado::err::kDatabase, "unknown engine '" + engine +
                                                "': the translator targets sqlite or postgresql");
    }
    try {
        // Both engines' schemas have the same tables, columns and kept totals.
        auto t = engine == "sqlite" ? dialect::translate_sqlite(sql, schema::builtin_catalog())
                                    : dialect::translate_postgresql(sql, schema::builtin_catalog());
        std::cout << t.sql << "\n";
    } catch (const dialect::DialectError& e) {
        throw ComError(ado::err::kDatabase, e.what());
    }
    return 0;
}

// `billdata describe`: JSON errors answer as a call's do, readable ones as the other commands'.
int run_describe(const std::string& target, const std::string& format) {
    const bool json = format == "json" || (format.empty() && !::isatty(STDOUT_FILENO));
    auto& registry = server::Registry::instance();
    if (!json) {
        std::cout << server::describe_text(registry, target);
        return 0;
    }
    try {
        std::cout << server::describe_json(registry, target) << "\n";
        return 0;
    } catch (const ComError& e) {
        std::cout << server::error_json(e) << "\n";
        return 1;
    }
}

}  // namespace

std::string database_from(const std::string& option) {
    std::string db = option;
    if (db.empty()) {
        const char* env = std::getenv("BILLDATA_DB");
        if (!env || !*env) {
            throw ComError(
                ado::err::kConnection,
                "no database given: use --db <connection string or file> or set BILLDATA_DB");
        }
        db = env;
    }
    // `init` takes any file name, so the other commands take the same ones.
    if (db.find('=') != std::string::npos || schema::is_server_database(db)) return db;
    std::string quoted = "\"";
    for (char c : db)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return "Provider=SQLite;Data Source=" + quoted + "\"";
}

bool output_written() {
    if (std::cout.flush()) return true;
    const int error = errno;
    std::cerr << "billdata: cannot write to standard output (" << std::strerror(error)
              << "): the answers are lost\n";
    return false;
}

int run(int argc, char** argv) {
    CLI::App app{"billdata — bill data of an apparel back office with point-of-sale tills",
                 "billdata"};
    app.footer(
        "Environment: BILLDATA_DB is the database of a command given no --db; with "
        "BILLDATA_SQL_LOG=<file> every statement the component issues is appended to the file.\n"
        "Exit status: 0 done; 1 the command or a call failed; 2 the output could not be "
        "written.\n"
        "`billdata <command> --help` describes a command; `billdata describe` the classes, "
        "their methods and parameters.");
    app.set_version_flag("--version", [] {
        std::string text = version_text();
        if (!text.empty() && text.back() == '\n') text.pop_back();
        return text;
    });
    bool manual = false;
    // Hidden: the build writes the installed manual page with it.
    app.add_flag("--manual-page", manual, "print the manual page (roff)")->group("");
    app.require_subcommand(1);

    std::string init_path;
    bool init_demo = false;
    int init_year = 0, init_period = 0;
    auto* init = app.add_subcommand("init", "create a new database");
    init->add_option("db", init_path,
                     "path of the new database file, or a PostgreSQL connection string naming "
                     "an existing empty database")
        ->required();
    init->add_flag("--demo", init_demo, "add demo master data");
    init->add_option("--year", init_year, "current year (default: this year)");
    init->add_option("--period", init_period, "current period 1-12 (default: this month)");

    std::string sql_db, sql_text, sql_format = "table";
    auto* sql = app.add_subcommand("sql", "run one T-SQL statement and print its rows");
    sql->add_option("--db", sql_db, "connection string or database file (default: $BILLDATA_DB)");
    sql->add_option("--format", sql_format, "table, json or csv")
        ->check(CLI::IsMember({"table", "json", "csv"}));
    sql->add_option("statement", sql_text, "the statement")->required();

    std::string upgrade_db;
    auto* upgrade = app.add_subcommand(
        "upgrade", "bring a database made by an earlier version up to date, keeping its data");
    upgrade->add_option("--db", upgrade_db,
                        "connection string or database file (default: $BILLDATA_DB)");

    std::string tr_engine = "sqlite", tr_text;
    auto* translate = app.add_subcommand("translate", "print a T-SQL statement translated");
    translate->add_option("--engine", tr_engine, "target engine (sqlite or postgresql)");
    translate->add_option("statement", tr_text, "the statement")->required();

    std::string call_db, call_format, call_target, call_args;
    int call_year = 0, call_period = 0;
    auto* call = app.add_subcommand("call", "call one method of a class with JSON arguments");
    call->add_option("--db", call_db, "connection string or database file (default: $BILLDATA_DB)");
    call->add_option("--year", call_year, "current year (default: the database's CurrentYear)");
    call->add_option("--period", call_period,
                     "current period (default: the database's CurrentPeriod)");
    call->add_option("--format", call_format,
                     "json, table or csv (default: table on a terminal, else json)")
        ->check(CLI::IsMember({"table", "json", "csv"}));
    call->add_option("method", call_target, "Class.Method, e.g. PosData.GetBillList")->required();
    call->add_option("args", call_args, "the arguments: a JSON object keyed by parameter names");

    std::string batch_db;
    auto* batch = app.add_subcommand(
        "batch",
        "run JSON lines {\"call\": \"Class.Method\", \"args\": {...}} from standard input");
    batch->add_option("--db", batch_db,
                      "start the session on this database as call does (default: the stream "
                      "calls Init itself)");

    std::string describe_target, describe_format;
    auto* describe = app.add_subcommand(
        "describe",
        "list the classes, a class's methods, or a method's parameters with an example call");
    describe->add_option("name", describe_target,
                         "Class or Class.Method, without regard to case (default: every class)");
    describe
        ->add_option("--format", describe_format,
                     "text or json (default: text on a terminal, else json)")
        ->check(CLI::IsMember({"text", "json"}));

    std::string demo_db;
    bool demo_keep = false;
    auto* demo = app.add_subcommand(
        "demo", "a day at a shop, narrated, on a fresh embedded database (seconds)");
    demo->add_option("--db", demo_db,
                     "the new database file to create and keep, or a PostgreSQL connection "
                     "string naming an existing empty database (default: a temporary file)");
    demo->add_flag("--keep", demo_keep, "keep the temporary database and print where it is");

    for (int i = 1; i < argc; ++i)
        if (std::string_view(argv[i]) == "--manual-page") app.require_subcommand(0);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    }
    if (manual) {
        std::cout << manual_page(app, version());
        return output_written() ? 0 : kExitOutputLost;
    }

    int status = 0;
    try {
        if (*init) status = run_init(init_path, init_demo, init_year, init_period);
        if (*sql) status = run_sql(sql_db, sql_text, parse_format(sql_format));
        if (*upgrade) status = run_upgrade(upgrade_db);
        if (*translate) status = run_translate(tr_engine, tr_text);
        if (*call)
            status = run_call(call_db, call_year, call_period, call_format, call_target, call_args);
        if (*batch) status = run_batch(batch_db);
        if (*describe) status = run_describe(describe_target, describe_format);
        if (*demo) status = run_demo(demo_db, demo_keep);
    } catch (const ComError& e) {
        status = report(e);
    } catch (const std::exception& e) {
        std::cerr << "billdata: " << e.what() << "\n";
        status = 1;
    }
    if (status != kExitOutputLost && !output_written()) status = kExitOutputLost;
    return status;
}

}  // namespace billdata::cli
