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
CREATE COLLATION IF NOT EXISTS bd_ci (provider = icu, locale = 'und-u-ks-level2', deterministic = false);

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

-- Deleting a header deletes its lines and size/colour rows. The trigger fires on the header's
-- delete only: lines are written before their header, and a re-save deletes the header and
-- writes new lines under the same id in one transaction, which must not touch the new lines.
CREATE FUNCTION kept_delete_stock_lines() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    DELETE FROM ICStockBillEntry WHERE FInterID = OLD.FInterID;
    DELETE FROM ICStockBillEntry_1 WHERE FInterID = OLD.FInterID;
    RETURN NULL;
END $$;
CREATE TRIGGER TR_ICStockBill_Delete AFTER DELETE ON ICStockBill
    FOR EACH ROW EXECUTE FUNCTION kept_delete_stock_lines();

CREATE FUNCTION kept_delete_order_lines() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    DELETE FROM ICOrderEntry WHERE FInterID = OLD.FInterID;
    DELETE FROM ICOrderEntry_1 WHERE FInterID = OLD.FInterID;
    RETURN NULL;
END $$;
CREATE TRIGGER TR_ICOrder_Delete AFTER DELETE ON ICOrder
    FOR EACH ROW EXECUTE FUNCTION kept_delete_order_lines();

-- Kept totals: what the statements run on every save would otherwise compute by reading a
-- table's or an item's whole history. Each is kept by the triggers below inside the writing
-- statement's own transaction, so a rolled-back statement or transaction rolls it back too.
--
-- Concurrent saves: a total that every save changes, kept in one row, would make each save wait
-- for the commit of the one before it (the row stays locked until then) and, for totals per item,
-- could make two saves that touch the same items in a different order deadlock. So each total is
-- split into slots, one per connection: a connection adds to the rows of its own slot only, and
-- a reader adds up the slots (at most 32 small rows found by key, whatever the size of
-- the books). A connection claims a free slot for its lifetime with a session advisory lock;
-- connections never share one while at most 32 are writing at a time, and beyond that they share
-- slots (and then wait for each other on them, which is still correct).
CREATE FUNCTION kept_slot() RETURNS int LANGUAGE plpgsql AS $$
DECLARE
    claimed text := current_setting('billdata.kept_slot', true);
    slot int;
BEGIN
    IF claimed <> '' THEN
        RETURN claimed::int;
    END IF;
    FOR i IN 0 .. 31 LOOP
        slot := (pg_backend_pid() + i) % 32;
        -- A session lock survives the transaction; a slot this connection already holds is
        -- granted again.
        IF pg_try_advisory_lock(1650745707, slot) THEN
            PERFORM set_config('billdata.kept_slot', slot::text, false);
            RETURN slot;
        END IF;
    END LOOP;
    slot := pg_backend_pid() % 32;
    PERFORM set_config('billdata.kept_slot', slot::text, false);
    RETURN slot;
END $$;

-- t_TableRows: the row count of each bill table, a column per table. The interior-id cross-check
-- counts a bill table's rows on every save, and counting reads the whole table; the translator
-- reads a whole-table count(*) from here instead, for the tables that the view t_KeptRowCounts
-- lists. The counts live in t_TableRowSlots, a row per table and slot.
CREATE TABLE t_TableRowSlots (
    FTable text NOT NULL,
    FSlot int NOT NULL,
    FRows bigint NOT NULL DEFAULT 0,
    CONSTRAINT PK_t_TableRowSlots PRIMARY KEY (FTable, FSlot)
);

CREATE FUNCTION kept_rows_added() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    INSERT INTO t_TableRowSlots (FTable, FSlot, FRows)
    SELECT TG_TABLE_NAME, kept_slot(), count(*) FROM kept_rows HAVING count(*) > 0
    ON CONFLICT (FTable, FSlot) DO UPDATE SET FRows = t_TableRowSlots.FRows + excluded.FRows;
    RETURN NULL;
END $$;

