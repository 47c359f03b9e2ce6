// The SQL Server script's procedures and triggers against the embedded engine's own: their
// bodies are run statement by statement on a database file, each query and write translated by
// translate_sqlite with the variables put in as literals, and the results compared with what
// the embedded procedures and triggers leave on the same rows. Only the transaction control
// (BEGIN/SAVE/COMMIT/ROLLBACK TRAN) is not translated: it is not a statement the translator
// takes, and runs as the engine's own BEGIN, SAVEPOINT, COMMIT and ROLLBACK [TO]. The PostgreSQL
// script's procedures are held to the same results on the tests' server.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "billdata/ado/driver.h"
#include "billdata/dialect/lexer.h"
#include "billdata/dialect/script.h"
#include "billdata/drivers/sqlite/procedures.h"
#include "billdata/schema/builtin_catalog.h"
#include "billdata/schema/schema.h"
#include "support/raw_db.h"
#include "support/server_db.h"
#include "support/test_support.h"

namespace dialect = billdata::dialect;
using billdata::ado::Variant;
using billdata::ado::VarType;
using billdata::ado::driver::ProcArg;
using billdata::testing::RawDb;
using billdata::testing::ServerDatabase;
using dialect::ScriptKind;
using dialect::ScriptStatement;

namespace {

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

struct Value {
    enum class Kind { Null, Integer, Real, Text } kind = Kind::Null;
    long long integer = 0;
    double real = 0;
    std::string text;
    double number() const { return kind == Kind::Integer ? static_cast<double>(integer) : real; }
};

// Runs a body of the script on a database handle, as the server would run it.
class BodyRunner {
  public:
    BodyRunner(sqlite3* db, std::string_view script, const dialect::Catalog& catalog)
        : db_(db), text_(script), catalog_(catalog) {}

    void declare(const std::string& name, const std::string& type, Value v = {}) {
        types_[lower(name)] = type;
        set(name, std::move(v));
    }
    const Value& get(const std::string& name) { return vars_[lower(name)]; }
    // UPDATE(column) in a trigger body: whether the firing statement set it.
    std::set<std::string> updated_columns;

    void run(const std::vector<ScriptStatement>& body) {
        try {
            block(body);
        } catch (const Returned&) {
        }
    }

  private:
    struct Returned {};

    void block(const std::vector<ScriptStatement>& body) {
        for (const auto& s : body)
            statement(s);
    }

    void statement(const ScriptStatement& s) {
        switch (s.kind) {
            case ScriptKind::Option:  // SET NOCOUNT ON: no row counts to keep quiet here
                break;
            case ScriptKind::Declare:
                for (const auto& v : s.variables)
                    declare(v.name, v.type.name);
                break;
            case ScriptKind::DeclareCursor:
                cursors_[lower(s.name)] = Cursor{s.query, {}, 0};
                break;
            case ScriptKind::Open: {
                Cursor& c = cursors_.at(lower(s.name));
                c.rows = query(substitute(c.query));
                c.next = 0;
                break;
            }
            case ScriptKind::Fetch: {
                Cursor& c = cursors_.at(lower(s.name));
                const bool row = c.next < c.rows.size();
                if (row) {
                    for (std::size_t i = 0; i < s.variables.size(); ++i)
                        set(s.variables[i].name, c.rows[c.next][i]);
                    ++c.next;
                }
                vars_["@@fetch_status"] = Value{Value::Kind::Integer, row ? 0 : -1, 0, {}};
                break;
            }
            case ScriptKind::Close:
            case ScriptKind::Deallocate:
                break;
            case ScriptKind::Assign:
                set(s.variables[0].name, scalar(s.value));
                break;
            case ScriptKind::Query: {
                auto rows = query(substitute(s.span, s.targets));
                if (!s.targets.empty() && !rows.empty())
                    for (std::size_t i = 0; i < s.targets.size(); ++i)
                        set(s.targets[i].variable, rows.back()[i]);
                break;
            }
            case ScriptKind::If:
                if (condition(s.value))
                    statement(s.body[0]);
                else if (s.body.size() > 1)
                    statement(s.body[1]);
                break;
            case ScriptKind::While:
                while (condition(s.value))
                    statement(s.body[0]);
                break;
            case ScriptKind::Block:
                block(s.body);
                break;
            case ScriptKind::Return:
                throw Returned{};
            case ScriptKind::Begin:
                native("BEGIN");
                break;
            case ScriptKind::Save:
                native("SAVEPOINT " + s.name);
                break;
            case ScriptKind::Commit:
                native("COMMIT");
                break;
            case ScriptKind::Rollback:
                native(s.name.empty() ? "ROLLBACK" : "ROLLBACK TO " + s.name);
                break;
            case ScriptKind::Try:
                try {
                    statement(s.body[0]);
                } catch (const Returned&) {
                    throw;
                } catch (const std::exception&) {
                    caught_ = std::current_exception();
                    statement(s.body[1]);
                }
                break;
            case ScriptKind::Throw:
                std::rethrow_exception(caught_);
            default:
                FAIL() << "no way to run " << s.span.of(text_);
        }
    }

