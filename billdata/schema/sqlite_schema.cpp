#include "billdata/schema/schema.h"

#include <string>
#include <vector>

#include "billdata/drivers/sqlite/catalog.h"

namespace billdata::schema {

namespace {

// Conventions of every table below:
//   - ids, kinds, counters and flags are INTEGER; quantities, prices, amounts and points REAL,
//     so that sum(FAmount)/sum(FQty) divides as decimals do;
//   - texts are TEXT COLLATE BDTEXT (case-insensitive, trailing blanks ignored) and dates
//     DATETIME COLLATE BDDATE (chronological whatever date form either side is written in), so
//     that =, between, order by, group by and the indexes all compare as the statements expect;
//   - a column name appears in two tables that one fixed statement joins only when every
//     statement names it with its alias: the list statements use FRemark, FSumAmount, FSumQty,
//     FCheckerID, FTranType, FDeleted, FGetDyq, FGetBlank, FQkAmount, FSumCost, FSumProfit,
//     FDate, FEntryID, FItemID, FQty and FInStockID/FOutStockID unqualified, so each of them
//     lives in exactly one table of those joins (headers for the first group, lines for FEntryID,
//     FItemID and FQty), and the master tables carry none of them;
//   - flags that the saving statements do not write (FDeleted, FCheckerID, …) default to 0,
//     because the lists test them with "case t1.FDeleted when 0" and "FDeleted=0".
constexpr std::string_view kSqliteSchema = R"billdata_ddl(
-- Settings: key/value text pairs (CostStyle, StartYear, StartPeriod, CurrentYear,
-- CurrentPeriod, ICClosed, WLClosed, CashClosed).
CREATE TABLE t_SystemProfile (
    FKey TEXT COLLATE BDTEXT NOT NULL PRIMARY KEY,
    FValue TEXT COLLATE BDTEXT
);

-- Interior-id series (0 stock bills, 4 receipts/payments, 11 orders).
CREATE TABLE ICMaxNum (
    FTranType INTEGER NOT NULL PRIMARY KEY,
    FMaxNum INTEGER NOT NULL DEFAULT 0,
    FDescription TEXT COLLATE BDTEXT DEFAULT ''
);

-- Daily bill-number counters, one row per bill kind and bill date.
CREATE TABLE ICBillNo (
    FTranType INTEGER NOT NULL,
    FDate DATETIME COLLATE BDDATE NOT NULL,
    FMaxNum INTEGER NOT NULL DEFAULT 0,
    PRIMARY KEY (FTranType, FDate)
);

-- Master data. Each table is keyed by its id; none carries a column that a bill list uses
-- without an alias.
CREATE TABLE t_Item (
    FItemID INTEGER NOT NULL PRIMARY KEY,
    FItemClassID INTEGER NOT NULL DEFAULT 1,   -- 1 customer, 2 supplier
    FNumber TEXT COLLATE BDTEXT,
    FName TEXT COLLATE BDTEXT
);

CREATE TABLE t_Supplier (
    FItemID INTEGER NOT NULL PRIMARY KEY,      -- the same id as in t_Item
    FNumber TEXT COLLATE BDTEXT,
    FName TEXT COLLATE BDTEXT,
    FContact TEXT COLLATE BDTEXT,
    FTel TEXT COLLATE BDTEXT
);

CREATE TABLE t_Stock (
    FItemID INTEGER NOT NULL PRIMARY KEY,
    FNumber TEXT COLLATE BDTEXT,
    FName TEXT COLLATE BDTEXT
);

CREATE TABLE t_Account (
    FItemID INTEGER NOT NULL PRIMARY KEY,
    FNumber TEXT COLLATE BDTEXT,
    FName TEXT COLLATE BDTEXT
);

CREATE TABLE t_Emp (
    FItemID INTEGER NOT NULL PRIMARY KEY,
    FNumber TEXT COLLATE BDTEXT,
    FName TEXT COLLATE BDTEXT
);

-- Sizes; FGroupID is the size group that t_ICItem.FSizeID names, FIndex the order inside it.
CREATE TABLE t_Size (
    FItemID INTEGER NOT NULL PRIMARY KEY,
    FGroupID INTEGER NOT NULL DEFAULT 0,
    FIndex INTEGER NOT NULL DEFAULT 0,
    FNumber TEXT COLLATE BDTEXT,
    FName TEXT COLLATE BDTEXT
);

CREATE TABLE t_SizeGroup (
    FItemID INTEGER NOT NULL PRIMARY KEY,
    FName TEXT COLLATE BDTEXT
);

-- Colours offered by the front end; bill rows keep the colour as text in FColor.
CREATE TABLE t_Color (
    FItemID INTEGER NOT NULL PRIMARY KEY,
    FNumber TEXT COLLATE BDTEXT,
    FName TEXT COLLATE BDTEXT
);

-- Goods. FSizeID is the size group (0 = no sizes); FPurYear is text, it is joined with '.'.
CREATE TABLE t_ICItem (
    FItemID INTEGER NOT NULL PRIMARY KEY,
    FNumber TEXT COLLATE BDTEXT,
    FName TEXT COLLATE BDTEXT,
    FUnit TEXT COLLATE BDTEXT,
    FProductNo TEXT COLLATE BDTEXT,
    FSizeID INTEGER NOT NULL DEFAULT 0,
    FPurYear TEXT COLLATE BDTEXT,
    FQuarter TEXT COLLATE BDTEXT,
    FRetailPrice REAL DEFAULT 0,
    FRetailPrice_2 REAL DEFAULT 0,
    FJfFactor REAL DEFAULT 1,
    FPurPrice REAL DEFAULT 0,
    FSupplierID INTEGER DEFAULT 0,
    FPjCost REAL DEFAULT 0
);

-- Users and their list restriction (FDays, FStockID; null or 0 = none).
CREATE TABLE t_User (
    FUserID INTEGER NOT NULL PRIMARY KEY,
    FUserName TEXT COLLATE BDTEXT,
    FDays INTEGER,
    FStockID INTEGER
);

-- Member cards; FItemID is the member's id, the same as Vip.FVipID.
CREATE TABLE t_VipCard (
    FItemID INTEGER NOT NULL PRIMARY KEY,
    FNumber TEXT COLLATE BDTEXT,
    FName TEXT COLLATE BDTEXT
);

-- Members: points, purchase total, provisional-card flag.
CREATE TABLE Vip (
    FVipID INTEGER NOT NULL PRIMARY KEY,
    FVipNo TEXT COLLATE BDTEXT,
    FOwner TEXT COLLATE BDTEXT,
    FMobile TEXT COLLATE BDTEXT,
    FSumJf REAL DEFAULT 0,
    FSumJf_Un REAL DEFAULT 0,
    FSumBuyAmount REAL DEFAULT 0,
    FBogus INTEGER DEFAULT 0,
    FEditTime DATETIME COLLATE BDDATE
);

-- Order bills (kinds 11 and 21): header, lines, size/colour rows.
CREATE TABLE ICOrder (
    FInterID INTEGER NOT NULL PRIMARY KEY,
    FTranType INTEGER,
    FDate DATETIME COLLATE BDDATE,
    FJhDate DATETIME COLLATE BDDATE,
    FBillNo TEXT COLLATE BDTEXT,
    FOrgaID INTEGER,
    FRemark TEXT COLLATE BDTEXT,
    FBillerID INTEGER,
    FCheckerID INTEGER DEFAULT 0,
    FSumQty REAL DEFAULT 0,
    FSumAmount REAL DEFAULT 0,
    FSumRetailAmount REAL DEFAULT 0,
    FEarnest REAL DEFAULT 0,
    FAcctID INTEGER,
    FDeleted INTEGER DEFAULT 0,
    FSysTime DATETIME COLLATE BDDATE,
    FPhone TEXT COLLATE BDTEXT,
    FOwner TEXT COLLATE BDTEXT
);

CREATE TABLE ICOrderEntry (
    FInterID INTEGER NOT NULL,
    FEntryID INTEGER,
    FItemID INTEGER,
    FRowKey TEXT COLLATE BDTEXT,
    FQty REAL DEFAULT 0,
    FZkRate REAL,
    FPrice REAL DEFAULT 0,
    FAmount REAL DEFAULT 0,
    FRetailPrice REAL DEFAULT 0,
    FRetailAmount REAL DEFAULT 0,
    FMemo TEXT COLLATE BDTEXT,
    FSalerID INTEGER,
    FUnitCost REAL,
    FPreSend INTEGER DEFAULT 0,
    FSaleQty REAL DEFAULT 0
);

CREATE TABLE ICOrderEntry_1 (
    FInterID INTEGER NOT NULL,
    FItemID INTEGER,
    FRowKey TEXT COLLATE BDTEXT,
    FSizeID INTEGER DEFAULT 0,
    FColor TEXT COLLATE BDTEXT,
    FColorEntryID INTEGER DEFAULT 0,
    FQty REAL DEFAULT 0
);

-- Stock bills (17, 27, 31, 99, 112, 114, 115, 125 and the opening pseudo bills -12, -22).
CREATE TABLE ICStockBill (
    FInterID INTEGER NOT NULL PRIMARY KEY,
    FTranType INTEGER,
    FDate DATETIME COLLATE BDDATE,
    FBillNo TEXT COLLATE BDTEXT,
    FOrgaID INTEGER,
    FInStockID INTEGER,
    FOutStockID INTEGER,
    FAcctID INTEGER,
    FSettleID INTEGER DEFAULT 0,
    FRemark TEXT COLLATE BDTEXT,
    FBillerID INTEGER,
    FCheckerID INTEGER DEFAULT 0,
    FYear INTEGER,
    FPeriod INTEGER,
    FSysTime DATETIME COLLATE BDDATE,
    FSumQty REAL DEFAULT 0,
    FSumAmount REAL DEFAULT 0,
    FSumRetailAmount REAL DEFAULT 0,
    FSeason TEXT COLLATE BDTEXT,
    FMonth TEXT COLLATE BDTEXT,
    FCause TEXT COLLATE BDTEXT,
    FVipID INTEGER,
    FPhone TEXT COLLATE BDTEXT,
    FOwner TEXT COLLATE BDTEXT,
    FDeleted INTEGER DEFAULT 0,
    FPrintTimes INTEGER DEFAULT 0,
    FGetCash REAL DEFAULT 0,
    FBzkBillAmount REAL DEFAULT 0,
    FSumZkAmount REAL DEFAULT 0,
    FGetDyq REAL DEFAULT 0,
    FGetBlank REAL DEFAULT 0,
    FSumCost REAL DEFAULT 0,
    FSumProfit REAL DEFAULT 0,
    FSumOddMent REAL DEFAULT 0,
    FClassName TEXT COLLATE BDTEXT,
    FQkAmount REAL DEFAULT 0,
    FGetAmount REAL DEFAULT 0,
    FChange REAL DEFAULT 0,
    FSumJf REAL DEFAULT 0,
    FJfExchange REAL DEFAULT 0,
    FGetJfAmount REAL DEFAULT 0,
    FMachine TEXT COLLATE BDTEXT,
    FPosGetMoney INTEGER DEFAULT 0,
    FGetQk REAL DEFAULT 0
);

-- Stock bill lines. Negative FEntryID: price-adjustment rows (FQty 0, FTjStockID the stock
-- revalued); null FEntryID: goods handed over in advance with a POS sale.
CREATE TABLE ICStockBillEntry (
    FInterID INTEGER NOT NULL,
    FEntryID INTEGER,
    FItemID INTEGER,
    FRowKey TEXT COLLATE BDTEXT,
    FQty REAL DEFAULT 0,
    FPrice REAL DEFAULT 0,
    FAmount REAL DEFAULT 0,
    FHisPrice REAL DEFAULT 0,
    FZkRate REAL,
    FRetailPrice REAL DEFAULT 0,
    FRetailAmount REAL DEFAULT 0,
    FMemo TEXT COLLATE BDTEXT,
    FOddMentEntry REAL DEFAULT 0,
    FZkAmount REAL DEFAULT 0,
    FSalerID INTEGER,
    FPreSend INTEGER DEFAULT 0,
    FUnitCost REAL DEFAULT 0,
    FCost REAL DEFAULT 0,
    FRefInterID INTEGER DEFAULT 0,
    FRefEntryID INTEGER DEFAULT 0,
    FRefTranType INTEGER DEFAULT 0,
    FTjStockID INTEGER,
    FSaleQty REAL DEFAULT 0,
    FRtnQty REAL DEFAULT 0,
    FSdyh REAL DEFAULT 0
);

CREATE TABLE ICStockBillEntry_1 (
    FInterID INTEGER NOT NULL,
    FItemID INTEGER,
    FRowKey TEXT COLLATE BDTEXT,
    FSizeID INTEGER DEFAULT 0,
    FColor TEXT COLLATE BDTEXT,
    FColorEntryID INTEGER DEFAULT 0,
    FQty REAL DEFAULT 0
);

-- Receipts and payments (kinds 13 and 23).
CREATE TABLE WLBill (
    FInterID INTEGER NOT NULL PRIMARY KEY,
    FTranType INTEGER,
    FSettleID INTEGER DEFAULT 0,
    FEmpID INTEGER,
    FDate DATETIME COLLATE BDDATE,
    FBillNo TEXT COLLATE BDTEXT,
    FAcctID INTEGER,
    FOrgaID INTEGER,
    FSettleAmount REAL DEFAULT 0,
    FSumAmount REAL DEFAULT 0,
    FOddMent REAL DEFAULT 0,
    FMemo TEXT COLLATE BDTEXT,
    FBillerID INTEGER,
    FCheckerID INTEGER DEFAULT 0,
    FSysTime DATETIME COLLATE BDDATE,
    FOrderBillID INTEGER DEFAULT 0,
    FStockBillID INTEGER DEFAULT 0,
    FClosed INTEGER DEFAULT 0,
    FDeleted INTEGER DEFAULT 0
);

-- Settlement lines of a receipt or payment (which stock bill the money settles).
CREATE TABLE WLBillEntry (
    FInterID INTEGER NOT NULL,
    FEntryID INTEGER,
    FBillInterID INTEGER,
    FAmount REAL DEFAULT 0,
    FMemo TEXT COLLATE BDTEXT
);

-- Price adjustment bills (kind 50); the component writes only the audit mark.
CREATE TABLE ICSpTjd (
    FInterID INTEGER NOT NULL PRIMARY KEY,
    FTranType INTEGER DEFAULT 50,
    FDate DATETIME COLLATE BDDATE,
    FBillNo TEXT COLLATE BDTEXT,
    FBillerID INTEGER,
    FCheckerID INTEGER DEFAULT 0,
    FDeleted INTEGER DEFAULT 0,
    FSysTime DATETIME COLLATE BDDATE
);

-- Member points history, one row per points movement of a sale.
CREATE TABLE vipjf_History (
    FID INTEGER PRIMARY KEY,
    FBillInterID INTEGER,
    FVipID INTEGER,
    FDate DATETIME COLLATE BDDATE,
    Fjf REAL DEFAULT 0,
    FBiller TEXT COLLATE BDTEXT,
    FMemo TEXT COLLATE BDTEXT,
    FDeleted INTEGER DEFAULT 0
);

-- Opening data entered before the first bill, and the period balances made from it.
CREATE TABLE ICInitData (
    FStockID INTEGER,
    FItemID INTEGER,
    FQty REAL DEFAULT 0,
    FAmount REAL DEFAULT 0,
    FPrice REAL DEFAULT 0
);

CREATE TABLE ICInitData_Entry (
    FStockID INTEGER,
    FItemID INTEGER,
    FColor TEXT COLLATE BDTEXT,
    FSizeID INTEGER DEFAULT 0,
    FQty REAL DEFAULT 0
);

CREATE TABLE ICBal (
    FYear INTEGER,
    FPeriod INTEGER,
    FStockID INTEGER,
    FItemID INTEGER,
    FBegQty REAL DEFAULT 0,
    FBegPrice REAL DEFAULT 0,
    FBegBal REAL DEFAULT 0
);

CREATE TABLE ICBal_Entry (
    FYear INTEGER,
    FPeriod INTEGER,
    FStockID INTEGER,
    FItemID INTEGER,
    FColor TEXT COLLATE BDTEXT,
    FSizeID INTEGER DEFAULT 0,
    FBegQty REAL DEFAULT 0
);

CREATE TABLE WLInitData (
    FItemClassID INTEGER,
    FOrgaID INTEGER,
    FAmount REAL DEFAULT 0
);

CREATE TABLE WLBal (
    FYear INTEGER,
    FPeriod INTEGER,
    FItemClassID INTEGER,
    FOrgaID INTEGER,
    FBegBal REAL DEFAULT 0
);

CREATE TABLE WLSettleBal (
    FYear INTEGER,
    FPeriod INTEGER,
    FItemClassID INTEGER,
    FOrgaID INTEGER,
    FBillInterID INTEGER,
    FAmount REAL DEFAULT 0
);

CREATE TABLE CashInitData (
    FItemClassID INTEGER,
    FItemID INTEGER,
    FAmount REAL DEFAULT 0
);

CREATE TABLE CashBal (
    FItemClassID INTEGER,
    FItemID INTEGER,
    FAmount REAL DEFAULT 0
);

-- Items whose stock lines or opening data changed since the last cost recalculation; filled by
-- the triggers below and emptied by Sp_CacuCost, so a save never makes it rescan every item.
CREATE TABLE ICCostDirty (
    FItemID INTEGER NOT NULL PRIMARY KEY
);

-- Lines: a line number is unique within its bill, but only for real lines. Adjustment rows
-- share negative numbers and pre-sent rows have none, so the index leaves both out. Two tills
-- that drew the same interior id clash on their first line, before anything else is written.
CREATE UNIQUE INDEX UX_ICStockBillEntry_Entry ON ICStockBillEntry (FInterID, FEntryID)
    WHERE FEntryID >= 0;
CREATE UNIQUE INDEX UX_ICOrderEntry_Entry ON ICOrderEntry (FInterID, FEntryID)
    WHERE FEntryID >= 0;

-- All rows of one bill (deletes and re-saves by FInterID, adjustment rows included, which the
-- partial index above cannot find) and the line-to-size/colour join on (FInterID, FRowKey).
CREATE INDEX IX_ICStockBillEntry_Row ON ICStockBillEntry (FInterID, FRowKey);
CREATE INDEX IX_ICStockBillEntry_1_Row ON ICStockBillEntry_1 (FInterID, FRowKey);
CREATE INDEX IX_ICOrderEntry_Row ON ICOrderEntry (FInterID, FRowKey);
CREATE INDEX IX_ICOrderEntry_1_Row ON ICOrderEntry_1 (FInterID, FRowKey);

-- One item's lines in bill order: stock on hand, the cost recalculation, the price propagation
-- and the adjustment-row deletes ("FItemID=… and FInterID>…").
CREATE INDEX IX_ICStockBillEntry_Item ON ICStockBillEntry (FItemID, FInterID);

-- Sold and returned quantities: the lines that refer to a given order or stock line.
CREATE INDEX IX_ICStockBillEntry_Ref ON ICStockBillEntry (FRefInterID, FRefEntryID);

-- Lists select by kind and order by date.
CREATE INDEX IX_ICStockBill_Kind ON ICStockBill (FTranType, FDate);
CREATE INDEX IX_ICOrder_Kind ON ICOrder (FTranType, FDate);
CREATE INDEX IX_WLBill_Kind ON WLBill (FTranType, FDate);

-- A member's bills (points reversal, credit bills) and a partner's bills (the opening
-- receivable/payable pseudo bills are removed by partner).
CREATE INDEX IX_ICStockBill_Vip ON ICStockBill (FVipID);
CREATE INDEX IX_ICStockBill_Orga ON ICStockBill (FOrgaID);

-- An order's receipts are voided, restored and deleted with it.
CREATE INDEX IX_WLBill_Order ON WLBill (FOrderBillID);
CREATE INDEX IX_WLBillEntry_Inter ON WLBillEntry (FInterID);

-- A sale's points history is voided, restored and deleted with it.
CREATE INDEX IX_vipjf_History_Bill ON vipjf_History (FBillInterID);

-- Opening quantity of an item in a stock.
CREATE INDEX IX_ICInitData_Item ON ICInitData (FItemID, FStockID);

-- Balances are replaced period by period.
CREATE INDEX IX_ICBal_Period ON ICBal (FYear, FPeriod, FStockID, FItemID);
CREATE INDEX IX_ICBal_Entry_Period ON ICBal_Entry (FYear, FPeriod, FStockID, FItemID);

-- Deleting a header deletes its lines and size/colour rows. The trigger fires on the header's
-- delete only: lines are written before their header, and a re-save deletes the header and
-- writes new lines under the same id in one transaction, which must not touch the new lines.
CREATE TRIGGER TR_ICStockBill_Delete AFTER DELETE ON ICStockBill
BEGIN
    DELETE FROM ICStockBillEntry WHERE FInterID = old.FInterID;
    DELETE FROM ICStockBillEntry_1 WHERE FInterID = old.FInterID;
END;

CREATE TRIGGER TR_ICOrder_Delete AFTER DELETE ON ICOrder
BEGIN
    DELETE FROM ICOrderEntry WHERE FInterID = old.FInterID;
    DELETE FROM ICOrderEntry_1 WHERE FInterID = old.FInterID;
END;

-- Cost recalculation bookkeeping: an item becomes dirty when one of its lines is written,
-- removed or changed in a way that moves quantity or value, when a bill's kind, void mark or
-- period changes, when its opening data changes, and for every item when the current period
-- moves (bills may move across the boundary of what is rewritten). Sp_CacuCost writes only
-- FUnitCost and FCost, which make nothing dirty.
CREATE TRIGGER TR_ICStockBillEntry_CostIns AFTER INSERT ON ICStockBillEntry
WHEN new.FItemID IS NOT NULL
BEGIN
    INSERT OR IGNORE INTO ICCostDirty (FItemID) VALUES (new.FItemID);
END;

CREATE TRIGGER TR_ICStockBillEntry_CostDel AFTER DELETE ON ICStockBillEntry
WHEN old.FItemID IS NOT NULL
BEGIN
    INSERT OR IGNORE INTO ICCostDirty (FItemID) VALUES (old.FItemID);
END;

CREATE TRIGGER TR_ICStockBillEntry_CostUpd
AFTER UPDATE OF FInterID, FEntryID, FItemID, FQty, FPrice, FAmount, FRefTranType
ON ICStockBillEntry
BEGIN
    INSERT OR IGNORE INTO ICCostDirty (FItemID)
        SELECT old.FItemID WHERE old.FItemID IS NOT NULL;
    INSERT OR IGNORE INTO ICCostDirty (FItemID)
        SELECT new.FItemID WHERE new.FItemID IS NOT NULL;
END;

CREATE TRIGGER TR_ICStockBill_CostIns AFTER INSERT ON ICStockBill
BEGIN
    INSERT OR IGNORE INTO ICCostDirty (FItemID)
        SELECT DISTINCT FItemID FROM ICStockBillEntry
        WHERE FInterID = new.FInterID AND FItemID IS NOT NULL;
END;

CREATE TRIGGER TR_ICStockBill_CostUpd
AFTER UPDATE OF FInterID, FTranType, FDeleted, FDate, FYear, FPeriod ON ICStockBill
BEGIN
    INSERT OR IGNORE INTO ICCostDirty (FItemID)
        SELECT DISTINCT FItemID FROM ICStockBillEntry
        WHERE FInterID IN (old.FInterID, new.FInterID) AND FItemID IS NOT NULL;
END;

CREATE TRIGGER TR_ICInitData_CostIns AFTER INSERT ON ICInitData
WHEN new.FItemID IS NOT NULL
BEGIN
    INSERT OR IGNORE INTO ICCostDirty (FItemID) VALUES (new.FItemID);
END;

CREATE TRIGGER TR_ICInitData_CostDel AFTER DELETE ON ICInitData
WHEN old.FItemID IS NOT NULL
BEGIN
    INSERT OR IGNORE INTO ICCostDirty (FItemID) VALUES (old.FItemID);
END;

CREATE TRIGGER TR_ICInitData_CostUpd AFTER UPDATE ON ICInitData
BEGIN
    INSERT OR IGNORE INTO ICCostDirty (FItemID)
        SELECT old.FItemID WHERE old.FItemID IS NOT NULL;
    INSERT OR IGNORE INTO ICCostDirty (FItemID)
        SELECT new.FItemID WHERE new.FItemID IS NOT NULL;
END;

CREATE TRIGGER TR_t_SystemProfile_CostUpd AFTER UPDATE OF FValue ON t_SystemProfile
WHEN new.FKey IN ('CurrentYear', 'CurrentPeriod') AND old.FValue IS NOT new.FValue
BEGIN
    INSERT OR IGNORE INTO ICCostDirty (FItemID)
        SELECT DISTINCT FItemID FROM ICStockBillEntry WHERE FItemID IS NOT NULL;
END;
)billdata_ddl";

// Bookkeeping that only the embedded engine needs, so that the cost of the statements run on
// every save does not grow with the shop's books. A server keeps its own row counts and can
// afford the scans.
//
// t_TableRows: the row count of each bill table, in one row with one column per table. The
// interior-id cross-check counts a bill table's rows on every save, and counting reads the
// whole table; the translator reads a whole-table count(*) from here instead, for the tables
// that the view t_KeptRowCounts lists. Row triggers keep the counts, inside the writing
// statement's own transaction, so a rolled-back statement or transaction rolls its counts back
// too.
//
// ICStockQty: the quantity on hand per stock and item over all live bills, kept by triggers, so
// that sp_GetStockQty reads one row and takes out the named bill's own lines instead of summing
// the item's whole history. It holds exactly what that procedure counts: opening quantities,
// and the lines of live bills whose header is written, adjustment rows (negative FEntryID) left
// out, pre-sent rows (no FEntryID) counted, a POS line that sells lent goods (FRefTranType 27)
// not moving stock again. A line counts while its header exists and is live: the line triggers
// move stock only under a written live header, and the header triggers move all of the bill's
// lines when the header is written, removed, voided, restored or changes kind or stock. The
// header's delete is booked before the header goes (its lines are deleted after it), so the
// line deletes that follow find no header and move nothing.
//
// ICStockBillEntry.FHeadTranType: the kind of the line's bill, copied from its header and kept
// by triggers (NULL while the header is not written). Statements that join headers to lines and
// pick the bills by kind ("t1.FTranType in (17,27,99) and t1.FInterID>… and t2.FItemID=…", the
// price propagation runs two such for every later receipt) would otherwise visit every line of
// the item after the bill, whatever its kind, and the propagation would grow with the square of
// the item's bills. The translator adds the same kind test on this column when a statement has
// that form (it learns of the copy from the view t_KeptCopies declared with the triggers), and
// the index below then visits only the lines of the kinds asked for.
constexpr std::string_view kLineKind = R"sql(
ALTER TABLE ICStockBillEntry ADD COLUMN FHeadTranType INTEGER;
CREATE INDEX IX_ICStockBillEntry_ItemKind ON ICStockBillEntry (FItemID, FHeadTranType, FInterID);

CREATE TRIGGER TR_ICStockBillEntry_KindIns AFTER INSERT ON ICStockBillEntry
BEGIN
    UPDATE ICStockBillEntry
    SET FHeadTranType = (SELECT h.FTranType FROM ICStockBill h WHERE h.FInterID = new.FInterID)
    WHERE rowid = new.rowid
      AND EXISTS (SELECT 1 FROM ICStockBill h WHERE h.FInterID = new.FInterID);
END;

CREATE TRIGGER TR_ICStockBillEntry_KindUpd AFTER UPDATE OF FInterID ON ICStockBillEntry
BEGIN
    UPDATE ICStockBillEntry
    SET FHeadTranType = (SELECT h.FTranType FROM ICStockBill h WHERE h.FInterID = new.FInterID)
    WHERE rowid = new.rowid;
END;

CREATE TRIGGER TR_ICStockBill_KindIns AFTER INSERT ON ICStockBill
BEGIN
    UPDATE ICStockBillEntry SET FHeadTranType = new.FTranType WHERE FInterID = new.FInterID;
END;

CREATE TRIGGER TR_ICStockBill_KindUpd AFTER UPDATE OF FInterID, FTranType ON ICStockBill
BEGIN
    UPDATE ICStockBillEntry SET FHeadTranType = NULL WHERE FInterID = old.FInterID;
    UPDATE ICStockBillEntry SET FHeadTranType = new.FTranType WHERE FInterID = new.FInterID;
END;

CREATE TRIGGER TR_ICStockBill_KindDel AFTER DELETE ON ICStockBill
BEGIN
    UPDATE ICStockBillEntry SET FHeadTranType = NULL WHERE FInterID = old.FInterID;
END;
)sql";

