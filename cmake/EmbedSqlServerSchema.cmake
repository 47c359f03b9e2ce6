# The SQL Server script is kept once, as billdata/schema/sqlserver/billdata.sql, and compiled
# into the library from a generated include: editing the file re-runs the configure step.
set(_billdata_sql ${PROJECT_SOURCE_DIR}/billdata/schema/sqlserver/billdata.sql)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${_billdata_sql})
file(READ ${_billdata_sql} BILLDATA_SQLSERVER_SCRIPT)
string(FIND "${BILLDATA_SQLSERVER_SCRIPT}" ")billdata_sql\"" _billdata_sql_clash)
if(NOT _billdata_sql_clash EQUAL -1)
  message(FATAL_ERROR "billdata.sql must not contain the raw-string delimiter )billdata_sql\"")
endif()
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/billdata/schema/sqlserver_script.inc
     CONTENT "R\"billdata_sql(@BILLDATA_SQLSERVER_SCRIPT@)billdata_sql\"\n" @ONLY)
target_include_directories(billdata_schema PRIVATE ${PROJECT_BINARY_DIR}/generated)
