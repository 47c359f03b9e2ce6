#include "reliability/harness.h"

#include <fcntl.h>
#include <libpq-fe.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/schema/schema.h"
#include "support/server_db.h"

extern char** environ;

namespace billdata::reliability {

using nlohmann::json;

int env_or(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value && *value ? std::atoi(value) : fallback;
}

namespace {

// Starts the billdata program with `args`, its standard input and output on `in` and `out`
// (-1: /dev/null) and `env` added to the environment; standard error stays the caller's, so
// that a crash of its own is seen.
pid_t spawn(const std::vector<std::string>& args, int in, int out, const std::string& env = "") {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (in >= 0)
        posix_spawn_file_actions_adddup2(&actions, in, 0);
    else
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    if (out >= 0)
        posix_spawn_file_actions_adddup2(&actions, out, 1);
    else
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    // The harness ignores SIGPIPE (a killed till's pipe); the program gets the default back.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> all{BILLDATA_CLI};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : all)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    std::string extra = env;
    std::vector<char*> envp;
    const std::string name = env.substr(0, env.find('=') + 1);
    for (char** e = environ; *e; ++e)
        if (name.empty() || std::string(*e).rfind(name, 0) != 0) envp.push_back(*e);
    if (!extra.empty()) envp.push_back(extra.data());
    envp.push_back(nullptr);
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (rc != 0) throw std::system_error(rc, std::generic_category(), "starting " + all[0]);
    return pid;
}

int reap(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void close_fd(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

}  // namespace

Till::Till(const std::string& db, const std::string& sql_log) {
    static const bool pipes_ignored = [] { return ::signal(SIGPIPE, SIG_IGN) != SIG_ERR; }();
    (void)pipes_ignored;
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
    if (::pipe2(out, O_CLOEXEC) != 0) {
        ::close(in[0]);
        ::close(in[1]);
        throw std::system_error(errno, std::generic_category());
    }
    to_ = in[1];
    from_ = out[0];
    try {
        if (!sql_log.empty()) {
            // Emptied first: only this process's statements are counted.
            const int empty =
                ::open(sql_log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
            if (empty >= 0) ::close(empty);
            log_ = ::open(sql_log.c_str(), O_RDONLY | O_CLOEXEC);
            if (log_ < 0) throw std::system_error(errno, std::generic_category(), sql_log);
        }
        pid_ = spawn({"batch", "--db", db}, in[0], out[1],
                     sql_log.empty() ? "" : "BILLDATA_SQL_LOG=" + sql_log);
    } catch (...) {
        ::close(in[0]);
        ::close(out[1]);
        kill();
        throw;
    }
    ::close(in[0]);
    ::close(out[1]);
}

Till::~Till() {
    kill();
}

void Till::kill() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        reap(pid_);
        pid_ = -1;
    }
    close_fd(to_);
    close_fd(from_);
    close_fd(log_);
}

int Till::finish() {
    if (pid_ <= 0) return -1;
    close_fd(to_);
    const int status = reap(pid_);
    pid_ = -1;
    kill();
    return status;
}

void Till::read_log() {
    char buffer[65536];
    ssize_t n = 0;
    while (log_ >= 0 && (n = ::read(log_, buffer, sizeof buffer)) > 0)
        for (ssize_t i = 0; i < n; ++i)
            logged_ += buffer[i] == '\n';
}

std::optional<std::string> Till::call(const std::string& line, int kill_at_statement,
                                      std::chrono::microseconds delay) {
    if (pid_ <= 0) return std::nullopt;
    read_log();
    const long start = logged_;
    statements_ = 0;
    const std::string text = line + "\n";
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t n = ::write(to_, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {  // it is gone
            kill();
            return std::nullopt;
        }
        done += static_cast<std::size_t>(n);
    }
    // Waiting for a statement to show in the log means looking often.
    const int wait_ms = kill_at_statement > 0 ? 0 : -1;
    for (;;) {
        if (const auto end = pending_.find('\n'); end != std::string::npos) {
            std::string answer = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            read_log();
            statements_ = static_cast<int>(logged_ - start);
            return answer;
        }
        if (kill_at_statement > 0) {
            read_log();
            if (logged_ - start >= kill_at_statement) {
                statements_ = static_cast<int>(logged_ - start);
                std::this_thread::sleep_for(delay);
                kill();
                return std::nullopt;
            }
        }
        pollfd p{from_, POLLIN, 0};
        const int ready = ::poll(&p, 1, wait_ms);
        if (ready == 0) std::this_thread::sleep_for(std::chrono::microseconds(20));
        if (ready <= 0) continue;
        char buffer[4096];
        const ssize_t n = ::read(from_, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {  // it died
            kill();
            return std::nullopt;
        }
        pending_.append(buffer, static_cast<std::size_t>(n));
    }
}

// ---------------------------------------------------------------------------------------------
// The calls.

namespace {

struct Item {
    int id;
    int size_group;  // 0: no sizes; 1: S-XL (sizes 1-4); 2: 28-34 (sizes 5-8)
    double retail, cost;
};
// The demo shop's goods.
constexpr Item kItems[] = {{1, 1, 99, 40},  {2, 1, 199, 85}, {3, 2, 259, 110}, {4, 2, 229, 95},
                           {5, 0, 129, 45}, {6, 0, 159, 60}, {7, 0, 39, 12}};
constexpr int kSizedItems = 4;
const char* const kColors[] = {"黑色", "白色", "蓝色"};
const char* const kOpNames[] = {
    "sale",         "sale again", "purchase",  "purchase return",   "transfer",
    "other in",     "other out",  "receipt",   "payment",           "order",
    "member order", "lend",       "give back", "close receivables", "reopen receivables"};

// Lines of the stock bills and orders (each class reads the fields it knows), and their
// size/colour cells.
const json kStockLineFields =
    json::parse(R"(["FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice",
                    "FRetailAmount", "FZkRate", "FMemo", "FHisPrice", "FUnitCost", "FRefInterID",
                    "FRefEntryID"])");
const json kCellFields =
    json::parse(R"(["FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"])");

json recordset(const json& fields, json rows) {
    return {{"fields", fields}, {"rows", std::move(rows)}};
}

// A call's arguments: the ones every such call gives alike, then the ones of this call.
json arguments(const char* alike, const json& own) {
    json args = json::parse(alike);
    args.update(own);
    return args;
}

}  // namespace

const char* name(Op op) {
    return kOpNames[static_cast<int>(op)];
}

std::string Call::line() const {
    return json{{"call", target}, {"args", args}}.dump();
}

FrontEnd::FrontEnd(std::string db, std::vector<Op> mix, std::uint32_t seed, std::string name)
    : db_(std::move(db)), name_(std::move(name)), mix_(std::move(mix)), rng_(seed) {}

int FrontEnd::pick(int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(rng_);
}

Call FrontEnd::next(std::optional<Op> wanted) {
    ++calls_;
    Op op = wanted ? *wanted
                   : mix_[static_cast<std::size_t>(pick(0, static_cast<int>(mix_.size()) - 1))];
    if (op == Op::SaleAgain && sales_.empty()) op = Op::Sale;
    if (op == Op::GiveBack && lent_.empty()) op = Op::Lend;
    Call call = make(op);
    call.op = op;
    return call;
}

std::string FrontEnd::day() {
    return "2025-03-" + std::to_string(pick(10, 28));
}

std::string FrontEnd::remark() const {
    return name_ + " #" + std::to_string(calls_);
}

Call FrontEnd::make(Op op) {
    switch (op) {
        case Op::Sale:
            return sale(0);
        case Op::SaleAgain:
            return sale(sales_[static_cast<std::size_t>(pick(0, int(sales_.size()) - 1))]);
        case Op::Lend:
            return credit(std::nullopt);
        case Op::GiveBack: {
            // Each lent line is given back once, answered or not: never more than is out.
            const std::int32_t lent = lent_.back();
            lent_.pop_back();
            return credit(lent);
        }
        case Op::CloseWL:
            return {"InitData.CloseWLInit", {{"PromptString", db_}}, {}};
        case Op::ReopenWL:
            return {"InitData.UnCloseWLInit", {{"New_CnStr", db_}}, {}};
        case Op::Receipt:
        case Op::Payment: {
            const int kind = op == Op::Receipt ? 23 : 13;
            return {"SFKData.SaveData",
                    arguments(R"({"BillNo": "", "EmpID": 1, "OddMent": 0, "BillerID": 1,
                                  "OldInterID": 0, "OrderBillID": 0, "StockBillID": 0})",
                              {{"TranType", kind},
                               {"BillDate", day()},
                               {"AcctID", pick(1, 2)},
                               {"OrgaID", kind == 23 ? 201 : 101},
                               {"SumAmount", pick(1, 50) * 10},
                               {"Memo", remark()}}),
                    {.table = "WLBill", .kind = kind}};
        }
        case Op::MemberOrder: {
            json rows = json::array();
            const int n = pick(1, 2);
            for (int i = 0; i < n; ++i) {
                const Item& item = kItems[pick(0, 6)];
                const int qty = pick(1, 2);
                const int size = item.size_group ? (item.size_group - 1) * 4 + pick(1, 4) : 0;
                rows.push_back({item.id, 2, qty, item.retail, item.retail * qty, 1, item.retail,
                                item.retail * qty, item.cost, 0,
                                item.size_group ? kColors[pick(0, 2)] : "", size});
            }
            const int vip = 1001 + pick(0, 2);
            const json fields = json::parse(R"(["FItemID", "FSalerID", "FQty", "FPrice",
                "FAmount", "FZkRate", "FRetailPrice", "FRetailAmount", "FUnitCost", "FPreSend",
                "FColor", "FSizeID"])");
            return {"vipOrder.SaveData",
                    arguments(R"({"TranType": 21, "BillNo": "", "AcctID": 1, "UserID": 3,
                                  "ModifyInterID": 0})",
                              {{"BillDate", day()},
                               {"Earnest", pick(0, 2) * 50},
                               {"Remark", remark()},
                               {"VipID", vip},
                               {"Owner", "member " + std::to_string(vip)},
                               {"Phone", "1380000" + std::to_string(vip)},
                               {"BillData", recordset(fields, rows)}}),
                    {.table = "ICOrder", .kind = 21, .lines = n}};
        }
        default:
            return stock_bill(op);
    }
}