CREATE FUNCTION kept_rows_removed() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    INSERT INTO t_TableRowSlots (FTable, FSlot, FRows)
    SELECT TG_TABLE_NAME, kept_slot(), -count(*) FROM kept_rows HAVING count(*) > 0
    ON CONFLICT (FTable, FSlot) DO UPDATE SET FRows = t_TableRowSlots.FRows + excluded.FRows;
    RETURN NULL;
END $$;

CREATE TRIGGER TR_ICStockBill_RowsIns AFTER INSERT ON ICStockBill REFERENCING NEW TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_added();
CREATE TRIGGER TR_ICStockBill_RowsDel AFTER DELETE ON ICStockBill REFERENCING OLD TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_removed();
CREATE TRIGGER TR_ICStockBillEntry_RowsIns AFTER INSERT ON ICStockBillEntry REFERENCING NEW TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_added();
CREATE TRIGGER TR_ICStockBillEntry_RowsDel AFTER DELETE ON ICStockBillEntry REFERENCING OLD TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_removed();
CREATE TRIGGER TR_ICStockBillEntry_1_RowsIns AFTER INSERT ON ICStockBillEntry_1 REFERENCING NEW TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_added();
CREATE TRIGGER TR_ICStockBillEntry_1_RowsDel AFTER DELETE ON ICStockBillEntry_1 REFERENCING OLD TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_removed();
CREATE TRIGGER TR_ICOrder_RowsIns AFTER INSERT ON ICOrder REFERENCING NEW TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_added();
CREATE TRIGGER TR_ICOrder_RowsDel AFTER DELETE ON ICOrder REFERENCING OLD TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_removed();
CREATE TRIGGER TR_ICOrderEntry_RowsIns AFTER INSERT ON ICOrderEntry REFERENCING NEW TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_added();
CREATE TRIGGER TR_ICOrderEntry_RowsDel AFTER DELETE ON ICOrderEntry REFERENCING OLD TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_removed();
CREATE TRIGGER TR_ICOrderEntry_1_RowsIns AFTER INSERT ON ICOrderEntry_1 REFERENCING NEW TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_added();
CREATE TRIGGER TR_ICOrderEntry_1_RowsDel AFTER DELETE ON ICOrderEntry_1 REFERENCING OLD TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_removed();
CREATE TRIGGER TR_WLBill_RowsIns AFTER INSERT ON WLBill REFERENCING NEW TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_added();
CREATE TRIGGER TR_WLBill_RowsDel AFTER DELETE ON WLBill REFERENCING OLD TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_removed();
CREATE TRIGGER TR_WLBillEntry_RowsIns AFTER INSERT ON WLBillEntry REFERENCING NEW TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_added();
CREATE TRIGGER TR_WLBillEntry_RowsDel AFTER DELETE ON WLBillEntry REFERENCING OLD TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_removed();
CREATE TRIGGER TR_ICSpTjd_RowsIns AFTER INSERT ON ICSpTjd REFERENCING NEW TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_added();
CREATE TRIGGER TR_ICSpTjd_RowsDel AFTER DELETE ON ICSpTjd REFERENCING OLD TABLE AS kept_rows
    FOR EACH STATEMENT EXECUTE FUNCTION kept_rows_removed();

-- One column per counted table, each read from that table's slots alone (and FOnlyRow, the one
-- row's key on the embedded engine).
CREATE VIEW t_TableRows AS SELECT
    1 AS FOnlyRow,
    (SELECT coalesce(sum(FRows), 0) FROM t_TableRowSlots WHERE FTable = 'icstockbill')::bigint
        AS ICStockBill,
    (SELECT coalesce(sum(FRows), 0) FROM t_TableRowSlots WHERE FTable = 'icstockbillentry')::bigint
        AS ICStockBillEntry,
    (SELECT coalesce(sum(FRows), 0) FROM t_TableRowSlots WHERE FTable = 'icstockbillentry_1')::bigint
        AS ICStockBillEntry_1,
    (SELECT coalesce(sum(FRows), 0) FROM t_TableRowSlots WHERE FTable = 'icorder')::bigint
        AS ICOrder,
    (SELECT coalesce(sum(FRows), 0) FROM t_TableRowSlots WHERE FTable = 'icorderentry')::bigint
        AS ICOrderEntry,
    (SELECT coalesce(sum(FRows), 0) FROM t_TableRowSlots WHERE FTable = 'icorderentry_1')::bigint
        AS ICOrderEntry_1,
    (SELECT coalesce(sum(FRows), 0) FROM t_TableRowSlots WHERE FTable = 'wlbill')::bigint
        AS WLBill,
    (SELECT coalesce(sum(FRows), 0) FROM t_TableRowSlots WHERE FTable = 'wlbillentry')::bigint
        AS WLBillEntry,
    (SELECT coalesce(sum(FRows), 0) FROM t_TableRowSlots WHERE FTable = 'icsptjd')::bigint
        AS ICSpTjd;

