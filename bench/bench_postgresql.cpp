// The server engine, measured on the PostgreSQL server that BILLDATA_TEST_POSTGRES names
// (scripts/run-bench.sh runs it under scripts/with-postgres.sh with the server's default
// durability), each measurement on a fresh database of its own:
// - till sales saved per second on one connection through PosData::SaveData, side by side with a
//   plain libpq program that sends the very same translated statements, each prepared once and
//   then run with PQexecPrepared, one round trip each, between BEGIN and COMMIT; and with the
//   same program sending each statement inside a savepoint as the driver does, which tells the
//   savepoints' cost from the rest of the component's. With the server's default
//   synchronous_commit and with it off (the commit's wait for the disk left out);
// - 1, 4 and 8 tills at once, each a `billdata batch` process fed sales as a front end feeds it,
//   three rounds: the sales per second of all of them, then the books: interior ids and bill
//   numbers handed out twice, answered sales that are not there, and the duplicate keys the server
//   refused (its log), which the save's duplicate-key handler retried;
// - the 7-day sales list and the interior-id cross-check with 200,000 sales on the server,
//   against the same translated statements sent with libpq.
// BENCH_SCALE=<fraction> shortens the runs and shrinks the data for a quick try.

#include <libpq-fe.h>

#include <algorithm>
#include <barrier>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench_table.h"
#include "billdata/ado/ado.h"
#include "billdata/common/session.h"
#include "billdata/dialect/dialect.h"
#include "billdata/drivers/postgresql/catalog.h"
#include "billdata/posdata/posdata.h"
#include "billdata/schema/schema.h"
#include "billdata/util/text.h"
#include "pos_list.h"
#include "pos_sale.h"
#include "reliability/harness.h"
#include "support/server_db.h"

namespace {

using namespace billdata;
using bench::Captured;
using bench::kSentinel;

// A fresh database with the schema and the demo shop, dropped when the object goes.
struct Shop {
    testing::ServerDatabase db;
    Shop() { schema::create_database(db.connection_string(), true, 2025, 3); }
    const std::string& cs() const { return db.connection_string(); }
};

// A libpq connection of the plain programs, with the date style the component's driver sets.
class Plain {
  public:
    explicit Plain(const std::string& conninfo)
        : pg_(PQconnectdb((conninfo + " options='-c DateStyle=ISO,YMD'").c_str())) {
        if (PQstatus(pg_) != CONNECTION_OK) fail("connect");
    }
    ~Plain() { PQfinish(pg_); }
    Plain(const Plain&) = delete;
    Plain& operator=(const Plain&) = delete;

    PGconn* get() const { return pg_; }

    void exec(const char* sql) { check(PQexec(pg_, sql), sql); }
    void prepare(const std::string& name, const std::string& sql, int params) {
        check(PQprepare(pg_, name.c_str(), sql.c_str(), params, nullptr), sql);
    }
    void run_prepared(const std::string& name, const std::vector<const char*>& values) {
        check(PQexecPrepared(pg_, name.c_str(), static_cast<int>(values.size()), values.data(),
                             nullptr, nullptr, 0),
              name);
    }
    // The same inside a savepoint released after it, all in one round trip.
    void run_in_savepoint(const std::string& name, const std::vector<const char*>& values) {
        if (!PQenterPipelineMode(pg_) ||
            !PQsendQueryParams(pg_, "SAVEPOINT s", 0, nullptr, nullptr, nullptr, nullptr, 0) ||
            !PQsendQueryPrepared(pg_, name.c_str(), static_cast<int>(values.size()), values.data(),
                                 nullptr, nullptr, 0) ||
            !PQsendQueryParams(pg_, "RELEASE SAVEPOINT s", 0, nullptr, nullptr, nullptr, nullptr,
                               0) ||
            !PQpipelineSync(pg_))
            fail(name);
        bool failed = false;
        for (;;) {
            PGresult* r = PQgetResult(pg_);
            if (!r) continue;  // the end of one statement's results
            const ExecStatusType status = PQresultStatus(r);
            PQclear(r);
            if (status == PGRES_PIPELINE_SYNC) break;
            failed = failed || status == PGRES_FATAL_ERROR || status == PGRES_PIPELINE_ABORTED;
        }
        PQexitPipelineMode(pg_);
        if (failed) fail(name);
    }
    // Runs a query and reads every column of every row, as a program that uses them would;
    // returns the rows.
    long rows(const std::string& sql) {
        PGresult* r = PQexec(pg_, sql.c_str());
        if (PQresultStatus(r) != PGRES_TUPLES_OK) {
            PQclear(r);
            fail(sql);
        }
        const int n = PQntuples(r), cols = PQnfields(r);
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < cols; ++c)
                if (!PQgetisnull(r, i, c)) read_ += std::strlen(PQgetvalue(r, i, c));
        PQclear(r);
        return n;
    }

