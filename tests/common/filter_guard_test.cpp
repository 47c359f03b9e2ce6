// The caller's list filter: what front ends send passes, what could escape the list's own
// restriction is refused with the reason.

#include "billdata/common/filter_guard.h"

#include <gtest/gtest.h>

#include <string>

#include "billdata/ado/com_error.h"

namespace billdata::common {
namespace {

// The refusal's text, or "" when the filter passes.
std::string refusal(std::string_view filter, FilterPlace place = FilterPlace::AfterConditions) {
    try {
        require_safe_filter(filter, place);
        return "";
    } catch (const ado::ComError& e) {
        EXPECT_EQ(e.number(), ado::err::kComponent);
        return e.description();
    }
}

TEST(FilterGuard, FiltersThatFrontEndsSendPass) {
    for (const char* filter : {
             "",
             " and t1.FDeleted=0",
             " and t1.FInterID=12 and t1.FCheckerID>0",
             " and (t1.FBillNo like '%XS%' or t4.FName like N'%南京%')",
             " and t1.FDate between '2025-03-01' and '2025-03-31' and not t1.FDeleted=1",
             " and t1.FDate>=getdate()-7 and convert(varchar(10),t1.FDate,120)<>'2025-03-09'",
             " and a4.FItemID in (select FItemID from t_ICItem where FName like '%衬衫%' or "
             "FNumber='01' union select 5)",
             " and exists (select 1 from t_Emp e where e.FItemID=a2.FSalerID)",
             " and t1.FRemark='-- or 1=1; union select'' [x' and [Remark]]--]='x'",
             " and \"FBillNo\"='X' /* a note -- or */ and left(t1.FBillNo,2)='XS'",
             " and case when t1.FSumQty>0 or t1.FSumAmount>0 then 1 else 0 end=1",
             " and t1.FSumAmount>1e3 and @@rowcount>=0",
         })
        EXPECT_EQ(refusal(filter), "") << filter;
    // A filter that is the whole condition may join its own conditions with or.
    EXPECT_EQ(refusal("t1.FInterID=5 or t1.FInterID=6", FilterPlace::WholeCondition), "");
}

TEST(FilterGuard, FiltersThatCouldEscapeTheRestrictionAreRefusedWithTheReason) {
    struct Case {
        const char* filter;
        const char* message;
    };
    for (const Case& c : std::initializer_list<Case>{
             {" or 1=1", "查询条件中的 or 必须放在括号内：“or 1=1”！"},
             {" and t1.FDeleted=0 OR t1.FInterID>0",
              "查询条件中的 or 必须放在括号内：“OR t1.FInterID>0”！"},
             {" and 1=1\u3000or\u30001=1", "查询条件中的 or 必须放在括号内：“or\u30001=1”！"},
             {" --", "查询条件中不能有注释：“--”！"},
             {" and 1=1 -- note\n", "查询条件中不能有注释：“-- note”！"},
             {" and 1=1 /* open /* nested */",
              "查询条件中的注释没有结束：“/* open /* nested */”！"},
             {" and (1=1)) or ((1=1", "查询条件中多了右括号：“) or ((1=1”！"},
             {" and (t1.FDeleted=0", "查询条件中的左括号没有闭合：“(t1.FDeleted=0”！"},
             {" and case when 1=1 then 1 else 0",
              "查询条件中的 case 没有对应的 end：“case when 1=1 then 1 else…”！"},
             {" and t1.FInterID between 0", "查询条件中的 between 缺少 and：“between 0”！"},
             {" and t1.FBillNo='x", "查询条件中的字符串没有结束：“'x”！"},
             {" and [FBillNo='x'", "查询条件中的名称没有结束：“[FBillNo='x'”！"},
             {" and 1=0 union all select FUserName from t_User --",
              "查询条件中不能有 union：“union all select FUserName…”！"},
             {" and 1=1; delete from ICStockBill",
              "查询条件中不能有分号：“; delete from ICStockBill”！"},
             {" and 1=1 delete from ICStockBill",
              "查询条件中不能有关键字 delete：“delete from ICStockBill”！"},
             {" and 1=1 group by t1.FInterID",
              "查询条件中不能有关键字 group：“group by t1.FInterID”！"},
             {" and 1=1order by 1", "查询条件中不能有关键字 order：“order by 1”！"},
         })
        EXPECT_EQ(refusal(c.filter), c.message) << c.filter;
    // The whole condition still may not end the where clause.
    EXPECT_EQ(refusal("1=1 union select 1", FilterPlace::WholeCondition),
              "查询条件中不能有 union：“union select 1”！");
}

}  // namespace
}  // namespace billdata::common