-- The whole-table counts that the translator reads from t_TableRows.
CREATE VIEW t_KeptRowCounts (FTable, FCountTable) AS VALUES
    ('ICStockBill', 't_TableRows'),
    ('ICStockBillEntry', 't_TableRows'),
    ('ICStockBillEntry_1', 't_TableRows'),
    ('ICOrder', 't_TableRows'),
    ('ICOrderEntry', 't_TableRows'),
    ('ICOrderEntry_1', 't_TableRows'),
    ('WLBill', 't_TableRows'),
    ('WLBillEntry', 't_TableRows'),
    ('ICSpTjd', 't_TableRows');

-- ICStockQty: the quantity on hand per stock and item over all live bills (summed over the
-- slots), so that sp_getstockqty reads a few rows and takes out the named bill's own lines
-- instead of summing the item's whole history. It holds exactly what that procedure counts:
-- opening quantities, and the lines of live bills whose header is written, adjustment rows
-- (negative FEntryID) left out, pre-sent rows (no FEntryID) counted, a POS line that sells lent
-- goods (FRefTranType 27) not moving stock again. A line counts while its header exists and is
-- live: the line triggers move stock only under a written live header, and the header triggers
-- move all of the bill's lines when the header is written, removed, voided, restored or changes
-- kind or stock. The header's delete is booked before the header goes (its lines are deleted
-- after it), so the line deletes that follow find no header and move nothing.
CREATE TABLE ICStockQty (
    FStockID int NOT NULL,
    FItemID int NOT NULL,
    FSlot int NOT NULL,
    FQty numeric NOT NULL DEFAULT 0,
    CONSTRAINT PK_ICStockQty PRIMARY KEY (FStockID, FItemID, FSlot)
);

CREATE FUNCTION kept_stock_add(stock int, item int, qty numeric) RETURNS void
LANGUAGE plpgsql AS $$
BEGIN
    IF stock IS NULL OR item IS NULL OR qty = 0 THEN
        RETURN;
    END IF;
    INSERT INTO ICStockQty (FStockID, FItemID, FSlot, FQty) VALUES (stock, item, kept_slot(), qty)
    ON CONFLICT (FStockID, FItemID, FSlot) DO UPDATE SET FQty = ICStockQty.FQty + excluded.FQty;
END $$;

-- Kinds that move stock into FInStockID (114 with the sign turned) and out of FOutStockID.
CREATE FUNCTION kept_line_move(inter int, entry int, item int, qty numeric, ref_kind int,
                               sign int) RETURNS void
LANGUAGE plpgsql AS $$
DECLARE
    h record;
BEGIN
    IF item IS NULL OR entry < 0 THEN
        RETURN;
    END IF;
    SELECT b.FTranType, b.FInStockID, b.FOutStockID INTO h
    FROM ICStockBill b WHERE b.FInterID = inter AND coalesce(b.FDeleted, 0) = 0;
    IF NOT FOUND THEN
        RETURN;
    END IF;
    IF h.FTranType IN (112, 115, 17, 31, 114) THEN
        PERFORM kept_stock_add(h.FInStockID, item, sign * CASE WHEN h.FTranType = 114
                                   THEN -coalesce(qty, 0) ELSE coalesce(qty, 0) END);
    END IF;
    IF h.FTranType IN (99, 125, 27, 31)
       AND NOT (h.FTranType = 99 AND coalesce(ref_kind, 0) = 27) THEN
        PERFORM kept_stock_add(h.FOutStockID, item, -sign * coalesce(qty, 0));
    END IF;
