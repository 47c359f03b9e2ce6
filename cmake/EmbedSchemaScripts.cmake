# The server scripts are kept once, as SQL files under billdata/schema/, and compiled into the
# library from generated includes: editing a file re-runs the configure step.
#   billdata_embed_script(<file relative to billdata/schema> <include name>)
# writes generated/billdata/schema/<include name>, a raw string literal of the file's text.
function(billdata_embed_script file include)
  set(path ${PROJECT_SOURCE_DIR}/billdata/schema/${file})
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${path})
  file(READ ${path} BILLDATA_SCRIPT)
  string(FIND "${BILLDATA_SCRIPT}" ")billdata_sql\"" clash)
  if(NOT clash EQUAL -1)
    message(FATAL_ERROR "${file} must not contain the raw-string delimiter )billdata_sql\"")
  endif()
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/billdata/schema/${include}
       CONTENT "R\"billdata_sql(@BILLDATA_SCRIPT@)billdata_sql\"\n" @ONLY)
endfunction()

billdata_embed_script(sqlserver/billdata.sql sqlserver_script.inc)
billdata_embed_script(postgresql/runtime.sql postgresql_runtime.inc)
billdata_embed_script(postgresql/billdata.sql postgresql_script.inc)
target_include_directories(billdata_schema PRIVATE ${PROJECT_BINARY_DIR}/generated)