// One to three lines of distinct row keys; sized goods get their quantity spread over one or
// two size/colour cells, now and then with a cell the user deleted (FDel 1: never written).
json FrontEnd::stock_lines(bool sized_only, bool purchase, double& qty, double& amount,
                           json& cells) {
    json rows = json::array();
    cells = json::array();
    const int n = pick(1, 3);
    for (int i = 1; i <= n; ++i) {
        const Item& item = kItems[pick(0, sized_only ? kSizedItems - 1 : 6)];
        const int q = pick(1, 5);
        const std::string key = std::to_string(i);
        // A purchase at a new price revalues what is on hand (price-adjustment rows).
        const double price = purchase ? item.cost + pick(0, 2) : item.retail;
        rows.push_back({item.id, key, q, price, price * q, item.retail, item.retail * q, 1, "",
                        item.cost, item.cost, 0, 0});
        qty += q;
        amount += price * q;
        if (item.size_group) {
            const int first = (item.size_group - 1) * 4 + pick(1, 4);
            const std::string color = kColors[pick(0, 2)];
            const int split = q > 1 && pick(0, 1) ? pick(1, q - 1) : q;
            cells.push_back({0, item.id, key, first, color, 0, split});
            if (split < q) cells.push_back({0, item.id, key, first % 4 + 1, color, 0, q - split});
            if (pick(0, 4) == 0) cells.push_back({1, item.id, key, first, color, 0, 9});
        }
    }
    return rows;
}