END $$;

CREATE FUNCTION kept_bill_move(inter int, kind int, in_stock int, out_stock int, deleted int,
                               sign int) RETURNS void
LANGUAGE plpgsql AS $$
DECLARE
    l record;
BEGIN
    IF coalesce(deleted, 0) <> 0 OR kind IS NULL THEN
        RETURN;
    END IF;
    -- Item by item in id order, so that saves lock their balance rows in one order.
    FOR l IN
        SELECT e.FItemID,
               sum(coalesce(e.FQty, 0)) AS FQty,
               sum(CASE WHEN kind = 99 AND coalesce(e.FRefTranType, 0) = 27 THEN 0
                        ELSE coalesce(e.FQty, 0) END) AS FOutQty
        FROM ICStockBillEntry e
        WHERE e.FInterID = inter AND e.FItemID IS NOT NULL
          AND (e.FEntryID IS NULL OR e.FEntryID >= 0)
        GROUP BY e.FItemID ORDER BY e.FItemID
    LOOP
        IF kind IN (112, 115, 17, 31, 114) THEN
            PERFORM kept_stock_add(in_stock, l.FItemID,
                                   sign * CASE WHEN kind = 114 THEN -l.FQty ELSE l.FQty END);
        END IF;
        IF kind IN (99, 125, 27, 31) THEN
            PERFORM kept_stock_add(out_stock, l.FItemID, -sign * l.FOutQty);
        END IF;
    END LOOP;
END $$;

CREATE FUNCTION kept_line_stock() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    IF TG_OP IN ('DELETE', 'UPDATE') THEN
        PERFORM kept_line_move(OLD.FInterID, OLD.FEntryID, OLD.FItemID, OLD.FQty,
                               OLD.FRefTranType, -1);
    END IF;
    IF TG_OP IN ('INSERT', 'UPDATE') THEN
        PERFORM kept_line_move(NEW.FInterID, NEW.FEntryID, NEW.FItemID, NEW.FQty,
                               NEW.FRefTranType, 1);
    END IF;
    RETURN NULL;
END $$;

CREATE FUNCTION kept_bill_stock() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    IF TG_OP IN ('DELETE', 'UPDATE') THEN
        PERFORM kept_bill_move(OLD.FInterID, OLD.FTranType, OLD.FInStockID, OLD.FOutStockID,
                               OLD.FDeleted, -1);
    END IF;
    IF TG_OP IN ('INSERT', 'UPDATE') THEN
        PERFORM kept_bill_move(NEW.FInterID, NEW.FTranType, NEW.FInStockID, NEW.FOutStockID,
                               NEW.FDeleted, 1);
    END IF;
    IF TG_OP = 'DELETE' THEN
        RETURN OLD;
    END IF;
    RETURN NULL;
END $$;

CREATE FUNCTION kept_opening_stock() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    IF TG_OP IN ('DELETE', 'UPDATE') THEN
        PERFORM kept_stock_add(OLD.FStockID, OLD.FItemID, -coalesce(OLD.FQty, 0));
    END IF;
    IF TG_OP IN ('INSERT', 'UPDATE') THEN
        PERFORM kept_stock_add(NEW.FStockID, NEW.FItemID, coalesce(NEW.FQty, 0));
    END IF;
    RETURN NULL;
END $$;

CREATE TRIGGER TR_ICStockBillEntry_QtyIns AFTER INSERT ON ICStockBillEntry
    FOR EACH ROW EXECUTE FUNCTION kept_line_stock();
CREATE TRIGGER TR_ICStockBillEntry_QtyDel AFTER DELETE ON ICStockBillEntry
    FOR EACH ROW EXECUTE FUNCTION kept_line_stock();
CREATE TRIGGER TR_ICStockBillEntry_QtyUpd
    AFTER UPDATE OF FInterID, FEntryID, FItemID, FQty, FRefTranType ON ICStockBillEntry
    FOR EACH ROW EXECUTE FUNCTION kept_line_stock();
