# The libraries that the framework links. All are private: no public header includes theirs.

find_package(Threads REQUIRED)
find_package(CURL 7.87 REQUIRED)
find_package(simdjson 3.0 REQUIRED)
# The checks that it adds to debug builds write to memory that they may not have got. They are the same
# in all files, which share its inline functions.
set_property(TARGET simdjson::simdjson APPEND PROPERTY
  INTERFACE_COMPILE_DEFINITIONS SIMDJSON_DEVELOPMENT_CHECKS=0)
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBZIP REQUIRED IMPORTED_TARGET libzip>=1.7)
pkg_check_modules(LIBUTF8PROC REQUIRED IMPORTED_TARGET libutf8proc>=2.5)