Call FrontEnd::stock_bill(Op op) {
    const bool purchase = op == Op::Purchase || op == Op::PurchaseReturn;
    double qty = 0, amount = 0;
    json cells;
    json rows = stock_lines(op == Op::Order, purchase, qty, amount, cells);
    const int lines = static_cast<int>(rows.size());
    if (op == Op::PurchaseReturn)  // a return takes goods back at the price they came in
        for (auto& row : rows)
            row[9] = row[3];
    const json own = {{"BillDate", day()},
                      {"Remark", remark()},
                      {"RsBill", recordset(kStockLineFields, rows)},
                      {"rsBillDetail", recordset(kCellFields, cells)}};
    if (purchase) {
        const int kind = op == Op::Purchase ? 112 : 114;
        json args = arguments(R"({"BillNo": "", "StockID": 1, "OrgaID": 101, "AcctID": 2,
                                  "BillerID": 1, "SettleID": 0, "OldInterID": 0})",
                              own);
        args.update({{"TranType", kind}, {"SumQty", qty}, {"SumAmount", amount}});
        return {"PurRkd.SaveData", args, {.table = "ICStockBill", .kind = kind, .lines = lines}};
    }
    if (op == Op::Order) {
        const bool advance = pick(0, 2) == 0;
        json args = arguments(R"({"TranType": 11, "BillNo": "", "OrgaID": 102, "BillerID": 2,
                                  "OldInterID": 0, "AcctID": 2})",
                              own);
        args["Amount"] = advance ? 500 : 0;
        return {"OrderBill.SaveData",
                args,
                {.table = "ICOrder", .kind = 11, .lines = lines, .advance = advance}};
    }
    const int kind = op == Op::Transfer ? 31 : op == Op::OtherIn ? 115 : 125;
    json args =
        arguments(R"({"BillNo": "", "Cause": "补货", "BillerID": 2, "OldInterID": 0})", own);
    args.update({{"TranType", kind},
                 {"InStockID", kind == 31 ? pick(2, 3) : pick(1, 3)},
                 {"OutStockID", kind == 31 ? 1 : 0}});
    return {"OtherBill.SaveData", args, {.table = "ICStockBill", .kind = kind, .lines = lines}};
}

