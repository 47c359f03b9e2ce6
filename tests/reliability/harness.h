#pragma once
// Reliability harness shared by the concurrent-tills and the crash runs: the `billdata batch`
// program driven line by line as a front end drives it, random but valid calls of every class,
// and the checks of a shop's books, read straight from the file or the server's database once the
// writers have stopped.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace billdata::reliability {

// A size knob of a run from the environment (`name` unset or empty: `fallback`).
int env_or(const char* name, int fallback);

// A `billdata batch --db <db>` process fed through a pipe. With `sql_log` it logs the
// statements it issues there (BILLDATA_SQL_LOG), which is how a kill is put inside a call. It is
// always killed and reaped by the time the object goes.
class Till {
  public:
    explicit Till(const std::string& db, const std::string& sql_log = "");
    ~Till();
    Till(const Till&) = delete;
    Till& operator=(const Till&) = delete;

    // Sends one line and waits for its answer line; std::nullopt when the process died. With
    // `kill_at_statement` > 0 the process is killed with SIGKILL, `delay` after that statement
    // of the call shows in the log, unless the answer comes first.
    std::optional<std::string> call(const std::string& line, int kill_at_statement = 0,
                                    std::chrono::microseconds delay = {});
    // Statements the last call issued (with a log).
    int statements() const { return statements_; }
    void kill();
    // Ends the input and waits for the exit; the exit status, or -1 when it did not exit.
    int finish();

  private:
    void read_log();

    pid_t pid_ = -1;
    int to_ = -1, from_ = -1, log_ = -1;
    std::string pending_;
    long logged_ = 0;  // statements in the log so far
    int statements_ = 0;
};

// What a front end does, one call at a time.
enum class Op {
    Sale,            // PosData, cash, sometimes a member card with points or goods pre-sent
    SaleAgain,       // PosData, a corrected sale saved again under its id
    Purchase,        // PurRkd 112, sometimes at a new price (price adjustments follow)
    PurchaseReturn,  // PurRkd 114
    Transfer,        // OtherBill 31
    OtherIn,         // OtherBill 115
    OtherOut,        // OtherBill 125
    Receipt,         // SFKData 23
    Payment,         // SFKData 13
    Order,           // OrderBill 11, sometimes with an advance
    MemberOrder,     // vipOrder 21 with its earnest
    Lend,            // Credit 27
    GiveBack,        // Credit 17 of a line lent before
    CloseWL,         // InitData.CloseWLInit
    ReopenWL,        // InitData.UnCloseWLInit
};
const char* name(Op op);

// What an answered save must have left: its header (found by interior id, or by kind and bill
// number when the answer gives no id) with as many lines as were sent.
struct Saved {
    std::string table = {};  // ICStockBill, ICOrder or WLBill; empty when the call saves no bill
    int kind = 0;
    std::int32_t id = 0;
    std::string bill_no = {};
    int lines = 0;         // -1: not known (a save of it again was cut off)
    bool advance = false;  // an order paid in advance: its kind-13 payment bill points at it
    bool again = false;    // an existing bill saved again under its own id and number
};

struct Call {
    std::string target;  // Class.Method
    nlohmann::json args;
    Saved saves;
    Op op = {};
    std::string line() const;
};

// A front end's calls, drawn at random from `mix` (an op listed twice comes twice as often).
// It remembers from the answers what later calls refer to: sales to correct, lent goods.
class FrontEnd {
  public:
    FrontEnd(std::string db, std::vector<Op> mix, std::uint32_t seed, std::string name);
    // The next call: of kind `op` when given (a correction or a give-back with nothing to refer
    // to becomes a sale or a lending), else drawn from the mix.
    Call next(std::optional<Op> op = std::nullopt);
    // The bill an answer says was saved; std::nullopt for an error answer (`error` gets it) or a
    // call that saves no bill.
    std::optional<Saved> answered(const Call& call, const std::string& answer, std::string& error);

  private:
    Call make(Op op);
    int pick(int low, int high);
    std::string day();  // a bill date in the database's period
    std::string remark() const;
    nlohmann::json stock_lines(bool sized_only, bool purchase, double& qty, double& amount,
                               nlohmann::json& cells);
    Call sale(std::int32_t again);
    Call stock_bill(Op op);
    Call credit(std::optional<std::int32_t> lent);

    std::string db_, name_;
    std::vector<Op> mix_;
    std::mt19937 rng_;
    int calls_ = 0;
    std::vector<std::int32_t> sales_;  // answered sales
    std::vector<std::int32_t> lent_;   // answered lending bills whose line 1 is still out
    std::map<std::int32_t, nlohmann::json> lent_lines_;  // their line 1 and its first cell
    nlohmann::json pending_lend_;                        // of the lending call in flight
};

// A shop's day of every class but credit bills, about in a shop's proportions.
inline const std::vector<Op> kShopDay = {
    Op::Sale,           Op::Sale,        Op::Sale,    Op::Sale,     Op::SaleAgain, Op::Purchase,
    Op::PurchaseReturn, Op::Transfer,    Op::OtherIn, Op::OtherOut, Op::Receipt,   Op::Payment,
    Op::Order,          Op::MemberOrder, Op::CloseWL, Op::ReopenWL};
// Goods lent to members and given back, between till sales.
inline const std::vector<Op> kCreditDay = {Op::Lend, Op::Lend, Op::GiveBack, Op::GiveBack,
                                           Op::Sale};

// Findings of one check of the books, by category: integrity, duplicate, counter, lost,
// half bill, kept total.
struct Findings {
    std::map<std::string, std::vector<std::string>> problems;
    std::map<std::string, long> counts;  // bills found, for the figures
    void add(const std::string& category, const std::string& what);
    bool ok() const { return problems.empty(); }
    std::string summary() const;
    std::string details() const;
};

// The books of a shop database made by `billdata init --demo`: a file, or an empty database on a
// server (its connection string).
class Books {
  public:
    // Creates the schema and remembers the members' opening points and purchase totals.
    explicit Books(const std::string& db);
    // Every check, past the component (the file opened read-only, or the server's database in
    // one snapshot); `answered` are the saves whose answers came.
    Findings check(const std::vector<Saved>& answered) const;

  private:
    std::string db_;
    std::map<std::string, std::pair<double, double>> members_;  // FVipID -> points, purchases
};

}  // namespace billdata::reliability
