#pragma once
// The syntax tree of one T-SQL statement. Every node carries a type tag and its position in the
// source; `as<T>()` is a checked cast. Nodes live in an Arena and are never freed one by one.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "billdata/dialect/dialect.h"

namespace billdata::dialect {

class Arena {
  public:
    Arena() : resource_(buffer_, sizeof(buffer_)) {}
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;

    // Nodes hold only arena-backed vectors and views, so nothing needs destroying: the arena
    // gives all memory back at once.
    template <class T, class... Args>
    T* make(Args&&... args) {
        void* p = resource_.allocate(sizeof(T), alignof(T));
        return new (p) T(std::forward<Args>(args)...);
    }
    std::pmr::memory_resource* resource() { return &resource_; }
    std::string_view copy(std::string_view s) {
        char* p = static_cast<char*>(resource_.allocate(s.size() + 1, 1));
        std::copy(s.begin(), s.end(), p);
        return std::string_view(p, s.size());
    }

  private:
    alignas(std::max_align_t) std::byte buffer_[16384];
    std::pmr::monotonic_buffer_resource resource_;
};

template <class T>
using List = std::pmr::vector<T>;

enum class NodeType : std::uint8_t {
    // expressions
    Literal,
    ColumnRef,
    Star,
    Unary,
    Binary,
    Between,
    InList,
    InQuery,
    Exists,
    Like,
    IsNull,
    Case,
    Cast,
    Function,
    Subquery,
    // table sources
    TableRef,
    DerivedTable,
    Join,
    // queries and statements
    QuerySpec,
    SetOperation,
    Select,
    Insert,
    Update,
    Delete,
    Truncate,
};

struct Node {
    NodeType type;
    std::uint32_t pos;
    Node(NodeType t, std::uint32_t p) : type(t), pos(p) {}