CREATE TRIGGER TR_ICStockBill_QtyIns AFTER INSERT ON ICStockBill
    FOR EACH ROW EXECUTE FUNCTION kept_bill_stock();
CREATE TRIGGER TR_ICStockBill_QtyDel BEFORE DELETE ON ICStockBill
    FOR EACH ROW EXECUTE FUNCTION kept_bill_stock();
CREATE TRIGGER TR_ICStockBill_QtyUpd
    AFTER UPDATE OF FInterID, FTranType, FDeleted, FInStockID, FOutStockID ON ICStockBill
    FOR EACH ROW EXECUTE FUNCTION kept_bill_stock();
CREATE TRIGGER TR_ICInitData_QtyIns AFTER INSERT ON ICInitData
    FOR EACH ROW EXECUTE FUNCTION kept_opening_stock();
CREATE TRIGGER TR_ICInitData_QtyDel AFTER DELETE ON ICInitData
    FOR EACH ROW EXECUTE FUNCTION kept_opening_stock();
CREATE TRIGGER TR_ICInitData_QtyUpd AFTER UPDATE ON ICInitData
    FOR EACH ROW EXECUTE FUNCTION kept_opening_stock();

-- ICStockBillEntry.FHeadTranType: the kind of the line's bill, copied from its header (NULL while
-- the header is not written). Statements that join headers to lines and pick the bills by kind
-- ("t1.FTranType in (17,27,99) and t1.FInterID>... and t2.FItemID=...", the price propagation
-- runs two such for every later receipt) would otherwise visit every line of the item after the
-- bill, whatever its kind. The translator adds the same kind test on this column when a
-- statement has that form (it learns of the copy from the view t_KeptCopies), and the index
-- below then visits only the lines of the kinds asked for.
CREATE INDEX IX_ICStockBillEntry_ItemKind ON ICStockBillEntry (FItemID, FHeadTranType, FInterID);

CREATE FUNCTION kept_line_kind() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    NEW.FHeadTranType := (SELECT h.FTranType FROM ICStockBill h WHERE h.FInterID = NEW.FInterID);
    RETURN NEW;
END $$;

CREATE FUNCTION kept_bill_kind() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    IF TG_OP IN ('DELETE', 'UPDATE') THEN
        UPDATE ICStockBillEntry SET FHeadTranType = NULL
        WHERE FInterID = OLD.FInterID AND FHeadTranType IS NOT NULL;
    END IF;
    IF TG_OP IN ('INSERT', 'UPDATE') THEN
        UPDATE ICStockBillEntry SET FHeadTranType = NEW.FTranType
        WHERE FInterID = NEW.FInterID AND FHeadTranType IS DISTINCT FROM NEW.FTranType;
    END IF;
    RETURN NULL;
END $$;

CREATE TRIGGER TR_ICStockBillEntry_KindIns BEFORE INSERT ON ICStockBillEntry
    FOR EACH ROW EXECUTE FUNCTION kept_line_kind();
CREATE TRIGGER TR_ICStockBillEntry_KindUpd BEFORE UPDATE OF FInterID ON ICStockBillEntry
    FOR EACH ROW EXECUTE FUNCTION kept_line_kind();
CREATE TRIGGER TR_ICStockBill_KindIns AFTER INSERT ON ICStockBill
    FOR EACH ROW EXECUTE FUNCTION kept_bill_kind();
CREATE TRIGGER TR_ICStockBill_KindUpd AFTER UPDATE OF FInterID, FTranType ON ICStockBill
    FOR EACH ROW EXECUTE FUNCTION kept_bill_kind();
CREATE TRIGGER TR_ICStockBill_KindDel AFTER DELETE ON ICStockBill
    FOR EACH ROW EXECUTE FUNCTION kept_bill_kind();

-- The columns that the triggers copy, for the translator.
CREATE VIEW t_KeptCopies (FTable, FColumn, FFromTable, FFromColumn, FKey) AS VALUES
    ('ICStockBillEntry', 'FHeadTranType', 'ICStockBill', 'FTranType', 'FInterID');

