#pragma once
// The translator's ASCII name helpers: SQL names compare without regard to the case of ASCII
// letters only, as the database engines do; error messages quote the statement's text only as
// an excerpt. They are the project's shared ones.

#include "billdata/util/text.h"

namespace billdata::dialect {

using util::ascii_lower;
using util::excerpt;
using util::iequals;
using util::lower_copy;

}  // namespace billdata::dialect
