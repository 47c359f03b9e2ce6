-- billdata: the bill database for PostgreSQL 15.
--
-- Run once, in one transaction, on an empty database, after runtime.sql (the server functions
-- that translated statements call). The embedded engine's schema and the SQL Server script hold
-- the same tables, columns, keys, indexes and kept totals; the two stored procedures are
-- PL/pgSQL functions here.
--
-- Names are unquoted (the server folds them to lower case); every statement names them as the
-- SQL Server script spells them. Column conventions: ids, kinds, counters and flags int;
-- quantities, prices, amounts and points numeric(18,4); dates timestamp(3); texts bpchar
-- (trailing blanks do not count for =, <, group by, distinct, unique indexes and length(), the
-- stored value keeps them) under the collation bd_ci (case-insensitive), which together compare
-- as SQL Server's default collation does. A column name appears in two tables that one fixed
-- statement joins only when every statement names it with its alias, so the unqualified names of
-- the bill lists resolve. Flags that the saving statements leave out (FDeleted, FCheckerID, ...)
-- default to 0.

-- Case-insensitive, accent- and width-sensitive comparison. Not deterministic, so LIKE refuses
-- it: translated statements match patterns on a deterministic copy of the text.
CREATE COLLATION bd_ci (provider = icu, locale = 'und-u-ks-level2', deterministic = false);

-- Settings: key/value text pairs (CostStyle, StartYear, StartPeriod, CurrentYear,
-- CurrentPeriod, ICClosed, WLClosed, CashClosed).
CREATE TABLE t_SystemProfile (
    FKey bpchar COLLATE bd_ci NOT NULL,
    FValue bpchar COLLATE bd_ci,
    CONSTRAINT PK_t_SystemProfile PRIMARY KEY (FKey)
);

-- Interior-id series (0 stock bills, 4 receipts/payments, 11 orders).
CREATE TABLE ICMaxNum (
    FTranType int NOT NULL,
    FMaxNum int NOT NULL DEFAULT 0,
    FDescription bpchar COLLATE bd_ci DEFAULT '',
    CONSTRAINT PK_ICMaxNum PRIMARY KEY (FTranType)
);

-- Daily bill-number counters, one row per bill kind and bill date.
CREATE TABLE ICBillNo (
    FTranType int NOT NULL,
    FDate timestamp(3) NOT NULL,
    FMaxNum int NOT NULL DEFAULT 0,
    CONSTRAINT PK_ICBillNo PRIMARY KEY (FTranType, FDate)
);

-- Master data. Each table is keyed by its id; none carries a column that a bill list uses
-- without an alias.
CREATE TABLE t_Item (
    FItemID int NOT NULL,
    FItemClassID int NOT NULL DEFAULT 1,
    FNumber bpchar COLLATE bd_ci,
    FName bpchar COLLATE bd_ci,
    CONSTRAINT PK_t_Item PRIMARY KEY (FItemID)
);

CREATE TABLE t_Supplier (
    FItemID int NOT NULL,
    FNumber bpchar COLLATE bd_ci,
    FName bpchar COLLATE bd_ci,
    FContact bpchar COLLATE bd_ci,
    FTel bpchar COLLATE bd_ci,
    CONSTRAINT PK_t_Supplier PRIMARY KEY (FItemID)
);

CREATE TABLE t_Stock (
    FItemID int NOT NULL,
    FNumber bpchar COLLATE bd_ci,
    FName bpchar COLLATE bd_ci,
    CONSTRAINT PK_t_Stock PRIMARY KEY (FItemID)
);

CREATE TABLE t_Account (
    FItemID int NOT NULL,
    FNumber bpchar COLLATE bd_ci,
    FName bpchar COLLATE bd_ci,
    CONSTRAINT PK_t_Account PRIMARY KEY (FItemID)
);

CREATE TABLE t_Emp (
    FItemID int NOT NULL,
    FNumber bpchar COLLATE bd_ci,
    FName bpchar COLLATE bd_ci,
    CONSTRAINT PK_t_Emp PRIMARY KEY (FItemID)
);

-- Sizes; FGroupID is the size group that t_ICItem.FSizeID names, FIndex the order inside it.
CREATE TABLE t_Size (
    FItemID int NOT NULL,
    FGroupID int NOT NULL DEFAULT 0,
    FIndex int NOT NULL DEFAULT 0,
    FNumber bpchar COLLATE bd_ci,
    FName bpchar COLLATE bd_ci,
    CONSTRAINT PK_t_Size PRIMARY KEY (FItemID)
);

CREATE TABLE t_SizeGroup (
    FItemID int NOT NULL,
    FName bpchar COLLATE bd_ci,
    CONSTRAINT PK_t_SizeGroup PRIMARY KEY (FItemID)
);