-- Cost recalculation bookkeeping: an item becomes dirty when one of its lines is written,
-- removed or changed in a way that moves quantity or value, when a bill's kind, void mark or
-- period changes, when its opening data changes, and for every item when the current period
-- moves (bills may move across the boundary of what is rewritten). sp_cacucost writes only
-- FUnitCost and FCost, which make nothing dirty. An item is added only when no row names it.
CREATE FUNCTION kept_dirty_item(item int) RETURNS void LANGUAGE plpgsql AS $$
BEGIN
    IF item IS NOT NULL AND NOT EXISTS (SELECT 1 FROM ICCostDirty c WHERE c.FItemID = item) THEN
        INSERT INTO ICCostDirty (FItemID) VALUES (item);
    END IF;
END $$;

CREATE FUNCTION kept_dirty_bill_items(inter int) RETURNS void LANGUAGE plpgsql AS $$
BEGIN
    INSERT INTO ICCostDirty (FItemID)
    SELECT DISTINCT e.FItemID FROM ICStockBillEntry e
    WHERE e.FInterID = inter AND e.FItemID IS NOT NULL
      AND NOT EXISTS (SELECT 1 FROM ICCostDirty c WHERE c.FItemID = e.FItemID);
END $$;

CREATE FUNCTION kept_dirty_line() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    IF TG_OP IN ('DELETE', 'UPDATE') THEN
        PERFORM kept_dirty_item(OLD.FItemID);
    END IF;
    IF TG_OP IN ('INSERT', 'UPDATE') THEN
        PERFORM kept_dirty_item(NEW.FItemID);
    END IF;
    RETURN NULL;
END $$;

CREATE FUNCTION kept_dirty_bill() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    IF TG_OP = 'UPDATE' AND OLD.FInterID IS DISTINCT FROM NEW.FInterID THEN
        PERFORM kept_dirty_bill_items(OLD.FInterID);
    END IF;
    PERFORM kept_dirty_bill_items(NEW.FInterID);
    RETURN NULL;
END $$;

CREATE FUNCTION kept_dirty_all() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    INSERT INTO ICCostDirty (FItemID)
    SELECT DISTINCT e.FItemID FROM ICStockBillEntry e
    WHERE e.FItemID IS NOT NULL
      AND NOT EXISTS (SELECT 1 FROM ICCostDirty c WHERE c.FItemID = e.FItemID);
    RETURN NULL;
END $$;

CREATE TRIGGER TR_ICStockBillEntry_CostIns AFTER INSERT ON ICStockBillEntry
    FOR EACH ROW WHEN (NEW.FItemID IS NOT NULL) EXECUTE FUNCTION kept_dirty_line();
CREATE TRIGGER TR_ICStockBillEntry_CostDel AFTER DELETE ON ICStockBillEntry
    FOR EACH ROW WHEN (OLD.FItemID IS NOT NULL) EXECUTE FUNCTION kept_dirty_line();
CREATE TRIGGER TR_ICStockBillEntry_CostUpd
    AFTER UPDATE OF FInterID, FEntryID, FItemID, FQty, FPrice, FAmount, FRefTranType
    ON ICStockBillEntry
    FOR EACH ROW EXECUTE FUNCTION kept_dirty_line();
CREATE TRIGGER TR_ICStockBill_CostIns AFTER INSERT ON ICStockBill
    FOR EACH ROW EXECUTE FUNCTION kept_dirty_bill();
CREATE TRIGGER TR_ICStockBill_CostUpd
    AFTER UPDATE OF FInterID, FTranType, FDeleted, FDate, FYear, FPeriod ON ICStockBill
    FOR EACH ROW EXECUTE FUNCTION kept_dirty_bill();
CREATE TRIGGER TR_ICInitData_CostIns AFTER INSERT ON ICInitData
    FOR EACH ROW WHEN (NEW.FItemID IS NOT NULL) EXECUTE FUNCTION kept_dirty_line();
CREATE TRIGGER TR_ICInitData_CostDel AFTER DELETE ON ICInitData
    FOR EACH ROW WHEN (OLD.FItemID IS NOT NULL) EXECUTE FUNCTION kept_dirty_line();
CREATE TRIGGER TR_ICInitData_CostUpd AFTER UPDATE ON ICInitData
    FOR EACH ROW EXECUTE FUNCTION kept_dirty_line();
