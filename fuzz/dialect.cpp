// Fuzzes the T-SQL translator with any text as one statement: the shape scan of the statement
// cache, the literal values it binds, and parse + bind + emit against the embedded schema's
// catalogue, with and without parameters. A text the translator cannot take must end in
// DialectError; anything else escaping, or a sanitizer report, is a fault.
//
// Besides not crashing, the statement cache's assumptions are checked: every literal the shape
// scan reports lies inside the text, and every parameter of a parameterised translation is one
// of those literals (the driver binds parameters by the literals the scan found).

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "billdata/dialect/dialect.h"
#include "billdata/schema/builtin_catalog.h"

namespace {

using namespace billdata::dialect;

void check(bool ok) {
    if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Catalog& catalog = billdata::schema::builtin_catalog();
    const std::string_view text(reinterpret_cast<const char*>(data), size);

    Shape shape;
    bool shaped = false;
    try {
        shape = statement_shape(text);
        shaped = true;
        LiteralValue value;
        for (const Literal& l : shape.literals) {
            check(l.offset <= size && l.length <= size - l.offset && l.length > 0);
            literal_value(text.substr(l.offset, l.length), value);
        }
    } catch (const DialectError&) {
    }

    try {
        translate_sqlite(text, catalog);
    } catch (const DialectError&) {
    }

    try {
        TranslateOptions options;
        options.parameterise = true;
        const Translation tr = translate_sqlite(text, catalog, options);
        check(shaped);  // a text the translator reads can always be split into tokens
        for (std::size_t offset : tr.parameters) {
            bool found = false;
            for (const Literal& l : shape.literals)
                found = found || l.offset == offset;
            check(found);
        }
    } catch (const DialectError&) {
    }

    try {
        check_single_statement(text);
    } catch (const DialectError&) {
    }
    return 0;
}