-- Colours offered by the front end; bill rows keep the colour as text in FColor.
CREATE TABLE t_Color (
    FItemID int NOT NULL,
    FNumber bpchar COLLATE bd_ci,
    FName bpchar COLLATE bd_ci,
    CONSTRAINT PK_t_Color PRIMARY KEY (FItemID)
);

-- Goods. FSizeID is the size group (0 = no sizes); FPurYear is text, it is joined with '.'.
CREATE TABLE t_ICItem (
    FItemID int NOT NULL,
    FNumber bpchar COLLATE bd_ci,
    FName bpchar COLLATE bd_ci,
    FUnit bpchar COLLATE bd_ci,
    FProductNo bpchar COLLATE bd_ci,
    FSizeID int NOT NULL DEFAULT 0,
    FPurYear bpchar COLLATE bd_ci,
    FQuarter bpchar COLLATE bd_ci,
    FRetailPrice numeric(18,4) DEFAULT 0,
    FRetailPrice_2 numeric(18,4) DEFAULT 0,
    FJfFactor numeric(18,4) DEFAULT 1,
    FPurPrice numeric(18,4) DEFAULT 0,
    FSupplierID int DEFAULT 0,
    FPjCost numeric(18,4) DEFAULT 0,
    CONSTRAINT PK_t_ICItem PRIMARY KEY (FItemID)
);

-- Users and their list restriction (FDays, FStockID; null or 0 = none).
CREATE TABLE t_User (
    FUserID int NOT NULL,
    FUserName bpchar COLLATE bd_ci,
    FDays int,
    FStockID int,
    CONSTRAINT PK_t_User PRIMARY KEY (FUserID)
);

-- Member cards; FItemID is the member's id, the same as Vip.FVipID.
CREATE TABLE t_VipCard (
    FItemID int NOT NULL,
    FNumber bpchar COLLATE bd_ci,
    FName bpchar COLLATE bd_ci,
    CONSTRAINT PK_t_VipCard PRIMARY KEY (FItemID)
);

-- Members: points, purchase total, provisional-card flag.
CREATE TABLE Vip (
    FVipID int NOT NULL,
    FVipNo bpchar COLLATE bd_ci,
    FOwner bpchar COLLATE bd_ci,
    FMobile bpchar COLLATE bd_ci,
    FSumJf numeric(18,4) DEFAULT 0,
    FSumJf_Un numeric(18,4) DEFAULT 0,
    FSumBuyAmount numeric(18,4) DEFAULT 0,
    FBogus int DEFAULT 0,
    FEditTime timestamp(3),
    CONSTRAINT PK_Vip PRIMARY KEY (FVipID)
);

-- Order bills (kinds 11 and 21): header, lines, size/colour rows.
CREATE TABLE ICOrder (
    FInterID int NOT NULL,
    FTranType int,
    FDate timestamp(3),
    FJhDate timestamp(3),
    FBillNo bpchar COLLATE bd_ci,
    FOrgaID int,
    FRemark bpchar COLLATE bd_ci,
    FBillerID int,
    FCheckerID int DEFAULT 0,
    FSumQty numeric(18,4) DEFAULT 0,
    FSumAmount numeric(18,4) DEFAULT 0,
    FSumRetailAmount numeric(18,4) DEFAULT 0,
    FEarnest numeric(18,4) DEFAULT 0,
    FAcctID int,
    FDeleted int DEFAULT 0,
    FSysTime timestamp(3),
    FPhone bpchar COLLATE bd_ci,
    FOwner bpchar COLLATE bd_ci,
    CONSTRAINT PK_ICOrder PRIMARY KEY (FInterID)
);

CREATE TABLE ICOrderEntry (
    FInterID int NOT NULL,
    FEntryID int,
    FItemID int,
    FRowKey bpchar COLLATE bd_ci,
    FQty numeric(18,4) DEFAULT 0,
    FZkRate numeric(18,4),
    FPrice numeric(18,4) DEFAULT 0,
    FAmount numeric(18,4) DEFAULT 0,
    FRetailPrice numeric(18,4) DEFAULT 0,
    FRetailAmount numeric(18,4) DEFAULT 0,
    FMemo bpchar COLLATE bd_ci,
    FSalerID int,
    FUnitCost numeric(18,4),
    FPreSend int DEFAULT 0,
    FSaleQty numeric(18,4) DEFAULT 0
);

CREATE TABLE ICOrderEntry_1 (
    FInterID int NOT NULL,
    FItemID int,
    FRowKey bpchar COLLATE bd_ci,
    FSizeID int DEFAULT 0,
    FColor bpchar COLLATE bd_ci,
    FColorEntryID int DEFAULT 0,
    FQty numeric(18,4) DEFAULT 0
);

