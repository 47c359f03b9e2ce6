#include <sqlite3.h>

#include <string>

#include "billdata/ado/com_error.h"
#include "billdata/schema/schema.h"

namespace billdata::schema {

namespace {

// Master data of a small chain: a warehouse and two shops, goods with and without size groups,
// suppliers (the same ids in t_Item and t_Supplier), customers, accounts, sales staff, users
// with and without list restrictions, and members (the same ids in Vip and t_VipCard). Plain
// INSERT statements that the embedded engine and PostgreSQL both run as they are.
constexpr std::string_view kDemoData = R"billdata_demo(
INSERT INTO t_Stock (FItemID, FNumber, FName) VALUES
    (1, '01', '总仓 Main warehouse'),
    (2, '02', '南京路店 Nanjing Rd shop'),
    (3, '03', '淮海路店 Huaihai Rd shop');

INSERT INTO t_Account (FItemID, FNumber, FName) VALUES
    (1, '1001', '现金 Cash'),
    (2, '1002', '工商银行 ICBC bank account');

INSERT INTO t_Emp (FItemID, FNumber, FName) VALUES
    (1, 'E01', '张敏 Zhang Min'),
    (2, 'E02', '李娜 Li Na'),
    (3, 'E03', '王强 Wang Qiang'),
    (4, 'E04', '陈静 Chen Jing');

INSERT INTO t_User (FUserID, FUserName, FDays, FStockID) VALUES
    (1, 'admin', 0, 0),
    (2, '店长李 Manager Li', 30, 2),
    (3, '收银王 Cashier Wang', 7, 3),
    (4, '访客 Guest', NULL, NULL);

INSERT INTO t_Item (FItemID, FItemClassID, FNumber, FName) VALUES
    (101, 2, 'S101', '美邦服饰 Metro Apparel'),
    (102, 2, 'S102', '森马纺织 Senma Textiles'),
    (103, 2, 'S103', '江南布衣 Jiangnan Cloth'),
    (201, 1, 'C201', '华联商厦 Hualian Department Store'),
    (202, 1, 'C202', '东方团购 Orient Group Buying');

INSERT INTO t_Supplier (FItemID, FNumber, FName, FContact, FTel) VALUES
    (101, 'S101', '美邦服饰 Metro Apparel', '周先生 Mr Zhou', '021-60000101'),
    (102, 'S102', '森马纺织 Senma Textiles', '吴女士 Ms Wu', '0577-60000102'),
    (103, 'S103', '江南布衣 Jiangnan Cloth', '郑先生 Mr Zheng', '0571-60000103');

INSERT INTO t_SizeGroup (FItemID, FName) VALUES
    (1, '上衣 Tops S-XL'),
    (2, '裤装 Trousers 28-34');

INSERT INTO t_Size (FItemID, FGroupID, FIndex, FNumber, FName) VALUES
    (1, 1, 1, 'S', 'S'), (2, 1, 2, 'M', 'M'), (3, 1, 3, 'L', 'L'), (4, 1, 4, 'XL', 'XL'),
    (5, 2, 1, '28', '28'), (6, 2, 2, '30', '30'), (7, 2, 3, '32', '32'), (8, 2, 4, '34', '34');

INSERT INTO t_Color (FItemID, FNumber, FName) VALUES
    (1, 'BK', '黑色'), (2, 'WH', '白色'), (3, 'BL', '蓝色'), (4, 'RD', '红色'), (5, 'GY', '灰色');

INSERT INTO t_ICItem (FItemID, FNumber, FName, FUnit, FProductNo, FSizeID, FPurYear, FQuarter,
                      FRetailPrice, FRetailPrice_2, FJfFactor, FPurPrice, FSupplierID, FPjCost) VALUES
    (1, 'A1001', '纯棉T恤 Cotton T-shirt', '件', 'MB-T01', 1, '2024', '2', 99, 89, 1, 40, 101, 40),
    (2, 'A1002', '牛津衬衫 Oxford shirt', '件', 'MB-S02', 1, '2024', '3', 199, 179, 1, 85, 101, 85),
    (3, 'B2001', '修身牛仔裤 Slim jeans', '条', 'SM-J01', 2, '2024', '3', 259, 229, 1.5, 110, 102, 110),
    (4, 'B2002', '休闲裤 Chino trousers', '条', 'SM-C02', 2, '2025', '1', 229, 199, 1, 95, 102, 95),
    (5, 'C3001', '真皮腰带 Leather belt', '条', 'JN-B01', 0, '2024', '4', 129, 119, 1, 45, 103, 45),
    (6, 'C3002', '羊毛围巾 Wool scarf', '条', 'JN-W02', 0, '2025', '1', 159, 139, 0, 60, 103, 60),
    (7, 'C3003', '棉袜三双装 Cotton socks 3-pack', '包', 'JN-S03', 0, '2025', '1', 39, 35, 1, 12, 103, 12);

INSERT INTO t_VipCard (FItemID, FNumber, FName) VALUES
    (1001, 'V0001', '刘洋 Liu Yang'),
    (1002, 'V0002', '赵丽 Zhao Li'),
    (1003, 'V0003', '孙磊 Sun Lei');

INSERT INTO Vip (FVipID, FVipNo, FOwner, FMobile, FSumJf, FSumJf_Un, FSumBuyAmount, FBogus) VALUES
    (1001, 'V0001', '刘洋 Liu Yang', '13800000001', 240, 120, 2400, 0),
    (1002, 'V0002', '赵丽 Zhao Li', '13800000002', 80, 80, 800, 0),
    (1003, 'V0003', '孙磊 Sun Lei', '13800000003', 0, 0, 0, 1);

INSERT INTO ICInitData (FStockID, FItemID, FQty, FAmount, FPrice) VALUES
    (1, 1, 100, 4000, 40), (1, 2, 50, 4250, 85), (1, 3, 60, 6600, 110),
    (1, 5, 30, 1350, 45), (1, 6, 20, 1200, 60),
    (2, 1, 20, 800, 40), (2, 3, 10, 1100, 110), (2, 7, 100, 1200, 12),
    (3, 2, 10, 850, 85), (3, 4, 15, 1425, 95);

INSERT INTO ICInitData_Entry (FStockID, FItemID, FColor, FSizeID, FQty) VALUES
    (1, 1, '黑色', 1, 20), (1, 1, '黑色', 2, 30), (1, 1, '白色', 2, 30), (1, 1, '白色', 3, 20),
    (1, 2, '蓝色', 2, 20), (1, 2, '蓝色', 3, 20), (1, 2, '白色', 4, 10),
    (1, 3, '蓝色', 5, 10), (1, 3, '蓝色', 6, 20), (1, 3, '蓝色', 7, 20), (1, 3, '黑色', 8, 10),
    (1, 5, '', 0, 30), (1, 6, '', 0, 20),
    (2, 1, '黑色', 2, 10), (2, 1, '白色', 3, 10),
    (2, 3, '蓝色', 6, 5), (2, 3, '蓝色', 7, 5),
    (2, 7, '', 0, 100),
    (3, 2, '白色', 2, 5), (3, 2, '白色', 3, 5),
    (3, 4, '灰色', 6, 5), (3, 4, '灰色', 7, 10);

INSERT INTO WLInitData (FItemClassID, FOrgaID, FAmount) VALUES
    (2, 101, 5000), (2, 102, 3200), (1, 201, 1800);

INSERT INTO CashInitData (FItemClassID, FItemID, FAmount) VALUES
    (1, 1, 5000), (1, 2, 120000);
)billdata_demo";

}  // namespace

std::string_view demo_data_sql() {
    return kDemoData;
}

void add_demo_data(sqlite3* db) {
    char* msg = nullptr;
    // The literal ends in its terminating NUL.
    if (sqlite3_exec(db, kDemoData.data(), nullptr, nullptr, &msg) != SQLITE_OK) {
        std::string text = msg ? msg : sqlite3_errmsg(db);
        sqlite3_free(msg);
        throw ado::ComError(ado::err::kDatabase, "demo data: " + text);
    }
}

}  // namespace billdata::schema
