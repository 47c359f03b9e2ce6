#!/usr/bin/env bash
# Builds billdata and runs the demo on a fresh embedded database.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh build -DBILLDATA_BUILD_TESTS=OFF -DBILLDATA_BUILD_BENCH=OFF
db="$(mktemp -d)/shop.db"
./build/tools/billdata/billdata init "$db" --demo
./build/tools/billdata/billdata sql --db "$db" \
  "select t1.FItemID,t1.FNumber,t1.FName,t1.FUnit,isnull(t2.FName,'') as FSupplier from t_ICItem t1 left join t_Supplier t2 on t1.FSupplierID=t2.FItemID order by t1.FNumber"
./build/tools/billdata/billdata sql --db "$db" \
  "select FKey,FValue from t_SystemProfile order by FKey"