  private:
    void check(PGresult* r, const std::string& what) {
        const ExecStatusType status = PQresultStatus(r);
        PQclear(r);
        if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) fail(what);
    }
    [[noreturn]] void fail(const std::string& what) {
        throw std::runtime_error(what + ": " + PQerrorMessage(pg_));
    }
    PGconn* pg_;
    std::size_t read_ = 0;  // bytes of the values read, so that reading them is not left out
};

// The plain program: the captured sale's statements translated for the server, each prepared
// once on its own connection; a sale binds the captured values with its own interior id. A
// counter read inside the transaction locks its row (FOR UPDATE), as any program with several
// tills must. With `savepoints` each statement inside the transaction goes as the component's
// driver sends it: SAVEPOINT, the statement and RELEASE in one pipelined round trip.
class PlainSale {
  public:
    PlainSale(const std::vector<Captured>& sale, const std::string& conninfo, bool savepoints)
        : pg_(conninfo), savepoints_(savepoints) {
        const dialect::Catalog catalog = drivers::postgresql::read_catalog(pg_.get());
        dialect::TranslateOptions options;
        options.parameterise = true;
        for (const Captured& c : sale) {
            const dialect::Shape shape = dialect::statement_shape(c.tsql);
            const dialect::Translation tr = dialect::translate_postgresql(c.tsql, catalog, options);
            Statement s;
            s.name = "s";  // appended: g++ 12 at -O3 warns falsely on "s" + string
            s.name += std::to_string(statements_.size());
            s.after_commit = c.after_commit;
            std::string sql = tr.sql;
            if (!c.after_commit && (util::iequals(tr.lockable_table, "ICMaxNum") ||
                                    util::iequals(tr.lockable_table, "ICBillNo")))
                sql += " FOR UPDATE";
            for (const dialect::Literal& l : shape.literals) {
                const bool bound = std::find(tr.parameters.begin(), tr.parameters.end(),
                                             l.offset) != tr.parameters.end();
                if (!bound && std::string_view(c.tsql).substr(l.offset, l.length) ==
                                  std::to_string(kSentinel))
                    throw std::runtime_error("the interior id is written inline: " + tr.sql);
            }
            for (std::size_t offset : tr.parameters) {
                std::size_t length = 0;
                for (const dialect::Literal& l : shape.literals)
                    if (l.offset == offset) length = l.length;
                dialect::LiteralValue value;
                if (!dialect::literal_value(std::string_view(c.tsql).substr(offset, length), value))
                    throw std::runtime_error("a literal that cannot be bound: " + c.tsql);
                if (value.type == dialect::LiteralValue::Type::Integer &&
                    value.integer == kSentinel)
                    s.id_params.push_back(s.values.size());
                s.values.push_back(dialect::literal_text(value));
            }
            pg_.prepare(s.name, sql, static_cast<int>(s.values.size()));
            statements_.push_back(std::move(s));
        }
    }

    // One sale as the component issues it: the transaction, then the statements after it.
    void save(std::int64_t id) {
        const std::string id_text = std::to_string(id);
        pg_.exec("BEGIN");
        for (const Statement& s : statements_)
            if (!s.after_commit) run(s, id_text);
        pg_.exec("COMMIT");
        for (const Statement& s : statements_)
            if (s.after_commit) run(s, id_text);
    }

  private:
    struct Statement {
        std::string name;
        std::vector<std::string> values;
        std::vector<std::size_t> id_params;
        bool after_commit = false;
    };
    void run(const Statement& s, const std::string& id) {
        std::vector<const char*> values;
        values.reserve(s.values.size());
        for (const std::string& v : s.values)
            values.push_back(v.c_str());
        for (std::size_t i : s.id_params)
            values[i] = id.c_str();
        if (savepoints_ && !s.after_commit)
            pg_.run_in_savepoint(s.name, values);
        else
            pg_.run_prepared(s.name, values);
    }
    Plain pg_;
    bool savepoints_;
    std::vector<Statement> statements_;
};