// A till sale of one to four lines, now and then with a member card (points for the amount) or
// goods handed over in advance; `again` > 0 saves that sale again with new lines.
Call FrontEnd::sale(std::int32_t again) {
    json rows = json::array();
    double amount = 0;
    const int n = pick(1, 4);
    for (int i = 0; i < n; ++i) {
        const Item& item = kItems[pick(0, 6)];
        const int qty = pick(1, 3);
        const int size = item.size_group ? (item.size_group - 1) * 4 + pick(1, 4) : 0;
        rows.push_back({item.id, qty, item.retail, item.retail * qty, 1, item.retail,
                        item.retail * qty, 2, 0, item.cost, 0, 0, 0,
                        item.size_group ? kColors[pick(0, 2)] : "", size});
        amount += item.retail * qty;
    }
    const bool pre_sent = pick(0, 3) == 0;
    const int vip = pick(0, 1) ? 1001 + pick(0, 2) : 0;
    const json fields = json::parse(R"(["FItemID", "FQty", "FPrice", "FAmount", "FZkRate",
        "FRetailPrice", "FRetailAmount", "FSalerID", "FPreSend", "FUnitCost", "FRefInterId",
        "FRefEntryID", "FRefTranType", "FColor", "FSizeID"])");
    const json gift = json::parse(R"({"fields": ["FItemID", "FQty", "FRetailPrice", "FUnitCost",
        "Fmemo", "FColor", "FSizeID"], "rows": [[7, 1, 39, 12, "赠品", "", 0]]})");
    json args = arguments(R"({"GetBlank": 0, "GetDyq": 0, "OddMent": 0, "ClassName": "早班",
                              "QkAmount": 0, "BillerID": 3, "ChangeAmount": 0, "GetQk": 0,
                              "AutoDelRefBill": false, "AmountBogusToVip": 1000, "JfExchange": 0,
                              "GetJfAmount": 0, "BillNoBegChar": ""})",
                          {{"StockID", pick(2, 3)},
                           {"BillDate", day()},
                           {"BillData", recordset(fields, rows)},
                           {"SumAmount", amount},
                           {"GetCash", amount},
                           {"GetAmount", amount},
                           {"BillRemark", remark()},
                           {"VipID", vip},
                           {"SumJf", vip ? amount : 0},
                           {"rsPreSendItem", pre_sent ? gift : json(nullptr)},
                           {"Machine", name_},
                           {"StockBillID", again}});
    const Saved saves{.table = "ICStockBill",
                      .kind = 99,
                      .id = again,
                      .lines = n + (pre_sent ? 1 : 0),
                      .again = again > 0};
    return {"PosData.SaveData", std::move(args), saves};
}

// Goods lent to a member (27), or one piece of line 1 of bill `lent` given back (17).
Call FrontEnd::credit(std::optional<std::int32_t> lent) {
    double qty = 0, amount = 0;
    json cells = json::array();
    json rows;
    if (lent) {
        const json& lent_line = lent_lines_.at(*lent);
        json row = lent_line["row"];
        row[2] = 1;       // FQty
        row[4] = row[3];  // FAmount
        row[6] = row[5];  // FRetailAmount
        row[11] = *lent;  // FRefInterID
        row[12] = 1;      // FRefEntryID
        rows = json::array({row});
        if (!lent_line["cell"].is_null()) {
            cells.push_back(lent_line["cell"]);
            cells[0][6] = 1;
        }
    } else {
        rows = stock_lines(false, false, qty, amount, cells);
        // Remembered for the give-back: line 1 and its first live cell.
        json first_cell;
        for (const auto& c : cells)
            if (c[2] == "1" && c[0] == 0 && first_cell.is_null()) first_cell = c;
        pending_lend_ = {{"row", rows[0]}, {"cell", first_cell}};
    }
    const int kind = lent ? 17 : 27;
    return {"Credit.SaveData",
            arguments(R"({"BillNo": "", "StockID": 2, "VipID": 1001, "Owner": "刘洋 Liu Yang",
                          "Phone": "13800000001", "BillerID": 3, "OldInterID": 0})",
                      {{"TranType", kind},
                       {"BillDate", day()},
                       {"Remark", remark()},
                       {"RsBill", recordset(kStockLineFields, rows)},
                       {"rsBillDetail", recordset(kCellFields, cells)}}),
            {.table = "ICStockBill", .kind = kind, .lines = static_cast<int>(rows.size())}};
}

std::optional<Saved> FrontEnd::answered(const Call& call, const std::string& answer,
                                        std::string& error) {
    const json a = json::parse(answer, nullptr, false);
    if (a.is_discarded() || !a.is_object()) {
        error = "unreadable answer: " + answer;
        return std::nullopt;
    }
    if (a.contains("error")) {
        error = a["error"].dump();
        return std::nullopt;
    }
    if (call.saves.table.empty()) return std::nullopt;
    Saved s = call.saves;
    const json& out = a["out"];
    if (call.target == "PosData.SaveData") {
        s.id = a["result"].get<std::int32_t>();
        if (!s.again) sales_.push_back(s.id);
    } else if (out.contains("OldInterID")) {
        s.id = out["OldInterID"].get<std::int32_t>();
    }
    if (out.contains("BillNo")) s.bill_no = out["BillNo"].get<std::string>();
    if (s.kind == 27) {
        lent_.push_back(s.id);
        lent_lines_[s.id] = pending_lend_;
    }
    return s;
}

// ---------------------------------------------------------------------------------------------
// The checks.

