#pragma once
// Reads the schema catalogue of an embedded database for the translator.

#include <sqlite3.h>

#include "billdata/dialect/dialect.h"

namespace billdata::drivers::sqlite {

dialect::Catalog read_catalog(sqlite3* db);

}  // namespace billdata::drivers::sqlite
