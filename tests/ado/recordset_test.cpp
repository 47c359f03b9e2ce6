#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "billdata/ado/ado.h"
#include "billdata/drivers/sqlite/sqlite_driver.h"
#include "drivers/sqlite_fixture.h"
#include "support/test_support.h"

namespace {

using namespace billdata::ado;
using billdata::testing::create_database;
using billdata::testing::scalar;
using billdata::testing::sqlite_connection;
using billdata::testing::TempDir;

int error_of(const std::function<void()>& fn) {
    return billdata::testing::error_of(fn).number();
}

class RecordsetTest : public ::testing::Test {
  protected:
    void SetUp() override {
        path_ = dir_.file("shop.db");
        create_database(path_, billdata::testing::kItemTable);
        cs_ = sqlite_connection(path_);
        cn_ = Connection::create();
        cn_->Open(cs_);
    }
    TempDir dir_;
    std::string path_, cs_;
    std::shared_ptr<Connection> cn_;
};

TEST_F(RecordsetTest, ForwardCursorReadsRowByRow) {
    long affected = 0;
    auto rs = cn_->Execute("select FID, FName, FQty, FDate from T order by FID", &affected);
    EXPECT_EQ(affected, -1);
    ASSERT_EQ(rs->State(), adStateOpen);
    EXPECT_EQ(rs->RecordCount(), -1);
    EXPECT_FALSE(rs->Eof());
    EXPECT_EQ(rs->Fields("fid").Type(), adInteger);
    EXPECT_EQ(rs->Fields("FQTY").Type(), adDouble);
    EXPECT_EQ(rs->Fields("FDate").Type(), adDate);
    EXPECT_EQ(rs->Fields("fname").Value(), Variant("shirt"));  // names without regard to case
    EXPECT_EQ(rs->Fields("FDate").Value(), Variant(DateTime(2025, 3, 9)));
    rs->MoveNext();
    rs->MoveNext();
    EXPECT_TRUE(rs->Fields("FQty").Value().is_null());
    rs->MoveNext();
    EXPECT_TRUE(rs->Eof());

    EXPECT_EQ(error_of([&] { rs->Fields("FName").Value(); }), err::kNoCurrentRecord);
    EXPECT_EQ(error_of([&] { rs->MoveNext(); }), err::kNoCurrentRecord);
    EXPECT_EQ(error_of([&] { rs->Fields("FNoSuch"); }), err::kItemNotFound);

    rs->MoveFirst();  // runs the statement again
    ASSERT_FALSE(rs->Eof());
    EXPECT_EQ(rs->Fields("FName").Value(), Variant("shirt"));

    auto empty = cn_->Execute("select FID from T where FID > 100");
    EXPECT_TRUE(empty->Eof());
    EXPECT_TRUE(empty->Bof());
    rs->Close();
    EXPECT_EQ(rs->State(), adStateClosed);
    EXPECT_EQ(error_of([&] { rs->Eof(); }), err::kObjectClosed);
}

TEST_F(RecordsetTest, ClientSideRecordSetStaysReadableWhenDisconnected) {
    auto rs = Recordset::create();
    rs->SetCursorLocation(adUseClient);
    rs->Open("select FID, FName from T order by FID", cs_, adOpenStatic, adLockReadOnly, adCmdText);
    EXPECT_EQ(rs->RecordCount(), 3);
    rs->SetActiveConnection(nullptr);
    int seen = 0;
    for (int pass = 0; pass < 2; ++pass) {
        rs->MoveFirst();
        for (; !rs->Eof(); rs->MoveNext())
            ++seen;
    }
    EXPECT_EQ(seen, 6);
    rs->MoveFirst();
    rs->MoveNext();
    EXPECT_EQ(rs->Fields("FName").Value(), Variant("coat"));
    EXPECT_EQ(error_of([&] { rs->Fields("FName").SetValue(Variant("x")); }), 3251);

    // A static record set on an open connection reads everything at Open.
    auto on_cn = Recordset::create();
    on_cn->Open("select FName from T", cn_, adOpenStatic, adLockReadOnly, adCmdText);
    EXPECT_EQ(on_cn->RecordCount(), 3);
    on_cn->SetActiveConnection(nullptr);
    EXPECT_FALSE(on_cn->Eof());
    EXPECT_EQ(cn_->State(), adStateOpen);  // the caller's connection is not closed by that

    // A forward cursor reads from its connection as it moves: it cannot be disconnected.
    auto forward = cn_->Execute("select FName from T");
    EXPECT_NE(error_of([&] { forward->SetActiveConnection(nullptr); }), 0);
}

TEST_F(RecordsetTest, RecordSetOnAConnectionStringOwnsItsConnection) {
    auto rs = Recordset::create();
    rs->Open("select FName as FValue from T where FID=1", cs_, adOpenUnspecified, adLockUnspecified,
             adCmdText);
    std::weak_ptr<Connection> own = rs->ActiveConnection();
    ASSERT_FALSE(own.expired());
    EXPECT_NE(own.lock(), cn_);
    EXPECT_EQ(rs->Fields("FValue").Value(), Variant("shirt"));
    rs->Close();
    EXPECT_TRUE(own.expired());
}

TEST_F(RecordsetTest, OpenRunsReadOnly) {
    for (const char* sql :
         {"delete from T", "update T set FQty=0", "insert into T(FID) values(9)"}) {
        auto rs = Recordset::create();
        const ComError e = billdata::testing::error_of([&] { rs->Open(sql, cs_); });
        EXPECT_EQ(e.number(), err::kDatabase) << sql;
        EXPECT_FALSE(e.description().empty());
        EXPECT_EQ(rs->State(), adStateClosed);
    }
    EXPECT_EQ(scalar(path_, "select count(*) from T"), "3");
    EXPECT_EQ(scalar(path_, "select FQty from T where FID=2"), "4.0");
}

TEST(CallerBuiltRecordset, AppendOpenAddNewUpdate) {
    auto rs = Recordset::create();
    rs->GetFields().Append("FItemID", adInteger);
    rs->GetFields().Append("FQty", adDouble);
    EXPECT_EQ(error_of([&] { rs->GetFields().Append("fitemid", adInteger); }), 3367);
    rs->Open();
    EXPECT_TRUE(rs->Eof());
    EXPECT_EQ(rs->RecordCount(), 0);

    for (int i = 1; i <= 3; ++i) {
        rs->AddNew();
        rs->Fields("FItemID").SetValue(Variant(std::int32_t{100 + i}));
        rs->Fields("fqty").SetValue(Variant(i * 1.5));
        rs->Update();
    }
    rs->AddNew();  // a row left without values reads as Empty
    rs->Update();
    EXPECT_EQ(rs->RecordCount(), 4);
    rs->MoveFirst();
    EXPECT_EQ(rs->Fields("FItemID").Value().to_int32(), 101);
    rs->MoveNext();
    EXPECT_DOUBLE_EQ(rs->Fields("FQty").Value().to_double(), 3.0);
    rs->Fields("FQty").SetValue(Variant(7.0));  // changing the current row
    rs->MoveNext();
    rs->MoveNext();
    EXPECT_TRUE(rs->Fields("FItemID").Value().is_empty());
    rs->MoveNext();
    EXPECT_TRUE(rs->Eof());
    rs->MoveFirst();
    rs->MoveNext();
    EXPECT_DOUBLE_EQ(rs->Fields("FQty").Value().to_double(), 7.0);

    rs->Close();
    rs->Open();  // the layout survives Close
    EXPECT_EQ(rs->GetFields().Count(), 2u);
    EXPECT_EQ(rs->RecordCount(), 0);
}

// Counts the rows of T up to @UpTo and hands the count back in @RtnQty (as a whole number, so
// that the command must convert it to the parameter's type).
void count_up_to(sqlite3* db, std::vector<driver::ProcArg>& args) {
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db, "select count(*) from T where FID <= ?", -1, &stmt, nullptr);
    sqlite3_bind_int(stmt, 1, args.at(0).value.to_int32());
    sqlite3_step(stmt);
    std::int64_t n = sqlite3_column_int64(stmt, 0);
    sqlite3_finalize(stmt);
    args.at(1).value = Variant(n);
}

