set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME billdata)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "billdata developers <billdata@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "bill data of an apparel back office with point-of-sale tills")
set(CPACK_PACKAGE_DESCRIPTION
    "A library that a front end loads to save, change, void, restore, delete, audit and list its
business documents (bills) in a database that speaks SQL Server's dialect, by default an embedded
SQLite file, and the billdata command-line program over it: the classes called by name with JSON
arguments, a narrated demo, new databases. Includes the headers and CMake package files for
programs built against the library, and the SQL Server schema script.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION database)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The shared library's soname in the package's shlibs file, and the ldconfig trigger.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# Building against the headers needs SQLite's: find_package(billdata) looks for it.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libsqlite3-dev, libpq-dev, unixodbc-dev, pkg-config")
set(CPACK_STRIP_FILES ON)
include(CPack)