constexpr std::string_view kCountedTables[] = {
    "ICStockBill",    "ICStockBillEntry", "ICStockBillEntry_1", "ICOrder", "ICOrderEntry",
    "ICOrderEntry_1", "WLBill",           "WLBillEntry",        "ICSpTjd"};

// Kinds that move stock into FInStockID (114 with the sign turned) and out of FOutStockID.
constexpr std::string_view kLineMove = R"sql(
    INSERT INTO ICStockQty (FStockID, FItemID, FQty)
    SELECT m.FStockID, @.FItemID, $ * m.FQty FROM (
        SELECT h.FInStockID AS FStockID,
               CASE WHEN h.FTranType = 114 THEN -coalesce(@.FQty, 0)
                    ELSE coalesce(@.FQty, 0) END AS FQty
        FROM ICStockBill h
        WHERE h.FInterID = @.FInterID AND coalesce(h.FDeleted, 0) = 0
          AND h.FTranType IN (112, 115, 17, 31, 114)
        UNION ALL
        SELECT h.FOutStockID, -coalesce(@.FQty, 0)
        FROM ICStockBill h
        WHERE h.FInterID = @.FInterID AND coalesce(h.FDeleted, 0) = 0
          AND h.FTranType IN (99, 125, 27, 31)
          AND NOT (h.FTranType = 99 AND coalesce(@.FRefTranType, 0) = 27)) m
    WHERE m.FStockID IS NOT NULL AND @.FItemID IS NOT NULL
      AND (@.FEntryID IS NULL OR @.FEntryID >= 0)
    ON CONFLICT (FStockID, FItemID) DO UPDATE SET FQty = FQty + excluded.FQty;)sql";