namespace {

// The books read past the component: the embedded file opened read-only on the engine itself,
// with the collations its tables declare; or the server's database on a connection of its own,
// once the sessions of the tills (a killed one's included) have ended, in one snapshot.
class ReadOnly {
  public:
    explicit ReadOnly(const std::string& db) {
        if (schema::is_server_database(db)) {
            open_server(db);
            return;
        }
        if (sqlite3_open_v2(db.c_str(), &db_, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
            drivers::sqlite::register_tsql_runtime(db_) != SQLITE_OK) {
            const std::string message = sqlite3_errmsg(db_);
            sqlite3_close(db_);
            throw std::runtime_error("cannot open " + db + ": " + message);
        }
    }
    ~ReadOnly() {
        sqlite3_close(db_);
        if (pg_) PQfinish(pg_);
    }
    ReadOnly(const ReadOnly&) = delete;
    ReadOnly& operator=(const ReadOnly&) = delete;

    bool server() const { return pg_ != nullptr; }

    // Every row as text (NULL as "NULL").
    std::vector<std::vector<std::string>> rows(const std::string& sql) const {
        if (pg_) return server_rows(sql);
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK)
            throw std::runtime_error(std::string(sqlite3_errmsg(db_)) + " in: " + sql);
        std::vector<std::vector<std::string>> out;
        int rc = SQLITE_ROW;
        while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
            auto& row = out.emplace_back();
            for (int i = 0; i < sqlite3_column_count(stmt); ++i) {
                const auto* text = sqlite3_column_text(stmt, i);
                row.push_back(text ? reinterpret_cast<const char*>(text) : "NULL");
            }
        }
        const std::string message = sqlite3_errmsg(db_);
        sqlite3_finalize(stmt);
        if (rc != SQLITE_DONE) throw std::runtime_error(message + " in: " + sql);
        return out;
    }

  private:
    void open_server(const std::string& connection_string) {
        pg_ = PQconnectdb(testing::postgres_conninfo(connection_string).c_str());
        if (PQstatus(pg_) != CONNECTION_OK) {
            const std::string message = PQerrorMessage(pg_);
            PQfinish(pg_);
            pg_ = nullptr;
            throw std::runtime_error("cannot open " + connection_string + ": " + message);
        }
        // A killed till's server session rolls back once the server sees the connection gone:
        // the check reads what is left after that, not what may still be undone.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (server_rows("select count(*) from pg_stat_activity where datname="
                           "current_database() and pid<>pg_backend_pid()")[0][0] != "0" &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        server_rows("begin isolation level repeatable read read only");
    }

    std::vector<std::vector<std::string>> server_rows(const std::string& sql) const {
        PGresult* r = PQexec(pg_, sql.c_str());
        const ExecStatusType status = PQresultStatus(r);
        if (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK) {
            const std::string message = PQresultErrorMessage(r);
            PQclear(r);
            throw std::runtime_error(message + " in: " + sql);
        }
        std::vector<std::vector<std::string>> out;
        for (int i = 0; i < PQntuples(r); ++i) {
            auto& row = out.emplace_back();
            for (int j = 0; j < PQnfields(r); ++j)
                row.push_back(PQgetisnull(r, i, j) ? "NULL" : PQgetvalue(r, i, j));
        }
        PQclear(r);
        return out;
    }

    sqlite3* db_ = nullptr;
    PGconn* pg_ = nullptr;
};

std::string joined(const std::vector<std::string>& row) {
    std::string out;
    for (const auto& v : row)
        out += (out.empty() ? "" : " | ") + v;
    return out;
}

std::string quoted(const std::string& text) {
    std::string out = "'";
    for (char c : text)
        out += c == '\'' ? std::string("''") : std::string(1, c);
    return out + "'";
}

std::string describe(const Saved& s) {
    return s.table + " kind " + std::to_string(s.kind) +
           (s.id ? " id " + std::to_string(s.id) : "") +
           (s.bill_no.empty() ? "" : " no " + s.bill_no);
}

const char* const kCategories[] = {"integrity", "duplicate", "counter",
                                   "lost",      "half bill", "kept total"};

// A check over the whole database: every row the statement finds is a problem. The statements
// run on both engines, but for `server` when given.
struct Rule {
    const char* category;
    const char* what;  // with the columns the statement gives
    const char* sql;
    const char* server = nullptr;
};