    void set(const std::string& name, Value v) {
        const std::string& type = types_[lower(name)];
        if (v.kind == Value::Kind::Null) {
        } else if (type == "float") {
            v = Value{Value::Kind::Real, 0, v.number(), {}};
        } else if (type == "int" || type == "bit") {
            const auto n = static_cast<long long>(v.number());
            v = Value{Value::Kind::Integer, type == "bit" ? n != 0 : n, 0, {}};
        }
        vars_[lower(name)] = std::move(v);
    }

    static std::string literal(const Value& v) {
        switch (v.kind) {
            case Value::Kind::Null:
                return "NULL";
            case Value::Kind::Integer:
                return std::to_string(v.integer);
            case Value::Kind::Real: {
                char buf[64];
                auto end = std::to_chars(buf, buf + sizeof buf, v.real).ptr;
                return "CAST(" + std::string(buf, end) + " AS float)";
            }
            case Value::Kind::Text: {
                std::string out = "N'";
                for (char c : v.text)
                    out += c == '\'' ? std::string("''") : std::string(1, c);
                return out + "'";
            }
        }
        return {};
    }

    // The statement's text with its variables (and the server's state) put in as literals and
    // the `@v =` of its assignments cut out.
    std::string substitute(dialect::ScriptSpan span,
                           const std::vector<dialect::ScriptTarget>& cuts = {}) {
        std::string part(span.of(text_));
        std::vector<dialect::Token> tokens;
        dialect::Lexer(part).run(tokens);
        std::string out;
        std::size_t at = 0;
        auto in_cut = [&](std::size_t pos) {
            for (const auto& c : cuts)
                if (span.begin + pos >= c.assign.begin && span.begin + pos < c.assign.end)
                    return true;
            return false;
        };
        const bool in_tran = sqlite3_get_autocommit(db_) == 0;
        for (std::size_t i = 0; i < tokens.size(); ++i) {
            const dialect::Token& t = tokens[i];
            std::string with;
            std::size_t end = t.pos + t.len;
            if (in_cut(t.pos)) {
            } else if (t.kind == dialect::Tok::Variable) {
                const std::string name = lower(t.text);
                with = name == "@@trancount" ? (in_tran ? "1" : "0") : literal(vars_.at(name));
            } else if (t.kind == dialect::Tok::Identifier && i + 2 < tokens.size() &&
                       tokens[i + 1].kind == dialect::Tok::LParen &&
                       tokens[i + 2].kind == dialect::Tok::RParen &&
                       lower(t.text) == "xact_state") {
                with = in_tran ? "1" : "0";
                end = tokens[i + 2].pos + 1;
                i += 2;
            } else if (t.kind == dialect::Tok::Identifier && t.kw == dialect::Kw::kUPDATE &&
                       i + 3 < tokens.size() && tokens[i + 1].kind == dialect::Tok::LParen) {
                with = updated_columns.count(lower(tokens[i + 2].text)) ? "(1 = 1)" : "(1 = 0)";
                end = tokens[i + 3].pos + 1;
                i += 3;
            } else {
                with = part.substr(t.pos, t.len);
            }
            out += part.substr(at, t.pos - at) + with;
            at = end;
        }
        return out + part.substr(at);
    }

    Value scalar(dialect::ScriptSpan expr) {
        auto rows = query("SELECT " + substitute(expr));
        return rows.at(0).at(0);
    }
    bool condition(dialect::ScriptSpan expr) {
        return scalar_text("SELECT CASE WHEN " + substitute(expr) + " THEN 1 ELSE 0 END") == 1;
    }
    long long scalar_text(const std::string& tsql) { return query(tsql).at(0).at(0).integer; }

