# billdata_layer(<name> [DEPENDS <layer>...] [PRIVATE_DEPENDS <layer>...]
#                [EXTRA_DIRS <folder>...] [PRIVATE_HEADERS <folder>...])
#
# One layer of the library: the sources of billdata/<name>/ (and of EXTRA_DIRS, compiled as part
# of it) in an object library billdata_<name>. Its include path is a folder of its own holding
# only billdata/<name> and, through the layers it DEPENDS on, theirs: a header of any other folder
# is simply not there. PRIVATE_DEPENDS and PRIVATE_HEADERS give the layer's own sources headers
# that the layers above it must not see. Appends the layer's objects to BILLDATA_LAYER_OBJECTS.
function(billdata_layer name)
  cmake_parse_arguments(L "" "" "DEPENDS;PRIVATE_DEPENDS;EXTRA_DIRS;PRIVATE_HEADERS" ${ARGN})
  set(view ${PROJECT_BINARY_DIR}/layers/${name})
  billdata_layer_view(${view} ${name})
  set(private_view ${PROJECT_BINARY_DIR}/layers/${name}-private)
  if(L_EXTRA_DIRS OR L_PRIVATE_HEADERS)
    billdata_layer_view(${private_view} ${L_EXTRA_DIRS} ${L_PRIVATE_HEADERS})
  endif()

  set(sources)
  foreach(dir ${name} ${L_EXTRA_DIRS})
    file(GLOB_RECURSE dir_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/billdata/${dir}/*.cpp)
    list(APPEND sources ${dir_sources})
  endforeach()

  set(target billdata_${name})
  if(sources)
    add_library(${target} OBJECT ${sources})
    set(scope PUBLIC)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:billdata_warnings>)
    set_property(GLOBAL APPEND PROPERTY BILLDATA_LAYER_OBJECTS $<TARGET_OBJECTS:${target}>)
  else()
    add_library(${target} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(${target} ${scope} $<BUILD_INTERFACE:${view}>)
  if(L_EXTRA_DIRS OR L_PRIVATE_HEADERS)
    target_include_directories(${target} PRIVATE ${private_view})
  endif()
  foreach(dep ${L_DEPENDS})
    target_link_libraries(${target} ${scope} billdata_${dep})
  endforeach()
  foreach(dep ${L_PRIVATE_DEPENDS})
    target_link_libraries(${target} PRIVATE billdata_${dep})
  endforeach()
  target_link_libraries(${target} ${scope} SQLite::SQLite3 PkgConfig::LIBPQ PkgConfig::ODBC Threads::Threads)
  get_property(objects GLOBAL PROPERTY BILLDATA_LAYER_OBJECTS)
  set(BILLDATA_LAYER_OBJECTS ${objects} PARENT_SCOPE)
endfunction()

# A folder <view>/billdata/ holding links to the named folders of billdata/ and nothing else.
function(billdata_layer_view view)
  file(REMOVE_RECURSE ${view})
  file(MAKE_DIRECTORY ${view}/billdata)
  foreach(dir ${ARGN})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/billdata/${dir} ${view}/billdata/${dir} SYMBOLIC)
  endforeach()
endfunction()
