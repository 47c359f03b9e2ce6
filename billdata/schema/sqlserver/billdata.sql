-- billdata: the bill database for SQL Server.
--
-- Run once on an empty database (sqlcmd -i billdata.sql, or batch by batch: GO separates the
-- batches). The embedded engine's schema holds the same tables, columns, keys, indexes and
-- triggers; the two stored procedures here are written in C++ there.
--
-- Column conventions: ids, kinds, counters and flags int; quantities, prices, amounts and points
-- decimal(18,4); texts nvarchar under the database's default (case-insensitive) collation; dates
-- datetime. A column name appears in two tables that one fixed statement joins only when every
-- statement names it with its alias, so the unqualified names of the bill lists resolve.
-- Flags that the saving statements leave out (FDeleted, FCheckerID, ...) default to 0.

SET ANSI_NULLS ON
GO
SET QUOTED_IDENTIFIER ON
GO

-- Settings: key/value text pairs (CostStyle, StartYear, StartPeriod, CurrentYear,
-- CurrentPeriod, ICClosed, WLClosed, CashClosed).
CREATE TABLE t_SystemProfile (
    FKey nvarchar(50) NOT NULL,
    FValue nvarchar(255) NULL,
    CONSTRAINT PK_t_SystemProfile PRIMARY KEY (FKey)
)
GO

-- Interior-id series (0 stock bills, 4 receipts/payments, 11 orders).
CREATE TABLE ICMaxNum (
    FTranType int NOT NULL,
    FMaxNum int NOT NULL DEFAULT 0,
    FDescription nvarchar(255) NULL DEFAULT '',
    CONSTRAINT PK_ICMaxNum PRIMARY KEY (FTranType)
)
GO

-- Daily bill-number counters, one row per bill kind and bill date.
CREATE TABLE ICBillNo (
    FTranType int NOT NULL,
    FDate datetime NOT NULL,
    FMaxNum int NOT NULL DEFAULT 0,
    CONSTRAINT PK_ICBillNo PRIMARY KEY (FTranType, FDate)
)
GO

-- Master data. Each table is keyed by its id; none carries a column that a bill list uses
-- without an alias.
CREATE TABLE t_Item (
    FItemID int NOT NULL,
    FItemClassID int NOT NULL DEFAULT 1,
    FNumber nvarchar(50) NULL,
    FName nvarchar(80) NULL,
    CONSTRAINT PK_t_Item PRIMARY KEY (FItemID)
)
GO

CREATE TABLE t_Supplier (
    FItemID int NOT NULL,
    FNumber nvarchar(50) NULL,
    FName nvarchar(80) NULL,
    FContact nvarchar(50) NULL,
    FTel nvarchar(30) NULL,
    CONSTRAINT PK_t_Supplier PRIMARY KEY (FItemID)
)
GO

CREATE TABLE t_Stock (
    FItemID int NOT NULL,
    FNumber nvarchar(50) NULL,
    FName nvarchar(80) NULL,
    CONSTRAINT PK_t_Stock PRIMARY KEY (FItemID)
)
GO

CREATE TABLE t_Account (
    FItemID int NOT NULL,
    FNumber nvarchar(50) NULL,
    FName nvarchar(80) NULL,
    CONSTRAINT PK_t_Account PRIMARY KEY (FItemID)
)
GO

CREATE TABLE t_Emp (
    FItemID int NOT NULL,
    FNumber nvarchar(50) NULL,
    FName nvarchar(80) NULL,
    CONSTRAINT PK_t_Emp PRIMARY KEY (FItemID)
)
GO

-- Sizes; FGroupID is the size group that t_ICItem.FSizeID names, FIndex the order inside it.
CREATE TABLE t_Size (
    FItemID int NOT NULL,
    FGroupID int NOT NULL DEFAULT 0,
    FIndex int NOT NULL DEFAULT 0,
    FNumber nvarchar(50) NULL,
    FName nvarchar(80) NULL,
    CONSTRAINT PK_t_Size PRIMARY KEY (FItemID)
)
GO

CREATE TABLE t_SizeGroup (
    FItemID int NOT NULL,
    FName nvarchar(80) NULL,
    CONSTRAINT PK_t_SizeGroup PRIMARY KEY (FItemID)
)
GO