    std::vector<std::vector<Value>> query(const std::string& tsql) {
        const std::string sql = dialect::translate_sqlite(tsql, catalog_).sql;
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) {
            sqlite3_finalize(st);
            throw std::runtime_error(std::string(sqlite3_errmsg(db_)) + " in " + sql);
        }
        std::vector<std::vector<Value>> rows;
        int rc;
        while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
            std::vector<Value>& row = rows.emplace_back();
            for (int i = 0; i < sqlite3_column_count(st); ++i) {
                Value v;
                switch (sqlite3_column_type(st, i)) {
                    case SQLITE_INTEGER:
                        v = Value{Value::Kind::Integer, sqlite3_column_int64(st, i), 0, {}};
                        break;
                    case SQLITE_FLOAT:
                        v = Value{Value::Kind::Real, 0, sqlite3_column_double(st, i), {}};
                        break;
                    case SQLITE_NULL:
                        break;
                    default:
                        v = Value{Value::Kind::Text, 0, 0,
                                  reinterpret_cast<const char*>(sqlite3_column_text(st, i))};
                }
                row.push_back(std::move(v));
            }
        }
        sqlite3_finalize(st);
        if (rc != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(db_));
        return rows;
    }

    void native(const std::string& sql) {
        if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(db_));
    }

    struct Cursor {
        dialect::ScriptSpan query;
        std::vector<std::vector<Value>> rows;
        std::size_t next = 0;
    };

    sqlite3* db_;
    std::string_view text_;
    const dialect::Catalog& catalog_;
    std::map<std::string, Value> vars_;
    std::map<std::string, std::string> types_;
    std::map<std::string, Cursor> cursors_;
    std::exception_ptr caught_;
};

const dialect::Script& script() {
    static const dialect::Script s = dialect::parse_script(billdata::schema::sqlserver_schema());
    return s;
}

const ScriptStatement& created(std::string_view name) {
    for (const auto& s : script().statements)
        if (s.name == name) return s;
    throw std::runtime_error("not in the script: " + std::string(name));
}

// Bills of every kind, in the current period (2025-03), before it and after it, by
// FYear/FPeriod or by date only; a voided bill, pre-sent and adjustment rows, a line selling
// lent goods, a line without its header, an item that starts from its FPjCost and one that goes
// below zero.
constexpr const char* kRows = R"sql(
INSERT INTO t_ICItem (FItemID, FNumber, FPjCost) VALUES (1, 'A', 40), (2, 'B', 50), (3, 'C', 0);
INSERT INTO ICInitData (FStockID, FItemID, FQty, FAmount) VALUES (1, 1, 10, 400), (2, 1, 3, 130);
INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FPrice) VALUES
    (1, 1, 1, 5, 46.37), (1, 2, 2, 4, 55), (1, 3, 1, 2, 47.11),
    (2, 1, 1, 3, 99), (2, NULL, 1, 1, 99), (2, -1, 1, 0, 12), (2, 2, 3, 2, 80),
    (3, 1, 1, 4, 50.5), (4, 1, 2, 1, 61.3), (5, 1, 2, 2, 0), (6, 1, 2, 1, 0), (7, 1, 1, 2, 0),
    (8, 1, 3, 5, 30.25), (9, 1, 1, 1, 99), (10, 1, 3, 1, 99), (10, 2, 1, 1, 99), (11, 1, 1, 7, 3);
INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FPrice, FRefTranType) VALUES
    (2, 3, 1, 2, 99, 27);
INSERT INTO ICStockBill (FInterID, FTranType, FInStockID, FOutStockID, FYear, FPeriod, FDate,
                         FDeleted) VALUES
    (1, 112, 1, NULL, 2025, 2, '2025-02-10', 0), (2, 99, NULL, 1, 2025, 3, '2025-03-01', 0),
    (3, 31, 2, 1, 2025, 3, '2025-03-02', 0), (4, 114, 1, NULL, 2025, 3, '2025-03-03', 0),
    (5, 27, NULL, 1, 2025, 3, '2025-03-03', 0), (6, 17, 1, NULL, 2025, 3, '2025-03-04', 0),
    (7, 125, NULL, 2, NULL, NULL, '2025-04-02', 0), (8, 115, 1, NULL, 2025, 3, '2025-03-05', 0),
    (9, 99, NULL, 1, 2025, 3, '2025-03-05', 1), (10, 99, NULL, 1, NULL, NULL, '2025-02-27', 0);
)sql";

