#pragma once
// The caller's filter of a list operation (`strFilter`, `QuerySql`) is a piece of SQL that goes
// into the statement as given. It may narrow the list, never widen it: the user's list window
// and own stock, and the list's own conditions, are appended after it and must hold whatever it
// says. require_safe_filter refuses, before anything is opened, a filter that could escape them.

#include <string_view>

namespace billdata::common {

// Where the filter stands in its statement.
enum class FilterPlace {
    // After the list's own conditions ("where FTranType=99 " + filter, "… and " + filter), with
    // restrictions and clauses following: the filter may only add conditions.
    AfterConditions,
    // The whole condition of the where clause (" where " + filter + " group by …"): nothing of
    // the list's own stands beside it, so a top-level `or` is the caller's own business.
    WholeCondition,
};

// Returns when `filter` can only be a condition in its place (the empty filter included).
// Otherwise raises ComError 0x800403E9 with a message that begins "查询条件", names the reason
// and quotes the filter from the offending point: a top-level `or` (AfterConditions), any `--`
// comment or an unterminated `/*`, a `)` that would close the statement's own context, an
// unclosed `(` or `case`, a dangling `between`, an unterminated string or quoted name, `;`, a
// set operation or a keyword that ends the where clause or starts a statement at top level.
// Words inside strings, quoted names and comments count for nothing. Pure; thread-safe.
void require_safe_filter(std::string_view filter, FilterPlace place = FilterPlace::AfterConditions);

}  // namespace billdata::common
