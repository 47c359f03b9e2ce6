// The tables and columns of the database as the server's INFORMATION_SCHEMA describes them, for
// tools that discover the schema. The SQL Server script is the truth: its declared types (an
// nvarchar's length, a decimal's precision and scale) are what the other engines cannot tell,
// so every engine's database holds them, read from that script, in the tables t_SchemaTables
// and t_SchemaColumns under the server's column names, and the translator reads
// INFORMATION_SCHEMA.TABLES and .COLUMNS from those. The engines' own helper tables (kept stock
// totals and row counts, spelled names, these two) are not listed: the server's database does
// not have them.

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "billdata/schema/schema.h"
#include "billdata/util/text.h"

namespace billdata::schema {

namespace {

struct DeclaredColumn {
    std::string table;
    std::string column;
    int ordinal = 0;
    bool nullable = true;
    std::string data_type;
    std::string max_length = "NULL";  // CHARACTER_MAXIMUM_LENGTH
    std::string precision = "NULL";   // NUMERIC_PRECISION
    std::string scale = "NULL";       // NUMERIC_SCALE
};

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r'))
        s.remove_prefix(1);
    while (!s.empty() &&
           (s.back() == ' ' || s.back() == '\t' || s.back() == '\r' || s.back() == ','))
        s.remove_suffix(1);
    return s;
}

// One column line of a CREATE TABLE: `FName nvarchar(80) NULL DEFAULT ''`.
DeclaredColumn column_of(std::string_view table, std::string_view line, int ordinal) {
    DeclaredColumn c;
    c.table = table;
    c.ordinal = ordinal;
    const std::size_t name_end = line.find(' ');
    c.column = line.substr(0, name_end);
    std::string_view rest = trimmed(line.substr(name_end + 1));
    std::size_t type_end = rest.find_first_of(" (");
    const std::string type = util::lower_copy(rest.substr(0, type_end));
    std::string_view args;
    if (type_end != std::string_view::npos && rest[type_end] == '(') {
        const std::size_t close = rest.find(')', type_end);
        args = rest.substr(type_end + 1, close - type_end - 1);
        type_end = close + 1;
    }
    const std::string upper_rest = util::lower_copy(rest.substr(type_end));
    c.nullable = upper_rest.find("not null") == std::string::npos &&
                 upper_rest.find("primary key") == std::string::npos;
    c.data_type = type;
    if (type == "int") {
        c.precision = "10";
        c.scale = "0";
    } else if (type == "bigint") {
        c.precision = "19";
        c.scale = "0";
    } else if (type == "smallint") {
        c.precision = "5";
        c.scale = "0";
    } else if (type == "tinyint") {
        c.precision = "3";
        c.scale = "0";
    } else if (type == "decimal" || type == "numeric") {
        const std::size_t comma = args.find(',');
        c.precision = args.empty() ? "18" : std::string(trimmed(args.substr(0, comma)));
        c.scale =
            comma == std::string_view::npos ? "0" : std::string(trimmed(args.substr(comma + 1)));
    } else if (type == "money") {
        c.precision = "19";
        c.scale = "4";
    } else if (type == "nvarchar" || type == "varchar" || type == "nchar" || type == "char") {
        c.max_length = util::lower_copy(args) == "max" ? "-1"
                       : args.empty()                  ? "1"
                                                       : std::string(args);
    } else if (type != "datetime") {
        throw std::logic_error(
            "the SQL Server script declares a type the schema does not describe: " + type);
    }
    return c;
}

// Every column of every CREATE TABLE of the SQL Server script, in declared order.
std::vector<DeclaredColumn> declared_columns() {
    std::vector<DeclaredColumn> out;
    const std::string_view script = sqlserver_schema();
    std::size_t at = 0;
    std::string table;
    int ordinal = 0;
    while (at < script.size()) {
        std::size_t end = script.find('\n', at);
        if (end == std::string_view::npos) end = script.size();
        const std::string_view raw = script.substr(at, end - at);
        at = end + 1;
        const std::string_view line = trimmed(raw);
        constexpr std::string_view kCreate = "CREATE TABLE ";
        if (line.substr(0, kCreate.size()) == kCreate) {
            const std::string_view rest = line.substr(kCreate.size());
            table = std::string(trimmed(rest.substr(0, rest.find('('))));
            ordinal = 0;
            continue;
        }
        if (table.empty()) continue;
        if (line.substr(0, 1) == ")") {
            table.clear();
            continue;
        }
        if (line.empty() || line.substr(0, 2) == "--" || line.substr(0, 11) == "CONSTRAINT " ||
            line.substr(0, 12) == "PRIMARY KEY " || line.substr(0, 7) == "UNIQUE ")
            continue;
        out.push_back(column_of(table, line, ++ordinal));
    }
    return out;
}

std::string quoted(std::string_view text) {
    std::string out = "'";
    for (char c : text) {
        if (c == '\'') out += '\'';
        out += c;
    }
    return out + "'";
}

}  // namespace

std::string information_schema_sql(bool server) {
    const std::string text = server ? " bpchar COLLATE bd_ci" : " TEXT COLLATE BDTEXT";
    const std::string integer = server ? " int" : " INTEGER";
    // The catalogue is the database's name: the server's own (as the database was created), or
    // the name the embedded engine gives its database file.
    const std::string catalog = server ? "current_database()" : "'main'";
    const std::string common = "    TABLE_CATALOG" + text + " NOT NULL DEFAULT " + catalog +
                               ",\n    TABLE_SCHEMA" + text + " NOT NULL DEFAULT 'dbo',\n" +
                               "    TABLE_NAME" + text + " NOT NULL,\n";
    std::string s = "\nCREATE TABLE t_SchemaTables (\n" + common + "    TABLE_TYPE" + text +
                    " NOT NULL DEFAULT 'BASE TABLE',\n    PRIMARY KEY (TABLE_NAME)\n);\n";
    s += "CREATE TABLE t_SchemaColumns (\n" + common + "    COLUMN_NAME" + text +
         " NOT NULL,\n    ORDINAL_POSITION" + integer + " NOT NULL,\n    IS_NULLABLE" + text +
         " NOT NULL,\n    DATA_TYPE" + text + " NOT NULL,\n    CHARACTER_MAXIMUM_LENGTH" + integer +
         ",\n    NUMERIC_PRECISION" + integer + ",\n    NUMERIC_SCALE" + integer +
         ",\n    PRIMARY KEY (TABLE_NAME, COLUMN_NAME)\n);\n";
    std::string tables = "INSERT INTO t_SchemaTables (TABLE_NAME) VALUES";
    std::string columns =
        "INSERT INTO t_SchemaColumns (TABLE_NAME, COLUMN_NAME, ORDINAL_POSITION, IS_NULLABLE, "
        "DATA_TYPE, CHARACTER_MAXIMUM_LENGTH, NUMERIC_PRECISION, NUMERIC_SCALE) VALUES";
    for (const DeclaredColumn& c : declared_columns()) {
        if (c.ordinal == 1) {
            tables += tables.back() == 'S' ? "\n    (" : ",\n    (";
            tables += quoted(c.table) + ")";
        }
        columns += columns.back() == 'S' ? "\n    (" : ",\n    (";
        columns += quoted(c.table) + ", " + quoted(c.column) + ", " + std::to_string(c.ordinal) +
                   ", " + (c.nullable ? "'YES'" : "'NO'") + ", " + quoted(c.data_type) + ", " +
                   c.max_length + ", " + c.precision + ", " + c.scale + ")";
    }
    return s + tables + ";\n" + columns + ";\n";
}

}  // namespace billdata::schema