-- Colours offered by the front end; bill rows keep the colour as text in FColor.
CREATE TABLE t_Color (
    FItemID int NOT NULL,
    FNumber nvarchar(50) NULL,
    FName nvarchar(80) NULL,
    CONSTRAINT PK_t_Color PRIMARY KEY (FItemID)
)
GO

-- Goods. FSizeID is the size group (0 = no sizes); FPurYear is text, it is joined with '.'.
CREATE TABLE t_ICItem (
    FItemID int NOT NULL,
    FNumber nvarchar(50) NULL,
    FName nvarchar(80) NULL,
    FUnit nvarchar(20) NULL,
    FProductNo nvarchar(50) NULL,
    FSizeID int NOT NULL DEFAULT 0,
    FPurYear nvarchar(10) NULL,
    FQuarter nvarchar(10) NULL,
    FRetailPrice decimal(18,4) NULL DEFAULT 0,
    FRetailPrice_2 decimal(18,4) NULL DEFAULT 0,
    FJfFactor decimal(18,4) NULL DEFAULT 1,
    FPurPrice decimal(18,4) NULL DEFAULT 0,
    FSupplierID int NULL DEFAULT 0,
    FPjCost decimal(18,4) NULL DEFAULT 0,
    CONSTRAINT PK_t_ICItem PRIMARY KEY (FItemID)
)
GO

-- Users and their list restriction (FDays, FStockID; null or 0 = none).
CREATE TABLE t_User (
    FUserID int NOT NULL,
    FUserName nvarchar(50) NULL,
    FDays int NULL,
    FStockID int NULL,
    CONSTRAINT PK_t_User PRIMARY KEY (FUserID)
)
GO

-- Member cards; FItemID is the member's id, the same as Vip.FVipID.
CREATE TABLE t_VipCard (
    FItemID int NOT NULL,
    FNumber nvarchar(50) NULL,
    FName nvarchar(80) NULL,
    CONSTRAINT PK_t_VipCard PRIMARY KEY (FItemID)
)
GO

-- Members: points, purchase total, provisional-card flag.
CREATE TABLE Vip (
    FVipID int NOT NULL,
    FVipNo nvarchar(50) NULL,
    FOwner nvarchar(50) NULL,
    FMobile nvarchar(30) NULL,
    FSumJf decimal(18,4) NULL DEFAULT 0,
    FSumJf_Un decimal(18,4) NULL DEFAULT 0,
    FSumBuyAmount decimal(18,4) NULL DEFAULT 0,
    FBogus int NULL DEFAULT 0,
    FEditTime datetime NULL,
    CONSTRAINT PK_Vip PRIMARY KEY (FVipID)
)
GO

-- Order bills (kinds 11 and 21): header, lines, size/colour rows.
CREATE TABLE ICOrder (
    FInterID int NOT NULL,
    FTranType int NULL,
    FDate datetime NULL,
    FJhDate datetime NULL,
    FBillNo nvarchar(50) NULL,
    FOrgaID int NULL,
    FRemark nvarchar(255) NULL,
    FBillerID int NULL,
    FCheckerID int NULL DEFAULT 0,
    FSumQty decimal(18,4) NULL DEFAULT 0,
    FSumAmount decimal(18,4) NULL DEFAULT 0,
    FSumRetailAmount decimal(18,4) NULL DEFAULT 0,
    FEarnest decimal(18,4) NULL DEFAULT 0,
    FAcctID int NULL,
    FDeleted int NULL DEFAULT 0,
    FSysTime datetime NULL,
    FPhone nvarchar(30) NULL,
    FOwner nvarchar(50) NULL,
    CONSTRAINT PK_ICOrder PRIMARY KEY (FInterID)
)
GO

CREATE TABLE ICOrderEntry (
    FInterID int NOT NULL,
    FEntryID int NULL,
    FItemID int NULL,
    FRowKey nvarchar(50) NULL,
    FQty decimal(18,4) NULL DEFAULT 0,
    FZkRate decimal(18,4) NULL,
    FPrice decimal(18,4) NULL DEFAULT 0,
    FAmount decimal(18,4) NULL DEFAULT 0,
    FRetailPrice decimal(18,4) NULL DEFAULT 0,
    FRetailAmount decimal(18,4) NULL DEFAULT 0,
    FMemo nvarchar(255) NULL,
    FSalerID int NULL,
    FUnitCost decimal(18,4) NULL,
    FPreSend int NULL DEFAULT 0,
    FSaleQty decimal(18,4) NULL DEFAULT 0
)
GO

