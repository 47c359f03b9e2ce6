// Fuzzes connection strings: the parser, the keyword lookups, the check against the embedded
// engine's keywords, and opening a connection with the string (which also reads the engine's
// options). A bad string must end in ComError; anything else escaping, or a sanitizer report, is
// a fault. Every keyword the parser stores must be found again under its own name.
//
// Opening never creates a database, and the fuzzer runs in an empty scratch folder: a string is
// only opened when its Data Source names a file there (no folder in it), so that nothing outside
// is ever touched.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "billdata/ado/ado.h"
#include "billdata/ado/driver.h"

namespace {

using namespace billdata::ado;

void check(bool ok) {
    if (!ok) std::abort();
}

std::filesystem::path scratch;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char folder[] = "/tmp/billdata-fuzz-cs-XXXXXX";
    if (!::mkdtemp(folder) || ::chdir(folder) != 0) std::abort();
    scratch = folder;
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(scratch, ignored);
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const ConnectionString cs = ConnectionString::parse(text);
        for (const auto& [keyword, value] : cs.items()) {
            check(cs.has(keyword));
            check(cs.get(keyword) == value);
        }
        cs.get("Data Source");
        cs.require_known({"provider", "data source", "synchronous", "busy timeout", "lock timeout",
                          "pooling", "statement cache"});
    } catch (const ComError&) {
    }

    try {
        const ConnectionString cs = ConnectionString::parse(text);
        const std::string source = cs.get("data source");
        if (source.find_first_of("/\\") != std::string::npos) return 0;
        auto cn = Connection::create();
        cn->Open(text);
        cn->Close();
    } catch (const ComError&) {
    }
    return 0;
}