// Lines that carry goods: adjustment rows (negative entry ids) do not, goods handed over with a
// sale (no entry id) do. A bill number's day is the one it was drawn for (a sale saved again
// keeps its number whatever its new date): the six digits before its "-".
const Rule kRules[] = {
    {"duplicate", "bill number twice (kind | no | bills)", R"(
        select FTranType,FBillNo,count(*) from ICStockBill where FBillNo<>''
        group by FTranType,FBillNo having count(*)>1
        union all select FTranType,FBillNo,count(*) from ICOrder where FBillNo<>''
        group by FTranType,FBillNo having count(*)>1
        union all select FTranType,FBillNo,count(*) from WLBill where FBillNo<>''
        group by FTranType,FBillNo having count(*)>1)"},
    {"duplicate", "stock-bill series id held by a stock bill and a member order", R"(
        select o.FInterID from ICOrder o join ICStockBill s on s.FInterID=o.FInterID
        where o.FTranType=21)"},

    {"counter", "interior-id series below an id in use (series | counter | highest id)", R"(
        select u.FSeries,s.FMaxNum,u.FUsed from (
            select 0 as FSeries,max(FInterID) as FUsed from (select FInterID from ICStockBill
                union all select FInterID from ICOrder where FTranType=21) a
            union all select 4,max(FInterID) from WLBill
            union all select 11,max(FInterID) from ICOrder where FTranType=11) u
        left join ICMaxNum s on s.FTranType=u.FSeries
        where u.FUsed is not null and (s.FMaxNum is null or s.FMaxNum<u.FUsed))"},
    {"counter", "bill-number counter below a number in use (kind | day | highest | counter)", R"(
        select b.FTranType,b.FDay,max(b.FSeq),c.FMaxNum from (
            select FTranType,
                '20'||substr(FBillNo,instr(FBillNo,'-')-6,2)||'-'||
                    substr(FBillNo,instr(FBillNo,'-')-4,2)||'-'||
                    substr(FBillNo,instr(FBillNo,'-')-2,2) as FDay,
                cast(substr(FBillNo,instr(FBillNo,'-')+1) as integer) as FSeq
            from (select FTranType,FBillNo from ICStockBill
                  union all select FTranType,FBillNo from ICOrder
                  union all select FTranType,FBillNo from WLBill)
            where FBillNo like '%-%') b
        left join ICBillNo c on c.FTranType=b.FTranType and c.FDate=b.FDay
        group by b.FTranType,b.FDay having c.FMaxNum is null or max(b.FSeq)>c.FMaxNum)",
     // The server's text columns compare case-insensitively, which its substring search refuses.
     R"(
        select b.FTranType,b.FDay,max(b.FSeq),c.FMaxNum from (
            select FTranType,to_date(substr(n,strpos(n,'-')-6,6),'YYMMDD')::timestamp as FDay,
                cast(substr(n,strpos(n,'-')+1) as integer) as FSeq
            from (select FTranType,FBillNo::text collate "C" as n from ICStockBill
                  union all select FTranType,FBillNo::text collate "C" from ICOrder
                  union all select FTranType,FBillNo::text collate "C" from WLBill) a
            where strpos(n,'-')>0) b
        left join ICBillNo c on c.FTranType=b.FTranType and c.FDate=b.FDay
        group by b.FTranType,b.FDay,c.FMaxNum having c.FMaxNum is null or max(b.FSeq)>c.FMaxNum)"},

    {"half bill", "stock bill whose lines are missing (id | kind | no | remark | sum | lines)", R"(
        select h.FInterID,h.FTranType,h.FBillNo,h.FRemark,h.FSumQty,coalesce(sum(e.FQty),0)
        from ICStockBill h left join ICStockBillEntry e
            on e.FInterID=h.FInterID and (e.FEntryID is null or e.FEntryID>=0)
        where h.FTranType>0 group by h.FInterID
        having count(e.FInterID)=0 or abs(h.FSumQty-coalesce(sum(e.FQty),0))>1e-6)"},
    {"half bill", "order whose lines are missing (id | kind | no | remark | sum | lines)", R"(
        select h.FInterID,h.FTranType,h.FBillNo,h.FRemark,h.FSumQty,coalesce(sum(e.FQty),0)
        from ICOrder h left join ICOrderEntry e on e.FInterID=h.FInterID and e.FEntryID>=0
        group by h.FInterID
        having count(e.FInterID)=0 or abs(h.FSumQty-coalesce(sum(e.FQty),0))>1e-6)"},
    {"half bill", "line not spread over its size/colour rows (id | key | qty | in cells)", R"(
        select * from (select e.FInterID,e.FRowKey,e.FQty,(select coalesce(sum(c.FQty),0)
            from ICStockBillEntry_1 c where c.FInterID=e.FInterID and c.FRowKey=e.FRowKey) as FCells
            from ICStockBillEntry e where e.FEntryID is null or e.FEntryID>=0) s
        where abs(FQty-FCells)>1e-6
        union all select * from (select e.FInterID,e.FRowKey,e.FQty,(select coalesce(sum(c.FQty),0)
            from ICOrderEntry_1 c where c.FInterID=e.FInterID and c.FRowKey=e.FRowKey) as FCells
            from ICOrderEntry e where e.FEntryID>=0) o
        where abs(FQty-FCells)>1e-6)"},
    {"half bill", "size/colour row without its line (id | key)", R"(
        select c.FInterID,c.FRowKey from ICStockBillEntry_1 c where c.FRowKey is not null
            and not exists (select 1 from ICStockBillEntry e
                            where e.FInterID=c.FInterID and e.FRowKey=c.FRowKey)
        union all select c.FInterID,c.FRowKey from ICOrderEntry_1 c
            where not exists (select 1 from ICOrderEntry e
                              where e.FInterID=c.FInterID and e.FRowKey=c.FRowKey))"},
    {"half bill", "rows without their header (table | id | rows)", R"(
        select 'ICStockBillEntry',FInterID,count(*) from ICStockBillEntry
            where FInterID not in (select FInterID from ICStockBill) group by FInterID
        union all select 'ICStockBillEntry_1',FInterID,count(*) from ICStockBillEntry_1
            where FInterID not in (select FInterID from ICStockBill) group by FInterID
        union all select 'ICOrderEntry',FInterID,count(*) from ICOrderEntry
            where FInterID not in (select FInterID from ICOrder) group by FInterID
        union all select 'ICOrderEntry_1',FInterID,count(*) from ICOrderEntry_1
            where FInterID not in (select FInterID from ICOrder) group by FInterID
        union all select 'WLBillEntry',FInterID,count(*) from WLBillEntry
            where FInterID not in (select FInterID from WLBill) group by FInterID)"},
    {"half bill", "member order without its earnest receipt (id | no)", R"(
        select o.FInterID,o.FBillNo from ICOrder o where o.FTranType=21 and not exists
            (select 1 from WLBill w where w.FOrderBillID=o.FInterID and w.FTranType=23))"},
    {"half bill", "earnest receipt without its member order (no | order)", R"(
        select FBillNo,FOrderBillID from WLBill where FTranType=23 and FOrderBillID>0
            and FOrderBillID not in (select FInterID from ICOrder))"},
    {"half bill", "member sale without its points (id | no)", R"(
        select h.FInterID,h.FBillNo from ICStockBill h where h.FTranType=99 and h.FVipID>0
            and not exists (select 1 from vipjf_History j where j.FBillInterID=h.FInterID))"},
    {"half bill", "points of a sale that is not there (sale)", R"(
        select FBillInterID from vipjf_History
        where FBillInterID not in (select FInterID from ICStockBill))"},
    {"half bill",
     "lent line whose returned quantity is not its returns (id | entry | returned | "
     "returns)",
     R"(
        select * from (select e.FInterID,e.FEntryID,coalesce(e.FRtnQty,0) as FRtn,
            (select coalesce(sum(r.FQty),0) from ICStockBillEntry r join ICStockBill rh
                on rh.FInterID=r.FInterID
             where r.FRefInterID=e.FInterID and r.FRefEntryID=e.FEntryID and r.FRefTranType=27
                and rh.FTranType=17 and coalesce(rh.FDeleted,0)=0) as FReturns
            from ICStockBillEntry e join ICStockBill h on h.FInterID=e.FInterID
            where h.FTranType=27 and e.FEntryID>=0) l
        where abs(FRtn-FReturns)>1e-6)"},
    {"half bill", "receivables closed halfway (flag | balances | staged | opening bills)", R"(
        select * from (select (select FValue from t_SystemProfile where FKey='WLClosed') as FFlag,
            (select count(*) from WLBal) as FBal,(select count(*) from WLInitData) as FStaged,
            (select count(*) from ICStockBill where FTranType in (-12,-22)) as FOpening) w
        where not ((FFlag='1' and FBal=FStaged and FOpening=FStaged) or (FFlag='0' and FBal=0)))"},

    {"kept total", "stock on hand (stock | item | kept less recomputed)", R"(
        select FStockID,FItemID,sum(FQty) from (
            select FStockID,FItemID,-FQty as FQty from ICStockQty
            union all select FStockID,FItemID,FQty from ICInitData
            union all select h.FInStockID,e.FItemID,
                case when h.FTranType=114 then -coalesce(e.FQty,0) else coalesce(e.FQty,0) end
            from ICStockBill h join ICStockBillEntry e on e.FInterID=h.FInterID
            where coalesce(h.FDeleted,0)=0 and h.FTranType in (112,114,115,17,31)
                and (e.FEntryID is null or e.FEntryID>=0)
            union all select h.FOutStockID,e.FItemID,-coalesce(e.FQty,0)
            from ICStockBill h join ICStockBillEntry e on e.FInterID=h.FInterID
            where coalesce(h.FDeleted,0)=0 and h.FTranType in (99,125,27,31)
                and (e.FEntryID is null or e.FEntryID>=0)
                and not (h.FTranType=99 and coalesce(e.FRefTranType,0)=27)) q
        where FStockID is not null and FItemID is not null
        group by FStockID,FItemID having abs(sum(FQty))>1e-6)"},
    {"kept total", "line's kind is not its header's (id | entry | kept | header)", R"(
        select e.FInterID,e.FEntryID,e.FHeadTranType,h.FTranType from ICStockBillEntry e
        left join ICStockBill h on h.FInterID=e.FInterID
        where e.FHeadTranType is distinct from h.FTranType)"},
};

}  // namespace