CREATE TABLE ICOrderEntry_1 (
    FInterID int NOT NULL,
    FItemID int NULL,
    FRowKey nvarchar(50) NULL,
    FSizeID int NULL DEFAULT 0,
    FColor nvarchar(50) NULL,
    FColorEntryID int NULL DEFAULT 0,
    FQty decimal(18,4) NULL DEFAULT 0
)
GO

-- Stock bills (17, 27, 31, 99, 112, 114, 115, 125 and the opening pseudo bills -12, -22).
CREATE TABLE ICStockBill (
    FInterID int NOT NULL,
    FTranType int NULL,
    FDate datetime NULL,
    FBillNo nvarchar(50) NULL,
    FOrgaID int NULL,
    FInStockID int NULL,
    FOutStockID int NULL,
    FAcctID int NULL,
    FSettleID int NULL DEFAULT 0,
    FRemark nvarchar(255) NULL,
    FBillerID int NULL,
    FCheckerID int NULL DEFAULT 0,
    FYear int NULL,
    FPeriod int NULL,
    FSysTime datetime NULL,
    FSumQty decimal(18,4) NULL DEFAULT 0,
    FSumAmount decimal(18,4) NULL DEFAULT 0,
    FSumRetailAmount decimal(18,4) NULL DEFAULT 0,
    FSeason nvarchar(20) NULL,
    FMonth nvarchar(20) NULL,
    FCause nvarchar(255) NULL,
    FVipID int NULL,
    FPhone nvarchar(30) NULL,
    FOwner nvarchar(50) NULL,
    FDeleted int NULL DEFAULT 0,
    FPrintTimes int NULL DEFAULT 0,
    FGetCash decimal(18,4) NULL DEFAULT 0,
    FBzkBillAmount decimal(18,4) NULL DEFAULT 0,
    FSumZkAmount decimal(18,4) NULL DEFAULT 0,
    FGetDyq decimal(18,4) NULL DEFAULT 0,
    FGetBlank decimal(18,4) NULL DEFAULT 0,
    FSumCost decimal(18,4) NULL DEFAULT 0,
    FSumProfit decimal(18,4) NULL DEFAULT 0,
    FSumOddMent decimal(18,4) NULL DEFAULT 0,
    FClassName nvarchar(50) NULL,
    FQkAmount decimal(18,4) NULL DEFAULT 0,
    FGetAmount decimal(18,4) NULL DEFAULT 0,
    FChange decimal(18,4) NULL DEFAULT 0,
    FSumJf decimal(18,4) NULL DEFAULT 0,
    FJfExchange decimal(18,4) NULL DEFAULT 0,
    FGetJfAmount decimal(18,4) NULL DEFAULT 0,
    FMachine nvarchar(50) NULL,
    FPosGetMoney int NULL DEFAULT 0,
    FGetQk decimal(18,4) NULL DEFAULT 0,
    CONSTRAINT PK_ICStockBill PRIMARY KEY (FInterID)
)
GO

-- Stock bill lines. Negative FEntryID: price-adjustment rows (FQty 0, FTjStockID the stock
-- revalued); null FEntryID: goods handed over in advance with a POS sale.
CREATE TABLE ICStockBillEntry (
    FInterID int NOT NULL,
    FEntryID int NULL,
    FItemID int NULL,
    FRowKey nvarchar(50) NULL,
    FQty decimal(18,4) NULL DEFAULT 0,
    FPrice decimal(18,4) NULL DEFAULT 0,
    FAmount decimal(18,4) NULL DEFAULT 0,
    FHisPrice decimal(18,4) NULL DEFAULT 0,
    FZkRate decimal(18,4) NULL,
    FRetailPrice decimal(18,4) NULL DEFAULT 0,
    FRetailAmount decimal(18,4) NULL DEFAULT 0,
    FMemo nvarchar(255) NULL,
    FOddMentEntry decimal(18,4) NULL DEFAULT 0,
    FZkAmount decimal(18,4) NULL DEFAULT 0,
    FSalerID int NULL,
    FPreSend int NULL DEFAULT 0,
    FUnitCost decimal(18,4) NULL DEFAULT 0,
    FCost decimal(18,4) NULL DEFAULT 0,
    FRefInterID int NULL DEFAULT 0,
    FRefEntryID int NULL DEFAULT 0,
    FRefTranType int NULL DEFAULT 0,
    FTjStockID int NULL,
    FSaleQty decimal(18,4) NULL DEFAULT 0,
    FRtnQty decimal(18,4) NULL DEFAULT 0,
    FSdyh decimal(18,4) NULL DEFAULT 0
)
GO

