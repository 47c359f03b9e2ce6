// Temporary stand-in until the embedded procedures land.
#include "billdata/drivers/sqlite/procedures.h"

namespace billdata::drivers::sqlite {

ProcedureFn find_procedure(std::string_view) {
    return nullptr;
}

}  // namespace billdata::drivers::sqlite