void Findings::add(const std::string& category, const std::string& what) {
    problems[category].push_back(what);
}

std::string Findings::summary() const {
    std::string out;
    for (const char* c : kCategories) {
        const auto it = problems.find(c);
        out += (out.empty() ? "" : ", ") +
               std::to_string(it == problems.end() ? 0 : it->second.size()) + " " + c;
    }
    std::string bills;
    for (const auto& [name, n] : counts)
        bills += (bills.empty() ? "" : ", ") + std::to_string(n) + " " + name;
    return out + " (" + bills + ")";
}

std::string Findings::details() const {
    std::string out;
    for (const auto& [category, list] : problems) {
        out += category + " (" + std::to_string(list.size()) + "):\n";
        for (std::size_t i = 0; i < list.size() && i < 10; ++i)
            out += "  " + list[i] + "\n";
    }
    return out;
}

Books::Books(const std::string& db) : db_(db) {
    const int status =
        reap(spawn({"init", db, "--demo", "--year", "2025", "--period", "3"}, -1, -1));
    if (status != 0) throw std::runtime_error("billdata init failed for " + db);
    ReadOnly file(db);
    for (const auto& row : file.rows("select FVipID,FSumJf,FSumBuyAmount from Vip"))
        members_[row[0]] = {std::stod(row[1]), std::stod(row[2])};
}