TEST_F(RecordsetTest, CommandCallsAProcedureAndWritesOutputsBack) {
    billdata::drivers::sqlite::register_procedure("sp_TestCountUpTo", count_up_to);
    auto cmd = Command::create();
    cmd->CommandText = "sp_TestCountUpTo";
    cmd->CommandType = adCmdStoredProc;
    cmd->ActiveConnection = cn_;
    cmd->Parameters().Append(cmd->CreateParameter("@UpTo", adInteger, adParamInput, 0, 2));
    cmd->Parameters().Append(cmd->CreateParameter("@RtnQty", adDouble, adParamOutput, 0));
    cmd->Execute(nullptr, adOptionUnspecified);
    const Variant& out = cmd->Parameters().Item("@Rtnqty").Value();
    EXPECT_EQ(out.type(), VarType::Double);
    EXPECT_DOUBLE_EQ(out.to_double(), 2.0);
    EXPECT_EQ(error_of([&] { cmd->Parameters().Item("@Missing"); }), err::kItemNotFound);

    cmd->CommandText = "sp_NoSuchProcedure";
    EXPECT_NE(error_of([&] { cmd->Execute(); }), 0);

    auto text = Command::create();
    text->CommandText = "update T set FQty=1 where FID>=2";
    text->CommandType = adCmdText;
    text->ActiveConnection = cn_;
    long affected = 0;
    text->Execute(&affected);
    EXPECT_EQ(affected, 2);
    EXPECT_EQ(error_of([] { Command::create()->Execute(); }), 3709);
}