constexpr std::string_view kBillMove = R"sql(
    INSERT INTO ICStockQty (FStockID, FItemID, FQty)
    SELECT m.FStockID, m.FItemID, $ * total(m.FQty) FROM (
        SELECT @.FInStockID AS FStockID, e.FItemID,
               CASE WHEN @.FTranType = 114 THEN -coalesce(e.FQty, 0)
                    ELSE coalesce(e.FQty, 0) END AS FQty
        FROM ICStockBillEntry e
        WHERE e.FInterID = @.FInterID AND @.FTranType IN (112, 115, 17, 31, 114)
          AND (e.FEntryID IS NULL OR e.FEntryID >= 0)
        UNION ALL
        SELECT @.FOutStockID, e.FItemID, -coalesce(e.FQty, 0)
        FROM ICStockBillEntry e
        WHERE e.FInterID = @.FInterID AND @.FTranType IN (99, 125, 27, 31)
          AND (e.FEntryID IS NULL OR e.FEntryID >= 0)
          AND NOT (@.FTranType = 99 AND coalesce(e.FRefTranType, 0) = 27)) m
    WHERE m.FStockID IS NOT NULL AND m.FItemID IS NOT NULL AND coalesce(@.FDeleted, 0) = 0
    GROUP BY m.FStockID, m.FItemID
    ON CONFLICT (FStockID, FItemID) DO UPDATE SET FQty = FQty + excluded.FQty;)sql";