Findings Books::check(const std::vector<Saved>& answered) const {
    Findings f;
    const ReadOnly db(db_);
    // The file's own structure; a server keeps its files to itself.
    if (!db.server())
        for (const auto& row : db.rows("pragma integrity_check"))
            if (row[0] != "ok") f.add("integrity", row[0]);
    for (const Rule& rule : kRules)
        for (const auto& row : db.rows(db.server() && rule.server ? rule.server : rule.sql))
            f.add(rule.category, std::string(rule.what) + ": " + joined(row));

    // No two answers hand out the same interior id or bill number.
    std::set<std::string> ids, numbers;
    for (const Saved& s : answered) {
        if (s.again) continue;
        const std::string series = s.table == "WLBill"                    ? "4"
                                   : s.table == "ICOrder" && s.kind == 11 ? "11"
                                                                          : "0";
        if (s.id && !ids.insert(series + ":" + std::to_string(s.id)).second)
            f.add("duplicate", "two answers gave interior id " + std::to_string(s.id));
        if (!s.bill_no.empty() && !numbers.insert(std::to_string(s.kind) + ":" + s.bill_no).second)
            f.add("duplicate", "two answers gave bill number " + s.bill_no);
    }

    // Every answered save is there with the lines it was sent (a bill saved again: with the lines
    // of its last save).
    std::map<std::string, std::size_t> last;
    for (std::size_t i = 0; i < answered.size(); ++i)
        if (answered[i].id) last[answered[i].table + ":" + std::to_string(answered[i].id)] = i;
    for (std::size_t i = 0; i < answered.size(); ++i) {
        const Saved& s = answered[i];
        if (s.id && last[s.table + ":" + std::to_string(s.id)] != i) continue;
        const char* lines = s.table == "ICStockBill"
                                ? "(select count(*) from ICStockBillEntry e where "
                                  "e.FInterID=h.FInterID and (e.FEntryID is null or "
                                  "e.FEntryID>=0))"
                            : s.table == "ICOrder" ? "(select count(*) from ICOrderEntry e where "
                                                     "e.FInterID=h.FInterID and e.FEntryID>=0)"
                                                   : "0";
        const std::string where =
            s.id ? "h.FInterID=" + std::to_string(s.id)
                 : "h.FTranType=" + std::to_string(s.kind) + " and h.FBillNo=" + quoted(s.bill_no);
        const auto rows = db.rows("select h.FInterID,h.FTranType," + std::string(lines) + " from " +
                                  s.table + " h where " + where);
        if (rows.empty()) {
            f.add("lost", describe(s) + " was answered and is not there");
            continue;
        }
        if (rows[0][1] != std::to_string(s.kind) ||
            (s.lines >= 0 && rows[0][2] != std::to_string(s.lines)))
            f.add("lost", describe(s) + " has kind " + rows[0][1] + " and " + rows[0][2] +
                              " lines, sent " + std::to_string(s.lines));
        if (s.advance &&
            db.rows("select 1 from WLBill where FTranType=13 and FOrderBillID=" + rows[0][0])
                .empty())
            f.add("lost", describe(s) + " was answered without its advance's payment bill");
    }

    // Members' points and purchases are their opening values plus their live sales.
    for (const auto& row :
         db.rows("select v.FVipID,v.FSumJf,v.FSumBuyAmount,(select coalesce(sum(Fjf),0) from "
                 "vipjf_History j where j.FVipID=v.FVipID and coalesce(j.FDeleted,0)=0),(select "
                 "coalesce(sum(FSumAmount),0) from "
                 "ICStockBill h where h.FTranType=99 and h.FVipID=v.FVipID and "
                 "coalesce(h.FDeleted,0)=0) from Vip v")) {
        const auto& [points, bought] = members_.at(row[0]);
        if (std::abs(std::stod(row[1]) - points - std::stod(row[3])) > 1e-6 ||
            std::abs(std::stod(row[2]) - bought - std::stod(row[4])) > 1e-6)
            f.add("kept total",
                  "member's points or purchases are not their sales (vip | points "
                  "| purchases | history | sales): " +
                      joined(row));
    }

    // The row counts that triggers keep equal the real ones.
    for (const char* table :
         {"ICStockBill", "ICStockBillEntry", "ICStockBillEntry_1", "ICOrder", "ICOrderEntry",
          "ICOrderEntry_1", "WLBill", "WLBillEntry", "ICSpTjd"}) {
        const std::string t(table);
        for (const auto& row : db.rows("select (select " + t +
                                       " from t_TableRows),(select "
                                       "count(*) from " +
                                       t + ")"))
            if (row[0] != row[1])
                f.add("kept total", "row count of " + t + " (kept | real): " + joined(row));
    }

    auto count = [&](const char* name, const char* sql) {
        f.counts[name] = std::stol(db.rows(sql).at(0).at(0));
    };
    count("stock bills", "select count(*) from ICStockBill where FTranType>0");
    count("orders", "select count(*) from ICOrder");
    count("money bills", "select count(*) from WLBill");
    f.counts["answered saves"] = static_cast<long>(answered.size());
    return f;
}

}  // namespace billdata::reliability