CREATE TABLE ICStockBillEntry_1 (
    FInterID int NOT NULL,
    FItemID int NULL,
    FRowKey nvarchar(50) NULL,
    FSizeID int NULL DEFAULT 0,
    FColor nvarchar(50) NULL,
    FColorEntryID int NULL DEFAULT 0,
    FQty decimal(18,4) NULL DEFAULT 0
)
GO

-- Receipts and payments (kinds 13 and 23).
CREATE TABLE WLBill (
    FInterID int NOT NULL,
    FTranType int NULL,
    FSettleID int NULL DEFAULT 0,
    FEmpID int NULL,
    FDate datetime NULL,
    FBillNo nvarchar(50) NULL,
    FAcctID int NULL,
    FOrgaID int NULL,
    FSettleAmount decimal(18,4) NULL DEFAULT 0,
    FSumAmount decimal(18,4) NULL DEFAULT 0,
    FOddMent decimal(18,4) NULL DEFAULT 0,
    FMemo nvarchar(255) NULL,
    FBillerID int NULL,
    FCheckerID int NULL DEFAULT 0,
    FSysTime datetime NULL,
    FOrderBillID int NULL DEFAULT 0,
    FStockBillID int NULL DEFAULT 0,
    FClosed int NULL DEFAULT 0,
    FDeleted int NULL DEFAULT 0,
    CONSTRAINT PK_WLBill PRIMARY KEY (FInterID)
)
GO

-- Settlement lines of a receipt or payment (which stock bill the money settles).
CREATE TABLE WLBillEntry (
    FInterID int NOT NULL,
    FEntryID int NULL,
    FBillInterID int NULL,
    FAmount decimal(18,4) NULL DEFAULT 0,
    FMemo nvarchar(255) NULL
)
GO

-- Price adjustment bills (kind 50); the component writes only the audit mark.
CREATE TABLE ICSpTjd (
    FInterID int NOT NULL,
    FTranType int NULL DEFAULT 50,
    FDate datetime NULL,
    FBillNo nvarchar(50) NULL,
    FBillerID int NULL,
    FCheckerID int NULL DEFAULT 0,
    FDeleted int NULL DEFAULT 0,
    FSysTime datetime NULL,
    CONSTRAINT PK_ICSpTjd PRIMARY KEY (FInterID)
)
GO

-- Member points history, one row per points movement of a sale.
CREATE TABLE vipjf_History (
    FID int IDENTITY(1,1) NOT NULL,
    FBillInterID int NULL,
    FVipID int NULL,
    FDate datetime NULL,
    Fjf decimal(18,4) NULL DEFAULT 0,
    FBiller nvarchar(50) NULL,
    FMemo nvarchar(255) NULL,
    FDeleted int NULL DEFAULT 0,
    CONSTRAINT PK_vipjf_History PRIMARY KEY (FID)
)
GO

-- Opening data entered before the first bill, and the period balances made from it.
CREATE TABLE ICInitData (
    FStockID int NULL,
    FItemID int NULL,
    FQty decimal(18,4) NULL DEFAULT 0,
    FAmount decimal(18,4) NULL DEFAULT 0,
    FPrice decimal(18,4) NULL DEFAULT 0
)
GO

CREATE TABLE ICInitData_Entry (
    FStockID int NULL,
    FItemID int NULL,
    FColor nvarchar(50) NULL,
    FSizeID int NULL DEFAULT 0,
    FQty decimal(18,4) NULL DEFAULT 0
)
GO

CREATE TABLE ICBal (
    FYear int NULL,
    FPeriod int NULL,
    FStockID int NULL,
    FItemID int NULL,
    FBegQty decimal(18,4) NULL DEFAULT 0,
    FBegPrice decimal(18,4) NULL DEFAULT 0,
    FBegBal decimal(18,4) NULL DEFAULT 0
)
GO