constexpr std::string_view kOpeningMove = R"sql(
    INSERT INTO ICStockQty (FStockID, FItemID, FQty)
    SELECT @.FStockID, @.FItemID, $ * coalesce(@.FQty, 0)
    WHERE @.FStockID IS NOT NULL AND @.FItemID IS NOT NULL
    ON CONFLICT (FStockID, FItemID) DO UPDATE SET FQty = FQty + excluded.FQty;)sql";

// One of the moves above for row `row` (new or old) with sign `sign` (1 or -1).
std::string move(std::string_view text, std::string_view row, std::string_view sign) {
    std::string out;
    for (char c : text) {
        if (c == '@')
            out.append(row);
        else if (c == '$')
            out.append(sign);
        else
            out.push_back(c);
    }
    return out;
}

std::string trigger(std::string_view name, std::string_view when, std::string_view body) {
    return "\nCREATE TRIGGER " + std::string(name) + " " + std::string(when) + "\nBEGIN" +
           std::string(body) + "\nEND;\n";
}

// A view of constant rows through which the database declares what its triggers keep, for the
// translator's catalogue (drivers::sqlite::read_catalog reads it).
std::string facts_view(std::string_view name, std::string_view columns,
                       const std::vector<std::string>& rows) {
    std::string s =
        "\nCREATE VIEW " + std::string(name) + " (" + std::string(columns) + ") AS VALUES";
    for (std::size_t i = 0; i < rows.size(); ++i)
        s += (i ? ",\n    (" : "\n    (") + rows[i] + ")";
    return s + ";\n";
}

