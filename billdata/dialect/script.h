#pragma once
// A whole T-SQL schema script: batches separated by GO lines, holding SET options and the
// definitions of tables, indexes, views, triggers and procedures, whose bodies hold variables,
// control flow, cursors, transactions and the statements the one-statement parser reads. The
// result is plain data: every statement with its kind and place in the text, and the tables and
// indexes the script declares. Separate from the one-statement entry points, which refuse all
// of this.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "billdata/dialect/dialect.h"

namespace billdata::dialect {

// A declared type as written: the name in lower case, the text length (-1 for max, 0 when the
// type takes none), and a decimal's precision and scale (0 when the type takes none).
struct ScriptType {
    std::string name;
    int length = 0;
    int precision = 0;
    int scale = 0;
};

struct ScriptColumn {
    std::string name;
    ScriptType type;
    bool nullable = true;  // NULL unless NOT NULL, PRIMARY KEY or IDENTITY says otherwise
    bool identity = false;
    std::string default_value;  // the default's expression as written; empty when none
    std::size_t position = 0;
};

struct ScriptTable {
    std::string name;
    std::vector<ScriptColumn> columns;  // in declared order
    std::vector<std::string> primary_key;
    std::vector<std::vector<std::string>> unique_keys;
    std::size_t position = 0;
};

struct ScriptIndex {
    std::string name;
    std::string table;
    std::vector<std::string> columns;
    bool unique = false;
    std::string filter;  // the WHERE condition as written; empty when none
    std::size_t position = 0;
};

enum class ScriptKind {
    Option,           // SET NOCOUNT ON and the like
    CreateTable,      // name
    CreateIndex,      // name, table
    CreateView,       // name; query spans the select
    CreateTrigger,    // name, table, events; body
    CreateProcedure,  // name, parameters; body
    Block,            // BEGIN … END; body
    Declare,          // variables with their types
    DeclareCursor,    // name; query spans the select
    Assign,           // SET @variable = value; variables[0], value spans the value
    Query,            // a select, insert, update or delete (query_kind); targets of SELECT @v = …
    If,               // condition; body[0] the statement, body[1] the ELSE statement if any
    While,            // condition; body[0]
    Break,
    Continue,
    Return,      // value spans the value if any
    Open,        // name
    Fetch,       // name, variables
    Close,       // name
    Deallocate,  // name
    Begin,       // BEGIN TRAN
    Commit,      // COMMIT TRAN
    Rollback,    // ROLLBACK TRAN [name]
    Save,        // SAVE TRAN name
    Try,         // body[0] the try block, body[1] the catch block
    Throw,       // a rethrow (no arguments)
};

// A place in the script's text: [begin, end).
struct ScriptSpan {
    std::size_t begin = 0;
    std::size_t end = 0;
    bool empty() const { return begin == end; }
    std::string_view of(std::string_view text) const { return text.substr(begin, end - begin); }
};

struct ScriptVariable {
    std::string name;  // with its '@'
    ScriptType type;
    bool output = false;  // a procedure's OUTPUT parameter
    ScriptSpan value;     // a parameter's default, when given
};

// `SELECT @v = expression`: the text from `assign.begin` up to `assign.end` is "@v =", so that
// cutting it leaves the expression as a plain select item.
struct ScriptTarget {
    std::string variable;
    ScriptSpan assign;
};

struct ScriptStatement {
    ScriptKind kind = ScriptKind::Option;
    ScriptSpan span;        // the whole statement, without a trailing ';'
    std::size_t batch = 0;  // which GO batch, from 0
    std::string name;
    std::string table;
    std::vector<std::string> events;        // a trigger's INSERT, UPDATE, DELETE (upper case)
    std::vector<ScriptVariable> variables;  // declared, parameters, assigned or fetched into
    ScriptSpan value;                       // Assign, Return; If/While: the condition
    ScriptSpan query;                       // CreateView, DeclareCursor: the select
    StatementKind query_kind = StatementKind::Select;
    std::vector<ScriptTarget> targets;  // Query: SELECT @v = …
    std::vector<ScriptStatement> body;
};

struct Script {
    std::vector<ScriptStatement> statements;  // top level, in order
    std::vector<ScriptTable> tables;          // in order
    std::vector<ScriptIndex> indexes;         // in order
    std::size_t batches = 0;
};

// Parses a whole script. Inside bodies a variable reads as a name beginning with '@'; the
// statements the one-statement parser reads follow its rules (a construct it refuses is refused
// here too). Raises DialectError naming the position in `text` of what cannot be read.
Script parse_script(std::string_view text);

}  // namespace billdata::dialect