-- Stock bills (17, 27, 31, 99, 112, 114, 115, 125 and the opening pseudo bills -12, -22).
CREATE TABLE ICStockBill (
    FInterID int NOT NULL,
    FTranType int,
    FDate timestamp(3),
    FBillNo bpchar COLLATE bd_ci,
    FOrgaID int,
    FInStockID int,
    FOutStockID int,
    FAcctID int,
    FSettleID int DEFAULT 0,
    FRemark bpchar COLLATE bd_ci,
    FBillerID int,
    FCheckerID int DEFAULT 0,
    FYear int,
    FPeriod int,
    FSysTime timestamp(3),
    FSumQty numeric(18,4) DEFAULT 0,
    FSumAmount numeric(18,4) DEFAULT 0,
    FSumRetailAmount numeric(18,4) DEFAULT 0,
    FSeason bpchar COLLATE bd_ci,
    FMonth bpchar COLLATE bd_ci,
    FCause bpchar COLLATE bd_ci,
    FVipID int,
    FPhone bpchar COLLATE bd_ci,
    FOwner bpchar COLLATE bd_ci,
    FDeleted int DEFAULT 0,
    FPrintTimes int DEFAULT 0,
    FGetCash numeric(18,4) DEFAULT 0,
    FBzkBillAmount numeric(18,4) DEFAULT 0,
    FSumZkAmount numeric(18,4) DEFAULT 0,
    FGetDyq numeric(18,4) DEFAULT 0,
    FGetBlank numeric(18,4) DEFAULT 0,
    FSumCost numeric(18,4) DEFAULT 0,
    FSumProfit numeric(18,4) DEFAULT 0,
    FSumOddMent numeric(18,4) DEFAULT 0,
    FClassName bpchar COLLATE bd_ci,
    FQkAmount numeric(18,4) DEFAULT 0,
    FGetAmount numeric(18,4) DEFAULT 0,
    FChange numeric(18,4) DEFAULT 0,
    FSumJf numeric(18,4) DEFAULT 0,
    FJfExchange numeric(18,4) DEFAULT 0,
    FGetJfAmount numeric(18,4) DEFAULT 0,
    FMachine bpchar COLLATE bd_ci,
    FPosGetMoney int DEFAULT 0,
    FGetQk numeric(18,4) DEFAULT 0,
    CONSTRAINT PK_ICStockBill PRIMARY KEY (FInterID)
);

-- Stock bill lines. Negative FEntryID: price-adjustment rows (FQty 0, FTjStockID the stock
-- revalued); null FEntryID: goods handed over in advance with a POS sale.
CREATE TABLE ICStockBillEntry (
    FInterID int NOT NULL,
    FEntryID int,
    FItemID int,
    FRowKey bpchar COLLATE bd_ci,
    FQty numeric(18,4) DEFAULT 0,
    FPrice numeric(18,4) DEFAULT 0,
    FAmount numeric(18,4) DEFAULT 0,
    FHisPrice numeric(18,4) DEFAULT 0,
    FZkRate numeric(18,4),
    FRetailPrice numeric(18,4) DEFAULT 0,
    FRetailAmount numeric(18,4) DEFAULT 0,
    FMemo bpchar COLLATE bd_ci,
    FOddMentEntry numeric(18,4) DEFAULT 0,
    FZkAmount numeric(18,4) DEFAULT 0,
    FSalerID int,
    FPreSend int DEFAULT 0,
    FUnitCost numeric(18,4) DEFAULT 0,
    FCost numeric(18,4) DEFAULT 0,
    FRefInterID int DEFAULT 0,
    FRefEntryID int DEFAULT 0,
    FRefTranType int DEFAULT 0,
    FTjStockID int,
    FSaleQty numeric(18,4) DEFAULT 0,
    FRtnQty numeric(18,4) DEFAULT 0,
    FSdyh numeric(18,4) DEFAULT 0,
    -- The kind of the line's bill, copied from its header by the triggers below (NULL while the
    -- header is not written); see t_KeptCopies.
    FHeadTranType int
);

CREATE TABLE ICStockBillEntry_1 (
    FInterID int NOT NULL,
    FItemID int,
    FRowKey bpchar COLLATE bd_ci,
    FSizeID int DEFAULT 0,
    FColor bpchar COLLATE bd_ci,
    FColorEntryID int DEFAULT 0,
    FQty numeric(18,4) DEFAULT 0
);