// Costs in ten-thousandths, so that every engine prints them alike.
constexpr const char* kCosts =
    "SELECT FInterID, FEntryID, FItemID, CAST(round(FUnitCost * 10000) AS INTEGER), "
    "CAST(round(FCost * 10000) AS INTEGER) FROM ICStockBillEntry "
    "UNION ALL SELECT FItemID, NULL, NULL, CAST(round(FPjCost * 10000) AS INTEGER), NULL "
    "FROM t_ICItem";

}  // namespace

// The SQL Server script's procedures, and the PostgreSQL ones on the tests' server when there is
// one, against the embedded ones on the same rows.
TEST(ScriptProcedures, GiveWhatTheEmbeddedProceduresGiveOnTheSameRows) {
    billdata::testing::TempDir dir;
    const std::string embedded_path = dir.file("embedded.db"), script_path = dir.file("script.db");
    billdata::schema::create_database(embedded_path, false, 2025, 3);
    billdata::schema::create_database(script_path, false, 2025, 3);
    RawDb embedded(embedded_path), scripted(script_path);
    std::unique_ptr<ServerDatabase> pg;
    if (!billdata::testing::postgres_server().empty()) {
        pg = std::make_unique<ServerDatabase>();
        pg->create_postgresql_schema(
            "\nINSERT INTO t_SystemProfile (FKey, FValue) VALUES ('CurrentYear', '2025'), "
            "('CurrentPeriod', '3')");
    }
    auto all = [&](const std::string& sql) {
        embedded.exec(sql);
        scripted.exec(sql);
        if (pg) pg->exec(sql);
    };
    all(kRows);
    const auto& catalog = billdata::schema::builtin_catalog();
    const std::string_view text = billdata::schema::sqlserver_schema();

    const auto stock_qty = billdata::drivers::sqlite::find_procedure("sp_getstockqty");
    const ScriptStatement& stock_body = created("sp_GetStockQty");
    for (int stock : {1, 2})
        for (int item : {1, 2, 3})
            for (int inter : {0, 2, 3}) {
                SCOPED_TRACE("stock " + std::to_string(stock) + ", item " + std::to_string(item) +
                             ", bill " + std::to_string(inter));
                std::vector<ProcArg> args = {
                    {"@StockID", VarType::Long, 1, Variant(std::int32_t{stock})},
                    {"@ItemID", VarType::Long, 1, Variant(std::int32_t{item})},
                    {"@InterID", VarType::Long, 1, Variant(std::int32_t{inter})},
                    {"@RtnQty", VarType::Double, 2, Variant()},
                };
                stock_qty(embedded.handle(), args);
                BodyRunner run(scripted.handle(), text, catalog);
                for (int i = 0; i < 4; ++i) {
                    const int value = i == 0 ? stock : i == 1 ? item : inter;
                    run.declare(stock_body.variables[i].name, stock_body.variables[i].type.name,
                                i < 3 ? Value{Value::Kind::Integer, value, 0, {}} : Value{});
                }
                run.run(stock_body.body);
                EXPECT_DOUBLE_EQ(run.get("@RtnQty").number(), args[3].value.to_double());
                if (pg) {
                    EXPECT_DOUBLE_EQ(
                        std::stod(pg->scalar("SELECT rtnqty FROM sp_getstockqty(" +
                                             std::to_string(stock) + "," + std::to_string(item) +
                                             "," + std::to_string(inter) + ")")),
                        args[3].value.to_double());
                }
            }

    const auto cost = billdata::drivers::sqlite::find_procedure("sp_cacucost");
    auto recalculate_and_compare = [&](const std::string& step) {
        SCOPED_TRACE(step);
        std::vector<ProcArg> none;
        cost(embedded.handle(), none);
        BodyRunner(scripted.handle(), text, catalog).run(created("Sp_CacuCost").body);
        const auto expected = embedded.rows(kCosts);
        EXPECT_EQ(scripted.rows(kCosts), expected);
        for (const RawDb* db : {&embedded, &scripted})
            EXPECT_EQ(db->integer("SELECT count(*) FROM ICCostDirty"), 0);
        if (pg) {
            pg->exec("SELECT sp_cacucost()");
            auto server = pg->exec(kCosts);
            std::sort(server.begin(), server.end());
            EXPECT_EQ(server, expected);
            EXPECT_EQ(pg->scalar("SELECT count(*) FROM ICCostDirty"), "0");
        }
        return expected;
    };
    const auto first = recalculate_and_compare("first run");
    // Changes that make only some items dirty: a later receipt and a re-priced early line.
    all("INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FPrice) VALUES "
        "(12, 1, 1, 6, 61.7); INSERT INTO ICStockBill (FInterID, FTranType, FInStockID, FYear, "
        "FPeriod) VALUES (12, 112, 1, 2025, 3);"
        "UPDATE ICStockBillEntry SET FPrice = 33 WHERE FInterID = 8 AND FEntryID = 1;");
    EXPECT_NE(recalculate_and_compare("after a receipt and a new price"), first);
    // An earlier current period makes every item dirty and more bills writable.
    all("UPDATE t_SystemProfile SET FValue = '2' WHERE FKey = 'CurrentPeriod'");
    recalculate_and_compare("after the period moved back");
}