// The server's log: what it wrote since a point, to count the errors it reported.
class ServerLog {
  public:
    ServerLog() {
        const char* dir = std::getenv("BILLDATA_PG_DIR");
        if (dir) path_ = std::string(dir) + "/server.log";
    }
    bool available() const { return !path_.empty() && std::ifstream(path_).good(); }
    void mark() { offset_ = text().size(); }
    // Lines since the mark that hold `what`.
    long count_since_mark(const std::string& what) const {
        std::istringstream in(text().substr(std::min(offset_, text().size())));
        long n = 0;
        for (std::string line; std::getline(in, line);)
            n += line.find(what) != std::string::npos;
        return n;
    }

  private:
    std::string text() const {
        std::ifstream in(path_, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    std::string path_;
    std::size_t offset_ = 0;
};

// ---- one till ----------------------------------------------------------------------------

// `synchronous_commit` is the databases' setting: "on", the server's default, or "off", where a
// commit does not wait for its log to reach the disk (what remains is the work of the
// statements themselves).
void single_till(const std::vector<Captured>& sale, const std::string& synchronous_commit) {
    // Many short runs: the server's disk is the machine's, and its sync time drifts with what
    // else runs; taking turns often lets the three see the same.
    const int runs = 15;
    const long per_run = bench::scaled(synchronous_commit == "on" ? 200 : 400, 25);
    std::fprintf(stderr,
                 "POS sale save on one connection, synchronous_commit=%s: %d runs of %ld "
                 "sales...\n",
                 synchronous_commit.c_str(), runs, per_run);
    Shop ours, theirs, theirs_savepoints;
    for (const Shop* shop : {&ours, &theirs, &theirs_savepoints})
        shop->db.exec("ALTER DATABASE " + shop->db.name() +
                      " SET synchronous_commit = " + synchronous_commit);
    for (const Shop* shop : {&theirs, &theirs_savepoints})
        shop->db.exec(
            "insert into ICMaxNum(FTranType,FMaxNum,FDescription) values(0,0,'');"
            "insert into ICBillNo(FTranType,FDate,FMaxNum) values(99,'2025-03-09',1)");
    bench::SaleInput input;
    common::session() = common::SessionContext{};
    auto save_ours = [&](long n) {
        PosData().Init(ours.cs(), 2025, 3);
        for (long i = 0; i < n; ++i)
            input.save();
    };
    PlainSale plain(sale, theirs.db.conninfo(), false);
    PlainSale plain_savepoints(sale, theirs_savepoints.db.conninfo(), true);
    std::int64_t next_id = 1;
    save_ours(10);  // the day's counter row, the pool and the caches
    for (int i = 0; i < 10; ++i, ++next_id) {
        plain.save(next_id);
        plain_savepoints.save(next_id);
    }
    // The three take turns, run by run.
    std::vector<double> a, b, c;
    for (int r = 0; r < runs; ++r) {
        auto t0 = bench::Clock::now();
        save_ours(per_run);
        a.push_back(static_cast<double>(per_run) / bench::seconds_since(t0));
        const std::int64_t first = next_id;
        t0 = bench::Clock::now();
        for (long i = 0; i < per_run; ++i)
            plain.save(next_id++);
        b.push_back(static_cast<double>(per_run) / bench::seconds_since(t0));
        t0 = bench::Clock::now();
        for (std::int64_t id = first; id < next_id; ++id)
            plain_savepoints.save(id);
        c.push_back(static_cast<double>(per_run) / bench::seconds_since(t0));
    }
    const std::string mode = "PostgreSQL, synchronous_commit=" + synchronous_commit +
                             ", POS sale save on one connection: `PosData::SaveData` vs ";
    bench::report_rates(mode +
                            "the same translated statements prepared once, run with "
                            "PQexecPrepared between BEGIN and COMMIT",
                        bench::median(a), bench::median(b), "sales/s",
                        synchronous_commit == "on" ? 0.9 : 0);
    bench::report_rates(mode +
                            "the same, each statement in the transaction inside a savepoint "
                            "(SAVEPOINT, statement, RELEASE in one round trip, as the driver "
                            "sends them)",
                        bench::median(a), bench::median(c), "sales/s", 0);
}

// ---- tills at once -------------------------------------------------------------------------

struct TillsResult {
    double rate = 0;
    long answered = 0, failed = 0, duplicate_ids = 0, duplicate_numbers = 0, missing = 0;
    long duplicate_keys = 0, lock_errors = 0;
};

// `tills` batch processes on one new shop, each sending `sales` sales after one to start with;
// the sales per second of all of them from the moment all were ready, then the books.
TillsResult tills_at_once(int tills, long sales, ServerLog& log) {
    Shop shop;
    const std::string db = shop.cs();
    std::vector<std::vector<reliability::Saved>> saved(static_cast<std::size_t>(tills));
    std::vector<long> failures(static_cast<std::size_t>(tills), 0);
    std::vector<std::string> errors(static_cast<std::size_t>(tills));
    bench::Clock::time_point start;
    std::barrier ready(tills, [&]() noexcept { start = bench::Clock::now(); });
    log.mark();
    std::vector<std::thread> threads;
    for (int t = 0; t < tills; ++t)
        threads.emplace_back([&, t] {
            const auto k = static_cast<std::size_t>(t);
            bool arrived = false;
            try {
                reliability::Till till(db);
                reliability::FrontEnd front(db, {reliability::Op::Sale},
                                            static_cast<std::uint32_t>(100 + t),
                                            "till " + std::to_string(t + 1));
                for (long n = 0; n <= sales; ++n) {
                    if (n == 1) {
                        ready.arrive_and_wait();
                        arrived = true;
                    }
                    const reliability::Call call = front.next();
                    const auto answer = till.call(call.line());
                    if (!answer) throw std::runtime_error("the till died");
                    std::string error;
                    if (auto s = front.answered(call, *answer, error)) {
                        saved[k].push_back(*s);
                    } else {
                        ++failures[k];
                        if (errors[k].empty()) errors[k] = error;
                    }
                }
                till.finish();
            } catch (const std::exception& e) {
                ++failures[k];
                errors[k] = e.what();
                if (!arrived) ready.arrive_and_drop();
            }
        });
    for (auto& thread : threads)
        thread.join();
    const double seconds = bench::seconds_since(start);

    TillsResult r;
    std::set<std::int32_t> ids;
    std::map<std::int32_t, int> lines;
    for (int t = 0; t < tills; ++t) {
        const auto k = static_cast<std::size_t>(t);
        r.failed += failures[k];
        if (!errors[k].empty()) std::fprintf(stderr, "  till %d: %s\n", t + 1, errors[k].c_str());
        for (const reliability::Saved& s : saved[k]) {
            ++r.answered;
            if (!ids.insert(s.id).second) ++r.duplicate_ids;
            lines[s.id] = s.lines;
        }
    }
    r.rate = static_cast<double>(r.answered - tills) / seconds;
    r.duplicate_numbers = std::stol(
        shop.db
            .exec("select count(*) from (select FBillNo from ICStockBill where FTranType=99 "
                  "group by FBillNo having count(*)>1) d")
            .at(0));
    // An answered sale is there with the lines it was sent (the goods handed over count).
    std::map<std::int32_t, int> found;
    for (const std::string& row :
         shop.db.exec("select h.FInterID, (select count(*) from ICStockBillEntry e where "
                      "e.FInterID=h.FInterID) from ICStockBill h where h.FTranType=99")) {
        const auto bar = row.find('|');
        found[std::stoi(row.substr(0, bar))] = std::stoi(row.substr(bar + 1));
    }
    for (const auto& [id, n] : lines) {
        const auto it = found.find(id);
        if (it == found.end() || it->second != n) ++r.missing;
    }
    r.duplicate_keys = log.count_since_mark("duplicate key value violates unique constraint");
    r.lock_errors = log.count_since_mark("deadlock detected") +
                    log.count_since_mark("canceling statement due to lock timeout");
    return r;
}

// Three rounds of 1, 4 and 8 tills, each on a new shop: the median rate of each, and the books'
// findings of all rounds added up.
void tills(ServerLog& log) {
    const long sales = bench::scaled(300, 15);
    const int counts[3] = {1, 4, 8};
    std::vector<double> rates[3];
    TillsResult total[3];
    for (int round = 1; round <= 3; ++round)
        for (int k = 0; k < 3; ++k) {
            std::fprintf(stderr, "round %d: %d till(s) at once, %ld sales each...\n", round,
                         counts[k], sales);
            const TillsResult r = tills_at_once(counts[k], sales, log);
            rates[k].push_back(r.rate);
            TillsResult& t = total[k];
            t.answered += r.answered;
            t.failed += r.failed;
            t.duplicate_ids += r.duplicate_ids;
            t.duplicate_numbers += r.duplicate_numbers;
            t.missing += r.missing;
            t.duplicate_keys += r.duplicate_keys;
            t.lock_errors += r.lock_errors;
        }
    const double one = bench::median(rates[0]);
    for (int k = 0; k < 3; ++k) {
        const int n = counts[k];
        const double rate = bench::median(rates[k]);
        const TillsResult& r = total[k];
        const std::string what =
            "PostgreSQL, " +
            (n == 1 ? std::string("1 till") : std::to_string(n) + " tills at once") +
            " (each a `billdata batch` process) saving POS sales on one database";
        if (n == 1)
            bench::print_row(
                {what + ": sales/s of all", bench::quantity(rate, "sales/s"), "", "", ""});
        else
            bench::print_row({what + ": sales/s of all vs one till",
                              bench::quantity(rate, "sales/s"), bench::quantity(one, "sales/s"),
                              bench::ratio_text(rate / one), ""});
        const long wrong = r.failed + r.duplicate_ids + r.duplicate_numbers + r.missing;
        char books[160];
        std::snprintf(books, sizeof books, "%ld / %ld / %ld / %ld", r.duplicate_ids,
                      r.duplicate_numbers, r.missing, r.failed);
        bench::print_row({what +
                              ": interior ids / bill numbers handed out twice / answered sales "
                              "missing / failed calls, over " +
                              std::to_string(r.answered) + " answered sales",
                          books, "", "", bench::verdict(wrong == 0, "0")});
        bench::print_row(
            {what + ": duplicate keys the server refused (and the save retried) / lock errors, "
                    "from the server's log",
             log.available()
                 ? std::to_string(r.duplicate_keys) + " / " + std::to_string(r.lock_errors)
                 : "no server log",
             "", "", ""});
    }
}

// ---- 200,000 sales -----------------------------------------------------------------------

// Headers of kind 99, `per_day` a day from 2024-01-01, five lines each with one size/colour row,
// written by the server itself; the schema's triggers keep their totals as for any save. The
// headers go first (a line then takes its kind as it is written) and the tables are analysed
// before the lines, whose triggers look their header up. The lines go in transactions of 1,000
// sales: each line adds to the stock balance row of its item, and the versions of a row updated
// over and over in one transaction cannot be pruned, so that one transaction for all would make
// every update walk all of them.
void fill(const Shop& shop, long headers, long per_day) {
    const std::string n = std::to_string(headers), d = std::to_string(per_day);
    shop.db.exec(
        "INSERT INTO ICStockBill (FInterID, FTranType, FDate, FBillNo, FOutStockID, FBillerID, "
        "FSumQty, FSumAmount, FVipID, FSysTime) SELECT id, 99, date '2024-01-01' + (id / " +
        d + ")::int, 'LS' || id, 1, 1, 5, 500, 1, '2024-01-01 10:00:00' FROM generate_series(1, " +
        n +
        ") id;"
        "INSERT INTO ICMaxNum (FTranType, FMaxNum, FDescription) VALUES (0, " +
        n +
        ", '');"
        "INSERT INTO ICStockBillEntry_1 (FInterID, FItemID, FRowKey, FSizeID, FColor, FQty) "
        "SELECT id, 1 + line, 'r' || line, 1, 'red', 1 FROM generate_series(1, " +
        n + ") id, generate_series(1, 5) line");
    shop.db.exec("ANALYZE");
    shop.db.exec("DO $$ BEGIN FOR b IN 0.." + std::to_string((headers - 1) / 1000) +
                 " LOOP INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FRowKey, FQty, "
                 "FPrice, FAmount, FRetailPrice, FSalerID) SELECT id, line, 1 + line, 'r' || "
                 "line, 1, 100, 100, 120, 1 FROM generate_series(b * 1000 + 1, least((b + 1) * "
                 "1000, " +
                 n + ")) id, generate_series(1, 5) line; COMMIT; END LOOP; END $$");
    shop.db.exec("ANALYZE");
}

void large_shop() {
    const long headers = bench::scaled(200000, 2000);
    const long per_day = 270;  // 200,000 sales over about two years
    Shop shop;
    std::fprintf(stderr, "filling %ld sales, %ld lines on the server...\n", headers, headers * 5);
    const auto t0 = bench::Clock::now();
    fill(shop, headers, per_day);
    std::fprintf(stderr, "  filled in %.1f s\n", bench::seconds_since(t0));
    const std::string kept =
        shop.db.exec("select ICStockBill, ICStockBillEntry from t_TableRows").at(0);
    if (kept != std::to_string(headers) + "|" + std::to_string(headers * 5) + "|")
        throw std::runtime_error("the kept row counts are " + kept);

    Plain raw(shop.db.conninfo());
    const dialect::Catalog catalog = drivers::postgresql::read_catalog(raw.get());
    auto cn = ado::Connection::create();
    cn->Open(shop.cs());

    {
        const std::string check =
            "Select max(finterID) as FMax,count(*) as Fcount from icstockbill";
        const double ours = bench::measure(21,
                                           [&] {
                                               auto rs = cn->Execute(check);
                                               if (rs->Fields("Fcount").Value().to_string() !=
                                                   std::to_string(headers))
                                                   throw std::runtime_error("wrong count");
                                           }) *
                            1e3;
        const double scan =
            bench::measure(
                21,
                [&] {
                    raw.rows("SELECT max(FInterID) AS FMax, count(*) AS Fcount FROM ICStockBill");
                }) *
            1e3;
        const double r = scan / ours;
        bench::print_row({"PostgreSQL, interior-id cross-check at " + std::to_string(headers) +
                              " sales vs the same on the server with libpq (full count)",
                          bench::quantity(ours, "ms"), bench::quantity(scan, "ms"),
                          bench::ratio_text(r), ""});
    }
    {
        const long last_day = headers / per_day;
        char from[16], to[16];
        auto day = [](long d, char* out) {
            std::tm tm{};
            tm.tm_year = 124;
            tm.tm_mon = 0;
            tm.tm_mday = 1 + static_cast<int>(d);
            tm.tm_hour = 12;
            std::mktime(&tm);
            std::strftime(out, 16, "%Y-%m-%d", &tm);
        };
        day(last_day - 6, from);
        day(last_day, to);
        const std::string week = bench::pos_list_statement(std::string("and t1.FDate between '") +
                                                           from + "' and '" + to + "'");
        const std::string week_sql = dialect::translate_postgresql(week, catalog).sql;
        const long rows = raw.rows(week_sql);
        long seen = 0;
        auto read_all = [&] {
            auto rs = cn->Execute(week);
            auto& fields = rs->GetFields();
            seen = 0;
            while (!rs->Eof()) {
                for (std::size_t i = 0; i < fields.Count(); ++i)
                    (void)fields.Item(i).Value();
                ++seen;
                rs->MoveNext();
            }
        };
        const double ours = bench::measure(5, read_all) * 1e3;
        if (seen != rows) throw std::runtime_error("the list's rows differ");
        const double plain = bench::measure(5, [&] { raw.rows(week_sql); }) * 1e3;
        const double r = plain / ours;
        bench::print_row({"PostgreSQL, 7-day POS list (" + std::to_string(rows) +
                              " rows) through a record set vs the translated text with libpq",
                          bench::quantity(ours, "ms"), bench::quantity(plain, "ms"),
                          bench::ratio_text(r),
                          bench::verdict(r >= 1 / 1.2, "≥ 0.83 (within 1.2× libpq)")});
    }
}

}  // namespace

int main() {
    if (testing::postgres_server().empty()) {
        std::fprintf(stderr,
                     "bench_postgresql: no server (run it under scripts/with-postgres.sh)\n");
        return 2;
    }
    try {
        std::vector<Captured> sale;
        {
            bench::Scratch scratch("billdata-bench-pg");
            Shop capture;
            sale = bench::capture_sale(capture.cs(), scratch.path("capture.log"));
        }
        single_till(sale, "on");
        single_till(sale, "off");
        ServerLog log;
        tills(log);
        large_shop();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_postgresql: %s\n", e.what());
        return 1;
    }
    return 0;
}
