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

namespace billdata::schema {

namespace {

// One row of t_SchemaColumns: what INFORMATION_SCHEMA.COLUMNS says of a declared column.
struct ColumnRow {
    int ordinal = 0;
    std::string max_length = "NULL";  // CHARACTER_MAXIMUM_LENGTH
    std::string precision = "NULL";   // NUMERIC_PRECISION
    std::string scale = "NULL";       // NUMERIC_SCALE
};

ColumnRow row_of(const DeclaredColumn& c, int ordinal) {
    ColumnRow r;
    r.ordinal = ordinal;
    const std::string& type = c.type;
    auto numeric = [&r](int precision, int scale) {
        r.precision = std::to_string(precision);
        r.scale = std::to_string(scale);
    };
    if (type == "int") {
        numeric(10, 0);
    } else if (type == "bigint") {
        numeric(19, 0);
    } else if (type == "smallint") {
        numeric(5, 0);
    } else if (type == "tinyint") {
        numeric(3, 0);
    } else if (type == "decimal" || type == "numeric") {
        numeric(c.precision ? c.precision : 18, c.scale);
    } else if (type == "money") {
        numeric(19, 4);
    } else if (type == "nvarchar" || type == "varchar" || type == "nchar" || type == "char") {
        r.max_length = std::to_string(c.length ? c.length : 1);
    } else if (type != "datetime") {
        throw std::logic_error(
            "the SQL Server script declares a type the schema does not describe: " + type);
    }
    return r;
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
    std::string table;
    int ordinal = 0;
    for (const DeclaredColumn& c : sqlserver_declared_columns()) {
        ordinal = c.table == table ? ordinal + 1 : 1;
        table = c.table;
        const ColumnRow r = row_of(c, ordinal);
        if (r.ordinal == 1) {
            tables += tables.back() == 'S' ? "\n    (" : ",\n    (";
            tables += quoted(c.table) + ")";
        }
        columns += columns.back() == 'S' ? "\n    (" : ",\n    (";
        columns += quoted(c.table) + ", " + quoted(c.column) + ", " + std::to_string(r.ordinal) +
                   ", " + (c.nullable ? "'YES'" : "'NO'") + ", " + quoted(c.type) + ", " +
                   r.max_length + ", " + r.precision + ", " + r.scale + ")";
    }
    return s + tables + ";\n" + columns + ";\n";
}

}  // namespace billdata::schema
