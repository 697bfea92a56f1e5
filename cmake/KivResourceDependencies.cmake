# What the framework links. All three are private to it: no header of theirs shows in ours.

find_package(Threads REQUIRED)
find_package(CURL 7.87 REQUIRED)
find_package(simdjson 3.0 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBZIP REQUIRED IMPORTED_TARGET libzip>=1.7)