namespace {

// One change and the script's triggers it fires, run on a database whose own cost and delete
// triggers are dropped: the changed rows before and after the change become the tables deleted
// and inserted, and each trigger of the table for that kind of change runs its body over them.
class ScriptTriggers {
  public:
    explicit ScriptTriggers(RawDb& db) : db_(db) {
        for (const auto& s : script().statements) {
            if (s.kind != ScriptKind::CreateTrigger) continue;
            triggers_.push_back(&s);
            for (const char* suffix : {"", "Ins", "Upd", "Del"})
                db_.exec("DROP TRIGGER IF EXISTS " + s.name + suffix);
        }
    }

    // `kind` INSERT, UPDATE or DELETE; `where` picks the rows an update or delete changes.
    void change(const std::string& table, const std::string& kind, const std::string& sql,
                const std::string& where = "0", std::set<std::string> set_columns = {}) {
        db_.exec("CREATE TEMP TABLE bd_rows AS SELECT rowid AS r FROM " + table + " WHERE " +
                 (kind == "INSERT" ? "0" : where));
        db_.exec("CREATE TEMP TABLE deleted AS SELECT * FROM " + table +
                 " WHERE rowid IN (SELECT r FROM bd_rows)");
        const long long last = db_.integer("SELECT coalesce(max(rowid), 0) FROM " + table);
        db_.exec(sql);
        db_.exec("CREATE TEMP TABLE inserted AS SELECT * FROM " + table + " WHERE " +
                 (kind == "INSERT"   ? "rowid > " + std::to_string(last)
                  : kind == "UPDATE" ? "rowid IN (SELECT r FROM bd_rows)"
                                     : "0"));
        if (kind == "INSERT")
            for (const auto& c : billdata::schema::builtin_catalog().columns(table))
                set_columns.insert(lower(c));
        fire(table, kind, set_columns);
        db_.exec("DROP TABLE temp.bd_rows; DROP TABLE temp.deleted; DROP TABLE temp.inserted");
    }

  private:
    void fire(const std::string& table, const std::string& kind,
              const std::set<std::string>& set_columns) {
        dialect::Catalog catalog = billdata::schema::builtin_catalog();
        for (const auto& c : catalog.columns(table))
            for (const char* t : {"inserted", "deleted"})
                catalog.add_column(t, c, catalog.column_type(table, c));
        for (const ScriptStatement* t : triggers_) {
            if (lower(t->table) != lower(table)) continue;
            if (std::find(t->events.begin(), t->events.end(), kind) == t->events.end()) continue;
            // The delete triggers' own deletes fire the lines' triggers, as nested triggers do
            // on the server: the lines of the deleted bills, taken before they go.
            const bool cascades = table == "ICStockBill" && kind == "DELETE";
            if (cascades)
                db_.exec(
                    "CREATE TEMP TABLE bd_lines AS SELECT * FROM ICStockBillEntry "
                    "WHERE FInterID IN (SELECT FInterID FROM temp.deleted)");
            BodyRunner run(db_.handle(), billdata::schema::sqlserver_schema(), catalog);
            run.updated_columns = set_columns;
            run.run(t->body);
            if (cascades) {
                db_.exec(
                    "ALTER TABLE temp.deleted RENAME TO bd_outer; "
                    "ALTER TABLE temp.inserted RENAME TO bd_outer_inserted; "
                    "ALTER TABLE temp.bd_lines RENAME TO deleted; "
                    "CREATE TEMP TABLE inserted AS SELECT * FROM deleted WHERE 0");
                fire("ICStockBillEntry", "DELETE", {});
                db_.exec(
                    "DROP TABLE temp.deleted; DROP TABLE temp.inserted; "
                    "ALTER TABLE temp.bd_outer RENAME TO deleted; "
                    "ALTER TABLE temp.bd_outer_inserted RENAME TO inserted");
            }
        }
    }

    RawDb& db_;
    std::vector<const ScriptStatement*> triggers_;
};

}  // namespace