std::string speed_schema() {
    std::string s(kLineKind);
    s += facts_view(
        drivers::sqlite::kKeptCopiesView, "FTable, FColumn, FFromTable, FFromColumn, FKey",
        {"'ICStockBillEntry', 'FHeadTranType', 'ICStockBill', 'FTranType', 'FInterID'"});

    s += "\nCREATE TABLE t_TableRows (\n    FOnlyRow INTEGER NOT NULL PRIMARY KEY";
    for (std::string_view t : kCountedTables)
        s += ",\n    " + std::string(t) + " INTEGER NOT NULL DEFAULT 0";
    s += "\n);\nINSERT INTO t_TableRows (FOnlyRow) VALUES (1);\n";
    std::vector<std::string> counted;
    for (std::string_view t : kCountedTables) {
        const std::string table(t);
        s += trigger("TR_" + table + "_RowsIns", "AFTER INSERT ON " + table,
                     "\n    UPDATE t_TableRows SET " + table + " = " + table + " + 1;");
        s += trigger("TR_" + table + "_RowsDel", "AFTER DELETE ON " + table,
                     "\n    UPDATE t_TableRows SET " + table + " = " + table + " - 1;");
        counted.push_back("'" + table + "', 't_TableRows'");
    }
    s += facts_view(drivers::sqlite::kKeptRowCountsView, "FTable, FCountTable", counted);

    s += R"sql(
CREATE TABLE ICStockQty (
    FStockID INTEGER NOT NULL,
    FItemID INTEGER NOT NULL,
    FQty REAL NOT NULL DEFAULT 0,
    PRIMARY KEY (FStockID, FItemID)
) WITHOUT ROWID;
)sql";
    s += trigger("TR_ICStockBillEntry_QtyIns", "AFTER INSERT ON ICStockBillEntry",
                 move(kLineMove, "new", "1"));
    s += trigger("TR_ICStockBillEntry_QtyDel", "AFTER DELETE ON ICStockBillEntry",
                 move(kLineMove, "old", "-1"));
    s += trigger("TR_ICStockBillEntry_QtyUpd",
                 "AFTER UPDATE OF FInterID, FEntryID, FItemID, FQty, FRefTranType "
                 "ON ICStockBillEntry",
                 move(kLineMove, "old", "-1") + move(kLineMove, "new", "1"));
    s += trigger("TR_ICStockBill_QtyIns", "AFTER INSERT ON ICStockBill",
                 move(kBillMove, "new", "1"));
    s += trigger("TR_ICStockBill_QtyDel", "BEFORE DELETE ON ICStockBill",
                 move(kBillMove, "old", "-1"));
    s += trigger("TR_ICStockBill_QtyUpd",
                 "AFTER UPDATE OF FInterID, FTranType, FDeleted, FInStockID, FOutStockID "
                 "ON ICStockBill",
                 move(kBillMove, "old", "-1") + move(kBillMove, "new", "1"));
    s += trigger("TR_ICInitData_QtyIns", "AFTER INSERT ON ICInitData",
                 move(kOpeningMove, "new", "1"));
    s += trigger("TR_ICInitData_QtyDel", "AFTER DELETE ON ICInitData",
                 move(kOpeningMove, "old", "-1"));
    s += trigger("TR_ICInitData_QtyUpd", "AFTER UPDATE ON ICInitData",
                 move(kOpeningMove, "old", "-1") + move(kOpeningMove, "new", "1"));
    return s;
}

}  // namespace

std::string_view sqlite_schema() {
    static const std::string schema =
        std::string(kSqliteSchema) + speed_schema() + information_schema_sql(false);
    return schema;
}

}  // namespace billdata::schema