    template <class T>
    T& as() {
        if (type != T::kType) throw std::logic_error("AST node cast to the wrong type");
        return static_cast<T&>(*this);
    }
    template <class T>
    const T& as() const {
        if (type != T::kType) throw std::logic_error("AST node cast to the wrong type");
        return static_cast<const T&>(*this);
    }
    template <class T>
    bool is() const {
        return type == T::kType;
    }
};

// ---- expressions ------------------------------------------------------------------------

struct Expr : Node {
    using Node::Node;
    ColumnType vtype = ColumnType::Unknown;  // the value's type, set by the binder
    SqlType sql;                             // the same as the server dialect types it
};

struct LiteralExpr : Expr {
    static constexpr NodeType kType = NodeType::Literal;
    enum class Kind : std::uint8_t { Integer, Decimal, String, NString, Null };
    Kind kind;
    std::string_view text;  // as written, quotes and N prefix included
    // Written inline, never as a parameter: a value the statement does not spell as a literal
    // (@@datefirst), or one whose form the translator checked (an ODBC date escape).
    bool inline_only = false;
    LiteralExpr(std::uint32_t p, Kind k, std::string_view t) : Expr(kType, p), kind(k), text(t) {}
    bool is_string() const { return kind == Kind::String || kind == Kind::NString; }
    // The text between the quotes with doubled quotes made single (strings only).
    std::string string_value() const;
};

struct TableSource;

struct ColumnRef : Expr {
    static constexpr NodeType kType = NodeType::ColumnRef;
    std::string_view qualifier;  // alias or table name, empty when unqualified
    std::string_view name;
    // Binding: the FROM item that holds the column, and whether output must name it.
    const TableSource* source = nullptr;
    bool qualify = false;
    bool select_alias = false;     // an ORDER BY name that refers to a select-list alias
    std::string_view result_name;  // select_alias: that result column's name as the list spells it
    ColumnRef(std::uint32_t p, std::string_view q, std::string_view n)
        : Expr(kType, p), qualifier(q), name(n) {}
};

struct Star : Expr {
    static constexpr NodeType kType = NodeType::Star;
    std::string_view qualifier;
    Star(std::uint32_t p, std::string_view q) : Expr(kType, p), qualifier(q) {}
};

enum class UnaryOp : std::uint8_t { Neg, Plus, BitNot, Not };

struct Unary : Expr {
    static constexpr NodeType kType = NodeType::Unary;
    UnaryOp op;
    Expr* operand;
    Unary(std::uint32_t p, UnaryOp o, Expr* e) : Expr(kType, p), op(o), operand(e) {}
};

enum class BinaryOp : std::uint8_t {
    Or,
    And,
    Eq,
    Ne,
    Lt,
    Le,
    Gt,
    Ge,
    Add,
    Sub,
    BitAnd,
    BitOr,
    BitXor,
    Mul,
    Div,
    Mod,
};

// How `+`/`-` was decided from the operand types.
enum class ArithKind : std::uint8_t { Numeric, Concat, DateDays, ByValue };
// How a comparison compares, from the operand types.
enum class CompareKind : std::uint8_t { Plain, Text, Date };

struct Binary : Expr {
    static constexpr NodeType kType = NodeType::Binary;
    BinaryOp op;
    Expr* lhs;
    Expr* rhs;
    ArithKind arith = ArithKind::Numeric;
    CompareKind compare = CompareKind::Plain;
    bool date_on_right = false;  // DateDays: the date is the right operand (n + date)
    // Whole-number arithmetic whose result the engine must check against the range of this
    // type (the server raises an overflow where the engines would widen); Unknown when none.
    SqlBase range_check = SqlBase::Unknown;
    // Arithmetic whose result is a scaled exact number (decimal, money): how the exact result
    // comes to the scale of the type (e.sql); None for any other operator or type.
    DecimalRounding rounding = DecimalRounding::None;
    Binary(std::uint32_t p, BinaryOp o, Expr* l, Expr* r) : Expr(kType, p), op(o), lhs(l), rhs(r) {}
};

struct Between : Expr {
    static constexpr NodeType kType = NodeType::Between;
    Expr* expr;
    Expr* low;
    Expr* high;
    bool negated;
    CompareKind compare = CompareKind::Plain;
    Between(std::uint32_t p, Expr* e, Expr* l, Expr* h, bool n)
        : Expr(kType, p), expr(e), low(l), high(h), negated(n) {}
};

struct InList : Expr {
    static constexpr NodeType kType = NodeType::InList;
    Expr* expr;
    List<Expr*> items;
    bool negated;
    CompareKind compare = CompareKind::Plain;
    InList(std::uint32_t p, Expr* e, List<Expr*> i, bool n)
        : Expr(kType, p), expr(e), items(std::move(i)), negated(n) {}
};

struct Select;

struct InQuery : Expr {
    static constexpr NodeType kType = NodeType::InQuery;
    Expr* expr;
    Select* query;
    bool negated;
    CompareKind compare = CompareKind::Plain;
    InQuery(std::uint32_t p, Expr* e, Select* q, bool n)
        : Expr(kType, p), expr(e), query(q), negated(n) {}
};

struct Exists : Expr {
    static constexpr NodeType kType = NodeType::Exists;
    Select* query;
    Exists(std::uint32_t p, Select* q) : Expr(kType, p), query(q) {}
};

struct Like : Expr {
    static constexpr NodeType kType = NodeType::Like;
    Expr* expr;
    Expr* pattern;
    Expr* escape;  // may be null
    bool negated;
    Like(std::uint32_t p, Expr* e, Expr* pat, Expr* esc, bool n)
        : Expr(kType, p), expr(e), pattern(pat), escape(esc), negated(n) {}
};

struct IsNull : Expr {
    static constexpr NodeType kType = NodeType::IsNull;
    Expr* expr;
    bool negated;
    IsNull(std::uint32_t p, Expr* e, bool n) : Expr(kType, p), expr(e), negated(n) {}
};

struct Case : Expr {
    static constexpr NodeType kType = NodeType::Case;
    Expr* operand;  // simple form; null for the searched form
    List<std::pair<Expr*, Expr*>> whens;
    Expr* otherwise;  // may be null
    CompareKind compare = CompareKind::Plain;
    Case(std::uint32_t p, Expr* o, List<std::pair<Expr*, Expr*>> w, Expr* e)
        : Expr(kType, p), operand(o), whens(std::move(w)), otherwise(e) {}
};

// A target type of cast/convert.
struct TypeSpec {
    enum class Base : std::uint8_t {
        Integer,
        Bit,
        Decimal,
        Float,
        Text,
        FixedText,
        DateTime,
        Date
    };
    Base base = Base::Integer;
    int length = -1;  // text length; -1 when not given, -2 for max
    int scale = 0;    // decimal places of decimal/numeric/money
    SqlType sql;      // the type as the server dialect has it
};

struct Cast : Expr {
    static constexpr NodeType kType = NodeType::Cast;
    Expr* expr;
    TypeSpec target;
    int style = -1;  // convert's style, -1 when none
    bool is_convert;
    Cast(std::uint32_t p, Expr* e, TypeSpec t, int s, bool conv)
        : Expr(kType, p), expr(e), target(t), style(s), is_convert(conv) {}
};

// The built-in functions the dialect knows.
enum class Func : std::uint8_t {
    IsNull,
    Coalesce,
    NullIf,
    GetDate,
    Year,
    Month,
    Day,
    DateAdd,
    DateDiff,
    DatePart,
    Len,
    Left,
    Right,
    Substring,
    CharIndex,
    LTrim,
    RTrim,
    Upper,
    Lower,
    Replace,
    Round,
    Abs,
    Floor,
    Ceiling,
    Replicate,
    Space,
    Reverse,
    Stuff,
    DataLength,
    Power,
    PatIndex,
    IsDate,
    DateName,
    Str,
    // ranking window functions (always with OVER)
    RowNumber,
    Rank,
    DenseRank,
    // the other window functions (always with OVER and its ORDER BY)
    Ntile,
    Lag,
    Lead,
    FirstValue,
    LastValue,
    // aggregates, and aggregate window functions with OVER
    Count,
    Sum,
    Max,
    Min,
    Avg,
};

// Date parts of dateadd/datediff/datepart, by their full names.
enum class DatePart : std::uint8_t {
    None,
    Year,
    Quarter,
    Month,
    DayOfYear,
    Day,
    Week,
    Weekday,
    Hour,
    Minute,
    Second,
    Millisecond,
};

struct Window;

struct Function : Expr {
    static constexpr NodeType kType = NodeType::Function;
    Func func;
    std::string_view name;  // as written
    List<Expr*> args;       // for the date functions without the date part
    DatePart part = DatePart::None;
    bool distinct = false;
    bool star = false;       // count(*)
    Window* over = nullptr;  // the OVER clause of a window function
    // An aggregate over a column of an enclosing query alone is that query's aggregate: set by
    // the binder, it is a value where it is written.
    bool outer = false;
    // ntile's count and lag's and lead's offset: whole numbers as written (-1 when not given).
    long long window_count = -1;
    Function(std::uint32_t p, Func f, std::string_view n, List<Expr*> a)
        : Expr(kType, p), func(f), name(n), args(std::move(a)) {}
    // An aggregate of its query's rows (grouped); with OVER it is a window function instead.
    bool is_aggregate() const { return func >= Func::Count && over == nullptr; }
    bool is_aggregate_function() const { return func >= Func::Count; }
    bool is_ranking() const { return func >= Func::RowNumber && func <= Func::DenseRank; }
    // A function that exists only with OVER (ORDER BY …).
    bool is_window_only() const { return func >= Func::RowNumber && func <= Func::LastValue; }
};

struct Subquery : Expr {
    static constexpr NodeType kType = NodeType::Subquery;
    Select* query;
    // The query may yield more than one row, which the server refuses for a value: the engine
    // must check (set by the binder; false where one row at most is certain).
    bool check_single_row = false;
    Subquery(std::uint32_t p, Select* q) : Expr(kType, p), query(q) {}
};

// ---- table sources ----------------------------------------------------------------------

struct TableSource : Node {
    using Node::Node;
    // The name that qualifies its columns: the alias, or the table name without alias.
    std::string_view exposed;
    // Binding: on the side of an outer join that is filled with NULLs where nothing matches.
    bool null_extended = false;
};

struct TableRef : TableSource {
    static constexpr NodeType kType = NodeType::TableRef;
    std::string_view name;
    std::string_view alias;  // empty when none
    std::uint32_t end = 0;   // source offset just past the name and its alias
    bool hinted = false;     // written with table hints of its own
    TableRef(std::uint32_t p, std::string_view n, std::string_view a)
        : TableSource(kType, p), name(n), alias(a) {
        exposed = a.empty() ? n : a;
    }
};

struct OutputColumn {
    std::string_view name;
    ColumnType type;
    SqlType sql = {};
};

struct DerivedTable : TableSource {
    static constexpr NodeType kType = NodeType::DerivedTable;
    Select* query;
    std::string_view alias;
    List<OutputColumn> columns;  // set by the binder
    DerivedTable(std::uint32_t p, Select* q, std::string_view a, std::pmr::memory_resource* r)
        : TableSource(kType, p), query(q), alias(a), columns(r) {
        exposed = a;
    }
};

enum class JoinKind : std::uint8_t { Inner, Left, Right, Full, Cross };

struct Join : TableSource {
    static constexpr NodeType kType = NodeType::Join;
    JoinKind kind;
    TableSource* left;
    TableSource* right;
    Expr* on;  // null for a cross join
    Join(std::uint32_t p, JoinKind k, TableSource* l, TableSource* r, Expr* o)
        : TableSource(kType, p), kind(k), left(l), right(r), on(o) {}
};

// ---- queries and statements ------------------------------------------------------------

struct SelectItem {
    Expr* expr;
    std::string_view alias;  // empty when none (string aliases are stored without quotes)
};

struct QuerySpec : Node {
    static constexpr NodeType kType = NodeType::QuerySpec;
    bool distinct = false;
    long long top = -1;  // -1 when no TOP
    // TOP n PERCENT: the first ceiling(rows * percent_num / percent_den) rows (top stays -1).
    long long percent_num = -1;
    long long percent_den = 1;
    // TOP … WITH TIES: also the rows that sort equal to the last one (an ORDER BY is required).
    bool with_ties = false;
    List<SelectItem> items;
    List<TableSource*> from;  // comma-separated items; joins nest inside
    Expr* where = nullptr;
    List<Expr*> group_by;
    Expr* having = nullptr;
    QuerySpec(std::uint32_t p, std::pmr::memory_resource* r)
        : Node(kType, p), items(r), from(r), group_by(r) {}
};

enum class SetOp : std::uint8_t { Union, UnionAll, Except, Intersect };

struct SetOperation : Node {
    static constexpr NodeType kType = NodeType::SetOperation;
    SetOp op;
    Node* left;   // QuerySpec or SetOperation
    Node* right;  // QuerySpec or SetOperation
    SetOperation(std::uint32_t p, SetOp o, Node* l, Node* r)
        : Node(kType, p), op(o), left(l), right(r) {}
};

struct OrderItem {
    Expr* expr;
    bool desc;
    // Binding: the term is a column that holds no NULL (a NOT NULL column of a table that no
    // outer join extends with NULLs), so where NULLs sort needs no saying.
    bool never_null = false;
};

// One end of a window frame: UNBOUNDED PRECEDING, n PRECEDING, CURRENT ROW, n FOLLOWING or
// UNBOUNDED FOLLOWING, in that order.
struct FrameBound {
    enum class Kind : std::uint8_t {
        UnboundedPreceding,
        Preceding,
        CurrentRow,
        Following,
        UnboundedFollowing
    };
    Kind kind = Kind::CurrentRow;
    long long rows = 0;  // n of n PRECEDING / FOLLOWING
};

// OVER (PARTITION BY … ORDER BY … [ROWS | RANGE BETWEEN … AND …]) of a window function.
struct Window {
    List<Expr*> partition_by;
    List<OrderItem> order_by;
    // No frame: the whole partition, or with ORDER BY the rows up to the current row's last
    // peer; the engines take the same default.
    enum class Frame : std::uint8_t { None, Rows, Range } frame = Frame::None;
    FrameBound start;
    FrameBound end;
    explicit Window(std::pmr::memory_resource* r) : partition_by(r), order_by(r) {}
};

// A query expression with its ORDER BY: a whole select statement, or a subquery.
struct Select : Node {
    static constexpr NodeType kType = NodeType::Select;
    Node* body;  // QuerySpec or SetOperation
    List<OrderItem> order_by;
    long long offset = -1;  // OFFSET n ROWS; -1 when none
    long long fetch = -1;   // FETCH NEXT n ROWS ONLY; -1 when none
    Select(std::uint32_t p, Node* b, std::pmr::memory_resource* r)
        : Node(kType, p), body(b), order_by(r) {}
    // The first query of the body (whose select list names the columns).
    QuerySpec& first_spec() const;
};

struct InsertColumn {
    std::string_view name;
    std::uint32_t pos;
    ColumnType type = ColumnType::Unknown;
    std::int32_t fit = 0;   // a text column's declared length in characters; 0: not checked
    bool national = false;  // the column is declared nchar or nvarchar
    SqlType scaled = {};    // a decimal or money column's declared type; unknown for others
};

struct Insert : Node {
    static constexpr NodeType kType = NodeType::Insert;
    TableRef* table;
    List<InsertColumn> columns;  // empty when the statement names none
    List<List<Expr*>> rows;      // VALUES rows
    Select* query = nullptr;     // INSERT … SELECT
    Insert(std::uint32_t p, TableRef* t, std::pmr::memory_resource* r)
        : Node(kType, p), table(t), columns(r), rows(r) {}
};

struct SetItem {
    std::string_view qualifier;
    std::string_view column;
    std::uint32_t pos;
    Expr* value;
    ColumnType type = ColumnType::Unknown;
    std::int32_t fit = 0;   // as InsertColumn::fit
    bool national = false;  // as InsertColumn::national
    SqlType scaled = {};    // as InsertColumn::scaled
};

struct Update : Node {
    static constexpr NodeType kType = NodeType::Update;
    TableRef* target;  // the table or the FROM alias named after UPDATE
    List<SetItem> sets;
    List<TableSource*> from;
    Expr* where = nullptr;
    // Binding: the FROM item that is the target (null when the FROM does not hold it).
    const TableRef* target_source = nullptr;
    Update(std::uint32_t p, TableRef* t, std::pmr::memory_resource* r)
        : Node(kType, p), target(t), sets(r), from(r) {}
};

struct Delete : Node {
    static constexpr NodeType kType = NodeType::Delete;
    TableRef* target;
    List<TableSource*> from;  // the second FROM of `delete t1 from … t1 join …`
    Expr* where = nullptr;
    const TableRef* target_source = nullptr;  // set by the binder
    Delete(std::uint32_t p, TableRef* t, std::pmr::memory_resource* r)
        : Node(kType, p), target(t), from(r) {}
};

struct Truncate : Node {
    static constexpr NodeType kType = NodeType::Truncate;
    TableRef* table;
    Truncate(std::uint32_t p, TableRef* t) : Node(kType, p), table(t) {}
};

}  // namespace billdata::dialect