TEST(ScriptTriggers, MarkTheItemsAndDeleteTheLinesTheEmbeddedTriggersDo) {
    billdata::testing::TempDir dir;
    const std::string embedded_path = dir.file("embedded.db"), script_path = dir.file("script.db");
    billdata::schema::create_database(embedded_path, false, 2025, 3);
    billdata::schema::create_database(script_path, false, 2025, 3);
    RawDb embedded(embedded_path), scripted(script_path);
    embedded.exec(kRows);
    scripted.exec(kRows);
    const std::string orders =
        "INSERT INTO ICOrder (FInterID, FTranType) VALUES (20, 11), (21, 11);"
        "INSERT INTO ICOrderEntry (FInterID, FEntryID, FItemID, FRowKey) VALUES "
        "(20, 1, 1, 'a'), (21, 1, 2, 'b');"
        "INSERT INTO ICOrderEntry_1 (FInterID, FItemID, FRowKey) VALUES (20, 1, 'a'), (21, 2, 'b');"
        "INSERT INTO ICStockBillEntry_1 (FInterID, FItemID, FRowKey) VALUES (3, 1, 'r'), (4, 2, 'r');"
        "DELETE FROM ICCostDirty";
    embedded.exec(orders);
    ScriptTriggers triggers(scripted);
    scripted.exec(orders);

    const std::string state =
        "SELECT 'dirty', FItemID FROM ICCostDirty UNION ALL "
        "SELECT 'line', FInterID || '.' || coalesce(FEntryID, '') FROM ICStockBillEntry UNION ALL "
        "SELECT 'size', FInterID FROM ICStockBillEntry_1 UNION ALL "
        "SELECT 'order line', FInterID FROM ICOrderEntry UNION ALL "
        "SELECT 'order size', FInterID FROM ICOrderEntry_1";
    auto step = [&](const std::string& what, const std::string& table, const std::string& kind,
                    const std::string& sql, const std::string& where = "0",
                    const std::set<std::string>& set_columns = {}) {
        SCOPED_TRACE(what);
        embedded.exec(sql);
        triggers.change(table, kind, sql, where, set_columns);
        EXPECT_EQ(scripted.rows(state), embedded.rows(state));
        embedded.exec("DELETE FROM ICCostDirty");
        scripted.exec("DELETE FROM ICCostDirty");
    };
    step("lines before their header", "ICStockBillEntry", "INSERT",
         "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty) VALUES "
         "(30, 1, 2, 1), (30, 2, 3, 1)");
    step("their header", "ICStockBill", "INSERT",
         "INSERT INTO ICStockBill (FInterID, FTranType, FInStockID) VALUES (30, 112, 1)");
    step("costs only", "ICStockBillEntry", "UPDATE",
         "UPDATE ICStockBillEntry SET FUnitCost = 1, FCost = 2 WHERE FInterID = 1", "FInterID = 1",
         {"funitcost", "fcost"});
    step("a quantity", "ICStockBillEntry", "UPDATE",
         "UPDATE ICStockBillEntry SET FQty = 9 WHERE FInterID = 1 AND FEntryID = 2",
         "FInterID = 1 AND FEntryID = 2", {"fqty"});
    step("a remark", "ICStockBill", "UPDATE",
         "UPDATE ICStockBill SET FRemark = 'x' WHERE FInterID = 3", "FInterID = 3", {"fremark"});
    step("a void mark", "ICStockBill", "UPDATE",
         "UPDATE ICStockBill SET FDeleted = 1 WHERE FInterID = 3", "FInterID = 3", {"fdeleted"});
    step("opening data", "ICInitData", "DELETE", "DELETE FROM ICInitData WHERE FStockID = 2",
         "FStockID = 2");
    step("the same period", "t_SystemProfile", "UPDATE",
         "UPDATE t_SystemProfile SET FValue = '3' WHERE FKey = 'CurrentPeriod'",
         "FKey = 'CurrentPeriod'", {"fvalue"});
    step("another period", "t_SystemProfile", "UPDATE",
         "UPDATE t_SystemProfile SET FValue = '4' WHERE FKey = 'CurrentPeriod'",
         "FKey = 'CurrentPeriod'", {"fvalue"});
    step("a stock bill", "ICStockBill", "DELETE", "DELETE FROM ICStockBill WHERE FInterID = 3",
         "FInterID = 3");
    step("an order", "ICOrder", "DELETE", "DELETE FROM ICOrder WHERE FInterID = 20",
         "FInterID = 20");
}
