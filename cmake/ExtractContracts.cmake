# The contract comments of the public classes' headers (billdata/<class>/<class>.h, one per
# bind_<class>.cpp) compiled into the server layer, so that `billdata describe` tells a method in
# the words of its header: a build-time tool extracts them into a generated include.
add_executable(billdata_extract_contracts ${PROJECT_SOURCE_DIR}/tools/contracts/extract_contracts.cpp)
target_link_libraries(billdata_extract_contracts PRIVATE billdata_warnings)
file(GLOB _billdata_bindings CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/billdata/server/bind_*.cpp)
set(_billdata_contract_headers)
foreach(binding ${_billdata_bindings})
  get_filename_component(class ${binding} NAME_WE)
  string(REGEX REPLACE "^bind_" "" class ${class})
  list(APPEND _billdata_contract_headers ${PROJECT_SOURCE_DIR}/billdata/${class}/${class}.h)
endforeach()
set(_billdata_contracts ${PROJECT_BINARY_DIR}/generated/billdata/server/contracts.inc)
add_custom_command(OUTPUT ${_billdata_contracts}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/generated/billdata/server
  COMMAND billdata_extract_contracts ${_billdata_contracts} ${_billdata_contract_headers}
  DEPENDS billdata_extract_contracts ${_billdata_contract_headers}
  COMMENT "Extracting the classes' contract comments")
target_sources(billdata_server PRIVATE ${_billdata_contracts})
target_include_directories(billdata_server PRIVATE ${PROJECT_BINARY_DIR}/generated)
