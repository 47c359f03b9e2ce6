#include "billdata/common/session.h"

#include "billdata/ado/ado.h"

namespace billdata::common {

SessionContext& session() {
    thread_local SessionContext context;
    return context;
}

void SetPromptString(std::string_view text) {
    session().PromptString = std::string(text);
}

std::string GetPromptString() {
    return session().PromptString;
}

void init_session(std::string_view prompt_string, std::int16_t year, std::int16_t period) {
    SetPromptString(prompt_string);
    session().CurYear = year;
    session().CurPeriod = period;
}

std::int16_t GetCostStyle() {
    SessionContext& s = session();
    if (s.CostStyle != 0) return s.CostStyle;
    auto rs = ado::Recordset::create();
    rs->Open("select FValue from t_systemprofile where fkey='CostStyle'", s.PromptString,
             ado::adOpenUnspecified, ado::adLockUnspecified, ado::adCmdText);
    if (!rs->Eof()) {
        double value = rs->Fields("FValue").Value().to_double() + 1;
        s.CostStyle = ado::Variant(value).to_int16();
    } else {
        s.CostStyle = 1;
    }
    rs->Close();
    return s.CostStyle;
}

}  // namespace billdata::common