CREATE TRIGGER TR_t_SystemProfile_CostUpd AFTER UPDATE OF FValue ON t_SystemProfile
    FOR EACH ROW
    WHEN (NEW.FKey IN ('CurrentYear', 'CurrentPeriod') AND OLD.FValue IS DISTINCT FROM NEW.FValue)
    EXECUTE FUNCTION kept_dirty_all();

-- Stock on hand of one item in one stock, leaving out one bill: the opening quantity plus the
-- signed quantities of the lines of every live bill. Adjustment rows (negative FEntryID) never
-- move stock, pre-sent rows (no FEntryID) do, and a POS line that sells goods lent by a kind-27
-- bill moved nothing more: they left with the lending bill. Lines whose header is not written
-- yet do not count. Read as the kept balance less what the named bill's own lines moved: a few
-- rows and one bill's lines, however long the item's history is.
CREATE FUNCTION sp_getstockqty(stockid int, itemid int, interid int,
                               OUT rtnqty double precision)
LANGUAGE plpgsql STABLE AS $$
BEGIN
    rtnqty := (
        coalesce((SELECT sum(q.FQty) FROM ICStockQty q
                  WHERE q.FStockID = stockid AND q.FItemID = itemid), 0)
      - coalesce((
            SELECT sum(
                  CASE WHEN h.FInStockID = stockid THEN
                      CASE WHEN h.FTranType IN (112, 115, 17, 31) THEN e.FQty
                           WHEN h.FTranType = 114 THEN -e.FQty
                           ELSE 0 END
                  ELSE 0 END
                + CASE WHEN h.FOutStockID = stockid AND h.FTranType IN (99, 125, 27, 31)
                       THEN -e.FQty ELSE 0 END)
            FROM ICStockBillEntry e
            JOIN ICStockBill h ON h.FInterID = e.FInterID
            WHERE e.FItemID = itemid AND e.FInterID = interid
              AND coalesce(h.FDeleted, 0) = 0
              AND (e.FEntryID IS NULL OR e.FEntryID >= 0)
              AND NOT (h.FTranType = 99 AND coalesce(e.FRefTranType, 0) = 27)
              AND (h.FInStockID = stockid OR h.FOutStockID = stockid)), 0))::double precision;
END $$;

-- A value rounded to 4 decimals, halves away from zero, in binary floating point as the
-- embedded engine rounds a cost (round() on double precision would round halves to even).
CREATE FUNCTION kept_round4(v double precision) RETURNS double precision
LANGUAGE plpgsql IMMUTABLE AS $$
DECLARE
    scaled double precision := v * 10000.0;
    whole double precision := round(scaled);
BEGIN
    IF abs(scaled - trunc(scaled)) = 0.5 THEN
        whole := trunc(scaled) + sign(scaled);
    END IF;
    RETURN whole / 10000.0;
END $$;

-- A setting as a whole number: its leading digits, 0 when there are none or no row.
CREATE FUNCTION kept_setting(key text) RETURNS bigint LANGUAGE sql STABLE AS $$
    SELECT coalesce((SELECT substring(btrim(p.FValue::text) COLLATE "C" FROM '^[-+]?[0-9]+')::bigint
                     FROM t_SystemProfile p WHERE p.FKey = key), 0)
$$;

-- Cost recalculation for the items whose lines changed since the last run (ICCostDirty, kept by
-- the triggers above): a moving weighted average per item over the lines of live bills in
-- interior-id order, starting from the opening stock (or, without any, from the item's
-- FPjCost). All lines of the item in one bill move together, as one quantity at the bill's
-- average price. Stock-in lines (112, 115, 17, the receiving side of 31) add their quantity at
-- their own price, 114 takes its quantity out at its own price, stock-out lines (99, 125, 27)
-- are costed at the running average, which the bill's lines share; a running quantity of 0 or
-- less keeps the last average, and stock below zero is valued at the incoming price when goods
-- arrive. Only bills of the current period (CurrentYear/CurrentPeriod) or later are written;
-- earlier ones feed the average; rows already holding the right cost are left alone.
-- t_ICItem.FPjCost receives the final average. The arithmetic is binary floating point, as on
-- the embedded engine. Runs inside the caller's transaction; a failure undoes the whole call.
CREATE FUNCTION sp_cacucost() RETURNS void LANGUAGE plpgsql AS $$
DECLARE
    first_writable bigint := kept_setting('CurrentYear') * 12 + kept_setting('CurrentPeriod');
    item int;
    b record;
    qty double precision;
    average double precision;
    base double precision;
    value double precision;
    opening_value double precision;
    known boolean;
    unit numeric;
