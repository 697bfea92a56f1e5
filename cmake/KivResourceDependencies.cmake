# The libraries that the framework links. All are private: no public header includes theirs.

find_package(Threads REQUIRED)
find_package(CURL 7.87 REQUIRED)
find_package(simdjson 3.0 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBZIP REQUIRED IMPORTED_TARGET libzip>=1.7)
pkg_check_modules(LIBUTF8PROC REQUIRED IMPORTED_TARGET libutf8proc>=2.5)