CREATE TABLE ICBal_Entry (
    FYear int NULL,
    FPeriod int NULL,
    FStockID int NULL,
    FItemID int NULL,
    FColor nvarchar(50) NULL,
    FSizeID int NULL DEFAULT 0,
    FBegQty decimal(18,4) NULL DEFAULT 0
)
GO

CREATE TABLE WLInitData (
    FItemClassID int NULL,
    FOrgaID int NULL,
    FAmount decimal(18,4) NULL DEFAULT 0
)
GO

CREATE TABLE WLBal (
    FYear int NULL,
    FPeriod int NULL,
    FItemClassID int NULL,
    FOrgaID int NULL,
    FBegBal decimal(18,4) NULL DEFAULT 0
)
GO

CREATE TABLE WLSettleBal (
    FYear int NULL,
    FPeriod int NULL,
    FItemClassID int NULL,
    FOrgaID int NULL,
    FBillInterID int NULL,
    FAmount decimal(18,4) NULL DEFAULT 0
)
GO

CREATE TABLE CashInitData (
    FItemClassID int NULL,
    FItemID int NULL,
    FAmount decimal(18,4) NULL DEFAULT 0
)
GO

CREATE TABLE CashBal (
    FItemClassID int NULL,
    FItemID int NULL,
    FAmount decimal(18,4) NULL DEFAULT 0
)
GO

-- Items whose stock lines or opening data changed since the last cost recalculation; filled by
-- the triggers below and emptied by Sp_CacuCost, so a save never makes it rescan every item.
CREATE TABLE ICCostDirty (
    FItemID int NOT NULL,
    CONSTRAINT PK_ICCostDirty PRIMARY KEY (FItemID)
)
GO

-- Lines: a line number is unique within its bill, but only for real lines. Adjustment rows
-- share negative numbers and pre-sent rows have none, so the filtered index leaves both out. Two
-- tills that drew the same interior id clash on their first line, before anything else is
-- written.
CREATE UNIQUE INDEX UX_ICStockBillEntry_Entry ON ICStockBillEntry (FInterID, FEntryID)
    WHERE FEntryID >= 0
GO
CREATE UNIQUE INDEX UX_ICOrderEntry_Entry ON ICOrderEntry (FInterID, FEntryID)
    WHERE FEntryID >= 0
GO

-- All rows of one bill (deletes and re-saves by FInterID, adjustment rows included, which the
-- filtered index above cannot find) and the line-to-size/colour join on (FInterID, FRowKey).
CREATE INDEX IX_ICStockBillEntry_Row ON ICStockBillEntry (FInterID, FRowKey)
GO
CREATE INDEX IX_ICStockBillEntry_1_Row ON ICStockBillEntry_1 (FInterID, FRowKey)
GO
CREATE INDEX IX_ICOrderEntry_Row ON ICOrderEntry (FInterID, FRowKey)
GO
CREATE INDEX IX_ICOrderEntry_1_Row ON ICOrderEntry_1 (FInterID, FRowKey)
GO

-- One item's lines in bill order: stock on hand, the cost recalculation, the price propagation
-- and the adjustment-row deletes ("FItemID=... and FInterID>...").
CREATE INDEX IX_ICStockBillEntry_Item ON ICStockBillEntry (FItemID, FInterID)
GO

-- Sold and returned quantities: the lines that refer to a given order or stock line.
CREATE INDEX IX_ICStockBillEntry_Ref ON ICStockBillEntry (FRefInterID, FRefEntryID)
GO

-- Lists select by kind and order by date.
CREATE INDEX IX_ICStockBill_Kind ON ICStockBill (FTranType, FDate)
GO
CREATE INDEX IX_ICOrder_Kind ON ICOrder (FTranType, FDate)
GO
CREATE INDEX IX_WLBill_Kind ON WLBill (FTranType, FDate)
GO

-- A member's bills (points reversal, credit bills) and a partner's bills (the opening
-- receivable/payable pseudo bills are removed by partner).
CREATE INDEX IX_ICStockBill_Vip ON ICStockBill (FVipID)
GO
CREATE INDEX IX_ICStockBill_Orga ON ICStockBill (FOrgaID)
GO

-- An order's receipts are voided, restored and deleted with it.
CREATE INDEX IX_WLBill_Order ON WLBill (FOrderBillID)
GO
CREATE INDEX IX_WLBillEntry_Inter ON WLBillEntry (FInterID)
GO

