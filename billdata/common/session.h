#pragma once
// The per-thread session context that every class's Init fills and every operation reads.

#include <cstdint>
#include <string>
#include <string_view>

namespace billdata::common {

// One record per thread: every instance of every class on a thread shares it, so the last Init
// on a thread decides the connection string, year and period for all of them. Instances on
// other threads have their own. All fields start at zero or empty.
struct SessionContext {
    std::string PromptString;  // the connection string, used exactly as given
    std::int16_t CurYear = 0;
    std::int16_t CurPeriod = 0;
    std::int16_t ListDays = 0;     // the signed-in user's list window in days (0: no limit)
    std::int32_t ListStockID = 0;  // the signed-in user's own stock (0: no limit)
    std::int16_t CostStyle = 0;    // cached cost style; 0 means not read yet
};

// This thread's session context.
SessionContext& session();

void SetPromptString(std::string_view text);
std::string GetPromptString();

// What Init of a class does: stores the connection string, then year and period. Opens nothing
// and checks nothing.
void init_session(std::string_view prompt_string, std::int16_t year, std::int16_t period);

// The cost style: the setting "CostStyle" plus 1, rounded half to even to a 16-bit integer, and 1
// when the setting is missing. Read once per thread through a private connection and cached; a
// cached 0 (stored value "-1") is read again at the next call. Errors reach the caller as they
// are (ComError).
std::int16_t GetCostStyle();

}  // namespace billdata::common
