#pragma once
// The catalogue of the embedded schema, for translating statements without a database at hand.

#include "billdata/dialect/dialect.h"

namespace billdata::schema {

// Tables and columns of the embedded schema, read once from an in-memory database made with it.
// Thread-safe.
const dialect::Catalog& builtin_catalog();

}  // namespace billdata::schema