-- A sale's points history is voided, restored and deleted with it.
CREATE INDEX IX_vipjf_History_Bill ON vipjf_History (FBillInterID)
GO

-- Opening quantity of an item in a stock.
CREATE INDEX IX_ICInitData_Item ON ICInitData (FItemID, FStockID)
GO

-- Balances are replaced period by period.
CREATE INDEX IX_ICBal_Period ON ICBal (FYear, FPeriod, FStockID, FItemID)
GO
CREATE INDEX IX_ICBal_Entry_Period ON ICBal_Entry (FYear, FPeriod, FStockID, FItemID)
GO

-- Deleting a header deletes its lines and size/colour rows. The trigger fires on the header's
-- delete only: lines are written before their header, and a re-save deletes the header and
-- writes new lines under the same id in one transaction, which must not touch the new lines.
CREATE TRIGGER TR_ICStockBill_Delete ON ICStockBill AFTER DELETE AS
BEGIN
    SET NOCOUNT ON
    DELETE e FROM ICStockBillEntry e INNER JOIN deleted d ON e.FInterID = d.FInterID
    DELETE e FROM ICStockBillEntry_1 e INNER JOIN deleted d ON e.FInterID = d.FInterID
END
GO

CREATE TRIGGER TR_ICOrder_Delete ON ICOrder AFTER DELETE AS
BEGIN
    SET NOCOUNT ON
    DELETE e FROM ICOrderEntry e INNER JOIN deleted d ON e.FInterID = d.FInterID
    DELETE e FROM ICOrderEntry_1 e INNER JOIN deleted d ON e.FInterID = d.FInterID
END
GO

-- Cost recalculation bookkeeping: an item becomes dirty when one of its lines is written,
-- removed or changed in a way that moves quantity or value, when a bill's kind, void mark or
-- period changes, when its opening data changes, and for every item when the current period
-- moves. Sp_CacuCost writes only FUnitCost and FCost, which make nothing dirty.
CREATE TRIGGER TR_ICStockBillEntry_Cost ON ICStockBillEntry AFTER INSERT, UPDATE, DELETE AS
BEGIN
    SET NOCOUNT ON
    IF EXISTS (SELECT * FROM inserted) AND EXISTS (SELECT * FROM deleted)
       AND NOT (UPDATE(FInterID) OR UPDATE(FEntryID) OR UPDATE(FItemID) OR UPDATE(FQty)
                OR UPDATE(FPrice) OR UPDATE(FAmount) OR UPDATE(FRefTranType))
        RETURN
    INSERT INTO ICCostDirty (FItemID)
    SELECT DISTINCT x.FItemID
    FROM (SELECT FItemID FROM inserted UNION SELECT FItemID FROM deleted) x
    WHERE x.FItemID IS NOT NULL
      AND NOT EXISTS (SELECT * FROM ICCostDirty c WHERE c.FItemID = x.FItemID)
END
GO

CREATE TRIGGER TR_ICStockBill_Cost ON ICStockBill AFTER INSERT, UPDATE AS
BEGIN
    SET NOCOUNT ON
    IF EXISTS (SELECT * FROM deleted)
       AND NOT (UPDATE(FInterID) OR UPDATE(FTranType) OR UPDATE(FDeleted) OR UPDATE(FDate)
                OR UPDATE(FYear) OR UPDATE(FPeriod))
        RETURN
    INSERT INTO ICCostDirty (FItemID)
    SELECT DISTINCT e.FItemID
    FROM ICStockBillEntry e
    WHERE e.FInterID IN (SELECT FInterID FROM inserted UNION SELECT FInterID FROM deleted)
      AND e.FItemID IS NOT NULL
      AND NOT EXISTS (SELECT * FROM ICCostDirty c WHERE c.FItemID = e.FItemID)
END
GO

CREATE TRIGGER TR_ICInitData_Cost ON ICInitData AFTER INSERT, UPDATE, DELETE AS
BEGIN
    SET NOCOUNT ON
    INSERT INTO ICCostDirty (FItemID)
    SELECT DISTINCT x.FItemID
    FROM (SELECT FItemID FROM inserted UNION SELECT FItemID FROM deleted) x
    WHERE x.FItemID IS NOT NULL
      AND NOT EXISTS (SELECT * FROM ICCostDirty c WHERE c.FItemID = x.FItemID)
