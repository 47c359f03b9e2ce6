#pragma once
// Resolves the names of a parsed statement against the schema catalogue and works out the type
// of every expression, as the server does before it runs a statement: each table must exist,
// each unqualified column must belong to exactly one table of its scope, `+` is told apart
// into addition, concatenation and date arithmetic, and comparisons learn whether they compare
// texts or dates. The results are written into the tree for the emitters.

#include "billdata/dialect/ast.h"

namespace billdata::dialect {

struct Scope;

class Binder {
  public:
    Binder(const Catalog& catalog, Arena& arena) : catalog_(catalog), arena_(arena) {}
    // Raises DialectError with the server's wording for unknown tables and columns.
    void bind_statement(Node& stmt);

  private:
    void bind_select(Select& select, Scope* parent);
    void bind_body(Node& body, Scope* parent);
    void bind_spec(QuerySpec& spec, Scope* parent, Select* owner);
    void bind_source(TableSource& source, Scope& scope, Scope* outer);
    void bind_expr(Expr& e, Scope& scope);
    void bind_column(ColumnRef& c, Scope& scope);
    void bind_order_by(Select& select, Scope* spec_scope);
    // Whether an ORDER BY term is a column that can hold no NULL where it is read.
    bool never_null(const Expr& e) const;
    // Marks a join's side (every table in it) as filled with NULLs where nothing matches.
    static void mark_null_extended(TableSource& source);
    void check_table(const TableRef& t) const;
    void output_columns(Select& select, List<OutputColumn>& out);
    CompareKind compare_kind(ColumnType a, ColumnType b) const;
    // The server type of a bound expression from those of its operands, and the run-time
    // checks the type calls for.
    void type_expr(Expr& e);
    // Refuses a select list or HAVING that uses a column neither grouped nor aggregated.
    void check_grouping(const QuerySpec& spec, const Scope& scope) const;
    // Refuses an ORDER BY of a grouped query that uses a column neither grouped nor aggregated.
    void check_order_grouping(const Select& select, const Scope& scope) const;
    // Finds the query an aggregate over columns of enclosing queries belongs to.
    void place_aggregate(Function& f, Scope& scope);
    // Binds a WHERE clause, in which no aggregate of its own query may appear (error 147).
    void bind_where(Expr& where, Scope& scope);
    [[noreturn]] static void aggregate_in_where(const Function& f);

    const Catalog& catalog_;
    Arena& arena_;
    bool force_qualify_ = false;
    // Every column reference of the statement and the number of table sources, for the final
    // decision whether output names must be qualified.
    List<ColumnRef*>* refs_ = nullptr;
    int sources_ = 0;
    int outer_aggregates_ = 0;  // aggregates placed in an enclosing query so far
};

// The larger of two types by SQL Server's precedence among the kinds the dialect knows
// (date > real > integer > text); Unknown gives way to anything.
ColumnType dominant_type(ColumnType a, ColumnType b);

}  // namespace billdata::dialect