BEGIN
    FOR item IN SELECT DISTINCT c.FItemID FROM ICCostDirty c ORDER BY c.FItemID LOOP
        SELECT coalesce(sum(i.FQty), 0)::double precision,
               coalesce(sum(i.FAmount), 0)::double precision
        INTO qty, opening_value
        FROM ICInitData i WHERE i.FItemID = item;
        average := 0;
        known := qty > 0;
        IF known THEN
            average := opening_value / qty;
        ELSE
            average := coalesce((SELECT m.FPjCost FROM t_ICItem m WHERE m.FItemID = item), 0);
        END IF;

        FOR b IN
            SELECT h.FInterID AS inter, h.FTranType AS kind,
                   coalesce(h.FYear, extract(year FROM h.FDate)::int, 0) * 12
                       + coalesce(h.FPeriod, extract(month FROM h.FDate)::int, 0) AS period,
                   coalesce(sum(e.FQty), 0)::double precision AS in_qty,
                   coalesce(sum(coalesce(e.FQty, 0) * coalesce(e.FPrice, 0)), 0)::double precision
                       AS in_value,
                   coalesce(sum(CASE WHEN h.FTranType = 99 AND coalesce(e.FRefTranType, 0) = 27
                                     THEN 0 ELSE e.FQty END), 0)::double precision AS out_qty
            FROM ICStockBillEntry e
            JOIN ICStockBill h ON h.FInterID = e.FInterID
            WHERE e.FItemID = item AND coalesce(h.FDeleted, 0) = 0
              AND (e.FEntryID IS NULL OR e.FEntryID >= 0)
              AND h.FTranType IN (17, 27, 31, 99, 112, 114, 115, 125)
            GROUP BY h.FInterID ORDER BY h.FInterID
        LOOP
            IF b.kind IN (31, 112, 115, 17) THEN
                -- A transfer's issuing side leaves at the average and its receiving side comes
                -- in at the line's own price: the quantity stays, the value moves.
                IF b.kind = 31 THEN
                    qty := qty - b.in_qty;
                END IF;
                -- Stock that went below zero is valued at the incoming price, so an oversold
                -- item does not distort the average of the goods that arrive.
                base := CASE WHEN qty > 0 THEN qty * average
                             WHEN b.in_qty <> 0 THEN qty * (b.in_value / b.in_qty)
                             ELSE 0 END;
                qty := qty + b.in_qty;
                IF qty > 0 THEN
                    average := (base + b.in_value) / qty;
                END IF;
                known := true;
            ELSIF b.kind = 114 THEN
                value := qty * average - b.in_value;
                qty := qty - b.in_qty;
                IF qty > 0 THEN
                    average := value / qty;
                END IF;
            ELSE
                qty := qty - b.out_qty;
                IF b.period >= first_writable THEN
                    unit := kept_round4(average)::numeric;
                    UPDATE ICStockBillEntry
                    SET FUnitCost = unit, FCost = round(coalesce(FQty, 0) * unit, 4)
                    WHERE FInterID = b.inter AND FItemID = item
                      AND (FEntryID IS NULL OR FEntryID >= 0)
                      AND (FUnitCost IS DISTINCT FROM unit
                           OR FCost IS DISTINCT FROM round(coalesce(FQty, 0) * unit, 4));
                END IF;
            END IF;
        END LOOP;

        IF known THEN
            UPDATE t_ICItem SET FPjCost = kept_round4(average) WHERE FItemID = item;
        END IF;
        DELETE FROM ICCostDirty WHERE FItemID = item;
    END LOOP;
END $$;