END
GO

CREATE TRIGGER TR_t_SystemProfile_Cost ON t_SystemProfile AFTER UPDATE AS
BEGIN
    SET NOCOUNT ON
    IF EXISTS (SELECT * FROM inserted i INNER JOIN deleted d ON i.FKey = d.FKey
               WHERE i.FKey IN ('CurrentYear', 'CurrentPeriod')
                 AND isnull(i.FValue, '') <> isnull(d.FValue, ''))
        INSERT INTO ICCostDirty (FItemID)
        SELECT DISTINCT e.FItemID FROM ICStockBillEntry e
        WHERE e.FItemID IS NOT NULL
          AND NOT EXISTS (SELECT * FROM ICCostDirty c WHERE c.FItemID = e.FItemID)
END
GO

-- Stock on hand of one item in one stock, leaving out one bill: the opening quantity plus the
-- signed quantities of the lines of every live bill. Adjustment rows (negative FEntryID) never
-- move stock, pre-sent rows (no FEntryID) do, and a POS line that sells goods lent by a kind-27
-- bill moved nothing more: they left with the lending bill. Lines whose header is not written
-- yet have no join partner and do not count.
CREATE PROCEDURE sp_GetStockQty
    @StockID int,
    @ItemID int,
    @InterID int,
    @RtnQty float OUTPUT
AS
BEGIN
    SET NOCOUNT ON
    SELECT @RtnQty =
        isnull((SELECT sum(FQty) FROM ICInitData WHERE FItemID = @ItemID AND FStockID = @StockID), 0)
      + isnull((
            SELECT sum(
                  CASE WHEN h.FInStockID = @StockID THEN
                      CASE WHEN h.FTranType IN (112, 115, 17, 31) THEN e.FQty
                           WHEN h.FTranType = 114 THEN -e.FQty
                           ELSE 0 END
                  ELSE 0 END
                + CASE WHEN h.FOutStockID = @StockID AND h.FTranType IN (99, 125, 27, 31)
                       THEN -e.FQty ELSE 0 END)
            FROM ICStockBillEntry e
            INNER JOIN ICStockBill h ON h.FInterID = e.FInterID
            WHERE e.FItemID = @ItemID AND e.FInterID <> @InterID
              AND isnull(h.FDeleted, 0) = 0
              AND (e.FEntryID IS NULL OR e.FEntryID >= 0)
              AND NOT (h.FTranType = 99 AND isnull(e.FRefTranType, 0) = 27)
              AND (h.FInStockID = @StockID OR h.FOutStockID = @StockID)), 0)
END
GO