TEST_F(RecordsetTest, TransactionsCommitAndRollBack) {
    cn_->BeginTrans();
    EXPECT_TRUE(cn_->InTransaction());
    EXPECT_NE(error_of([&] { cn_->BeginTrans(); }), 0);  // one level only
    cn_->Execute("insert into T(FID, FName) values(10, 'scarf')");
    cn_->RollbackTrans();
    EXPECT_FALSE(cn_->InTransaction());
    EXPECT_EQ(scalar(path_, "select count(*) from T"), "3");

    cn_->BeginTrans();
    long affected = 0;
    cn_->Execute("insert into T(FID, FName) values(11, 'belt')", &affected);
    EXPECT_EQ(affected, 1);
    // Asked for no records, a write still runs and counts its rows, and returns nothing.
    EXPECT_EQ(cn_->Execute("update T set FName='hat' where FID>=10", &affected, adExecuteNoRecords),
              nullptr);
    EXPECT_EQ(affected, 1);
    cn_->CommitTrans();
    EXPECT_EQ(scalar(path_, "select FName from T where FID=11"), "hat");

    // Closing with a transaction open rolls it back.
    cn_->BeginTrans();
    cn_->Execute("delete from T");
    cn_->Close();
    EXPECT_EQ(scalar(path_, "select count(*) from T"), "4");
    EXPECT_EQ(error_of([&] { cn_->Execute("select FID from T"); }), err::kObjectClosed);
}

TEST_F(RecordsetTest, WritesWhileReadingSeeTheRowsAsOfTheQuery) {
    // A service loop reads a list and updates the rows it reads, on one connection.
    auto rs = cn_->Execute("select FID, FQty from T order by FID");
    cn_->BeginTrans();
    int rows = 0;
    // Bounded: a cursor that saw its own inserts would never reach its end.
    for (; !rs->Eof() && rows < 100; rs->MoveNext()) {
        ++rows;
        const std::string id = rs->Fields("FID").Value().to_string();
        cn_->Execute("update T set FQty=coalesce(FQty,0)+10 where FID=" + id);
        cn_->Execute("insert into T(FID, FName) values(" + std::to_string(100 + rows) + ",'new')");
        if (rows == 1) {
            EXPECT_DOUBLE_EQ(rs->Fields("FQty").Value().to_double(), 2.5);  // as read
        }
    }
    cn_->CommitTrans();
    EXPECT_EQ(rows, 3);  // rows inserted meanwhile are not read
    EXPECT_EQ(scalar(path_, "select FQty from T where FID=1"), "12.5");
    EXPECT_EQ(scalar(path_, "select count(*) from T"), "6");
}

}  // namespace