-- Receipts and payments (kinds 13 and 23).
CREATE TABLE WLBill (
    FInterID int NOT NULL,
    FTranType int,
    FSettleID int DEFAULT 0,
    FEmpID int,
    FDate timestamp(3),
    FBillNo bpchar COLLATE bd_ci,
    FAcctID int,
    FOrgaID int,
    FSettleAmount numeric(18,4) DEFAULT 0,
    FSumAmount numeric(18,4) DEFAULT 0,
    FOddMent numeric(18,4) DEFAULT 0,
    FMemo bpchar COLLATE bd_ci,
    FBillerID int,
    FCheckerID int DEFAULT 0,
    FSysTime timestamp(3),
    FOrderBillID int DEFAULT 0,
    FStockBillID int DEFAULT 0,
    FClosed int DEFAULT 0,
    FDeleted int DEFAULT 0,
    CONSTRAINT PK_WLBill PRIMARY KEY (FInterID)
);

-- Settlement lines of a receipt or payment (which stock bill the money settles).
CREATE TABLE WLBillEntry (
    FInterID int NOT NULL,
    FEntryID int,
    FBillInterID int,
    FAmount numeric(18,4) DEFAULT 0,
    FMemo bpchar COLLATE bd_ci
);

-- Price adjustment bills (kind 50); the component writes only the audit mark.
CREATE TABLE ICSpTjd (
    FInterID int NOT NULL,
    FTranType int DEFAULT 50,
    FDate timestamp(3),
    FBillNo bpchar COLLATE bd_ci,
    FBillerID int,
    FCheckerID int DEFAULT 0,
    FDeleted int DEFAULT 0,
    FSysTime timestamp(3),
    CONSTRAINT PK_ICSpTjd PRIMARY KEY (FInterID)
);

-- Member points history, one row per points movement of a sale.
CREATE TABLE vipjf_History (
    FID int GENERATED BY DEFAULT AS IDENTITY,
    FBillInterID int,
    FVipID int,
    FDate timestamp(3),
    Fjf numeric(18,4) DEFAULT 0,
    FBiller bpchar COLLATE bd_ci,
    FMemo bpchar COLLATE bd_ci,
    FDeleted int DEFAULT 0,
    CONSTRAINT PK_vipjf_History PRIMARY KEY (FID)
);

-- Opening data entered before the first bill, and the period balances made from it.
CREATE TABLE ICInitData (
    FStockID int,
    FItemID int,
    FQty numeric(18,4) DEFAULT 0,
    FAmount numeric(18,4) DEFAULT 0,
    FPrice numeric(18,4) DEFAULT 0
);

CREATE TABLE ICInitData_Entry (
    FStockID int,
    FItemID int,
    FColor bpchar COLLATE bd_ci,
    FSizeID int DEFAULT 0,
    FQty numeric(18,4) DEFAULT 0
);

CREATE TABLE ICBal (
    FYear int,
    FPeriod int,
    FStockID int,
    FItemID int,
    FBegQty numeric(18,4) DEFAULT 0,
    FBegPrice numeric(18,4) DEFAULT 0,
    FBegBal numeric(18,4) DEFAULT 0
);

CREATE TABLE ICBal_Entry (
    FYear int,
    FPeriod int,
    FStockID int,
    FItemID int,
    FColor bpchar COLLATE bd_ci,
    FSizeID int DEFAULT 0,
    FBegQty numeric(18,4) DEFAULT 0
);

CREATE TABLE WLInitData (
    FItemClassID int,
    FOrgaID int,
    FAmount numeric(18,4) DEFAULT 0
);

CREATE TABLE WLBal (
    FYear int,
    FPeriod int,
    FItemClassID int,
    FOrgaID int,
    FBegBal numeric(18,4) DEFAULT 0
);

CREATE TABLE WLSettleBal (
    FYear int,
    FPeriod int,
    FItemClassID int,
    FOrgaID int,
    FBillInterID int,
    FAmount numeric(18,4) DEFAULT 0
);

CREATE TABLE CashInitData (
    FItemClassID int,
    FItemID int,
    FAmount numeric(18,4) DEFAULT 0
);

CREATE TABLE CashBal (
    FItemClassID int,
    FItemID int,
    FAmount numeric(18,4) DEFAULT 0
);

-- Items whose stock lines or opening data changed since the last cost recalculation; filled by
-- the triggers below and emptied by sp_cacucost, so a save never makes it rescan every item.
-- Not unique: a save adds its items only when no committed row names them yet, so two
-- transactions that touch the same item never wait on each other here (an item may then be
-- listed twice, which the recalculation reads as once).
CREATE TABLE ICCostDirty (
    FItemID int NOT NULL
);
CREATE INDEX IX_ICCostDirty_Item ON ICCostDirty (FItemID);

-- Lines: a line number is unique within its bill, but only for real lines. Adjustment rows
-- share negative numbers and pre-sent rows have none, so the partial index leaves both out. Two
-- tills that drew the same interior id clash on their first line, before anything else is
-- written.
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
-- and the adjustment-row deletes ("FItemID=... and FInterID>...").
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