-- Cost recalculation for the items whose lines changed since the last run (ICCostDirty, kept by
-- the triggers above): a moving weighted average per item over the live bills in interior-id
-- order, starting from the opening stock (or, without any, from the item's FPjCost). Stock-in
-- lines (112, 115, 17, the receiving side of 31) add their quantity at their own price, 114
-- takes its quantity out at its own price, stock-out lines (99, 125, 27) are costed at the
-- running average; a running quantity of 0 or less keeps the last average, and stock below
-- zero is valued at the incoming price when goods arrive. Only bills of the current period
-- (CurrentYear/CurrentPeriod) or later are written; earlier ones feed the average.
-- t_ICItem.FPjCost receives the final average. All or nothing.
CREATE PROCEDURE Sp_CacuCost
AS
BEGIN
    SET NOCOUNT ON
    DECLARE @Cur int, @Item int, @Qty float, @Avg float, @Value float, @Known bit
    DECLARE @Inter int, @Kind int, @Period int, @InQty float, @InValue float, @OutQty float
    DECLARE @Unit float, @OwnTran bit

    SET @Cur = isnull((SELECT CAST(FValue AS int) FROM t_SystemProfile
                       WHERE FKey = 'CurrentYear'), 0) * 12
             + isnull((SELECT CAST(FValue AS int) FROM t_SystemProfile
                       WHERE FKey = 'CurrentPeriod'), 0)

    SET @OwnTran = CASE WHEN @@TRANCOUNT = 0 THEN 1 ELSE 0 END
    IF @OwnTran = 1 BEGIN TRAN ELSE SAVE TRAN Sp_CacuCost
    BEGIN TRY
        DECLARE items CURSOR LOCAL FAST_FORWARD FOR
            SELECT FItemID FROM ICCostDirty ORDER BY FItemID
        OPEN items
        FETCH NEXT FROM items INTO @Item
        WHILE @@FETCH_STATUS = 0
        BEGIN
            SELECT @Qty = isnull(sum(FQty), 0), @Value = isnull(sum(FAmount), 0)
            FROM ICInitData WHERE FItemID = @Item
            SET @Known = 0
            IF @Qty > 0
            BEGIN
                SET @Avg = @Value / @Qty
                SET @Known = 1
            END
            ELSE
                SET @Avg = isnull((SELECT FPjCost FROM t_ICItem WHERE FItemID = @Item), 0)

            -- All lines of one item in one bill move together: a stock-out bill's lines share
            -- the average of the moment.
            DECLARE bills CURSOR LOCAL FAST_FORWARD FOR
                SELECT h.FInterID, h.FTranType,
                       isnull(h.FYear, isnull(year(h.FDate), 0)) * 12
                           + isnull(h.FPeriod, isnull(month(h.FDate), 0)),
                       sum(isnull(e.FQty, 0)),
                       sum(isnull(e.FQty, 0) * isnull(e.FPrice, 0)),
                       sum(CASE WHEN h.FTranType = 99 AND isnull(e.FRefTranType, 0) = 27 THEN 0
                                ELSE isnull(e.FQty, 0) END)
                FROM ICStockBillEntry e
                INNER JOIN ICStockBill h ON h.FInterID = e.FInterID
                WHERE e.FItemID = @Item AND isnull(h.FDeleted, 0) = 0
                  AND (e.FEntryID IS NULL OR e.FEntryID >= 0)
                  AND h.FTranType IN (17, 27, 31, 99, 112, 114, 115, 125)
                GROUP BY h.FInterID, h.FTranType, h.FYear, h.FPeriod, h.FDate
                ORDER BY h.FInterID
            OPEN bills
            FETCH NEXT FROM bills INTO @Inter, @Kind, @Period, @InQty, @InValue, @OutQty
            WHILE @@FETCH_STATUS = 0
            BEGIN
                IF @Kind IN (112, 115, 17, 31)
                BEGIN
                    -- A transfer leaves at the average and comes in at its own price.
                    IF @Kind = 31 SET @Qty = @Qty - @InQty
                    SET @Value = CASE WHEN @Qty > 0 THEN @Qty * @Avg
                                      WHEN @InQty <> 0 THEN @Qty * (@InValue / @InQty)
                                      ELSE 0 END + @InValue
                    SET @Qty = @Qty + @InQty
                    IF @Qty > 0 SET @Avg = @Value / @Qty
                    SET @Known = 1
                END
                ELSE IF @Kind = 114
                BEGIN
                    SET @Value = @Qty * @Avg - @InValue
                    SET @Qty = @Qty - @InQty
                    IF @Qty > 0 SET @Avg = @Value / @Qty
                END
                ELSE
                BEGIN
                    SET @Qty = @Qty - @OutQty
                    IF @Period >= @Cur
                    BEGIN
                        SET @Unit = round(@Avg, 4)
                        UPDATE ICStockBillEntry
                        SET FUnitCost = @Unit, FCost = round(isnull(FQty, 0) * @Unit, 4)
                        WHERE FInterID = @Inter AND FItemID = @Item
                          AND (FEntryID IS NULL OR FEntryID >= 0)
                    END
                END
                FETCH NEXT FROM bills INTO @Inter, @Kind, @Period, @InQty, @InValue, @OutQty
            END
            CLOSE bills
            DEALLOCATE bills

            IF @Known = 1 UPDATE t_ICItem SET FPjCost = round(@Avg, 4) WHERE FItemID = @Item
            DELETE FROM ICCostDirty WHERE FItemID = @Item
            FETCH NEXT FROM items INTO @Item
        END
        CLOSE items
        DEALLOCATE items
        IF @OwnTran = 1 COMMIT TRAN
    END TRY
    BEGIN CATCH
        IF @OwnTran = 1 AND @@TRANCOUNT > 0 ROLLBACK TRAN
        ELSE IF XACT_STATE() = 1 ROLLBACK TRAN Sp_CacuCost
        ;THROW
    END CATCH
END
GO
