# What the library needs, from Debian's packages: simdjson (CMake config),
# libcurl, SQLite and expat (pkg-config). libplist writes the sandbox's
# manifests and the tests' binary property lists; the library reads both
# formats itself. The pkg-config targets are global
# and named after the library, so that a project that builds us as a
# subproject sees them and keeps its own names free.
include(GNUInstallDirs)
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(simdjson REQUIRED)
pkg_check_modules(VELTRANE_CURL REQUIRED IMPORTED_TARGET GLOBAL libcurl)
pkg_check_modules(VELTRANE_SQLITE REQUIRED IMPORTED_TARGET GLOBAL sqlite3)
pkg_check_modules(VELTRANE_EXPAT REQUIRED IMPORTED_TARGET GLOBAL expat)
if(VELTRANE_TOOLS OR VELTRANE_TESTS OR VELTRANE_BENCH)
  pkg_check_modules(VELTRANE_PLIST REQUIRED IMPORTED_TARGET GLOBAL libplist-2.0)
  # The sandbox server and the loopback test servers.
  pkg_check_modules(VELTRANE_HTTPLIB REQUIRED IMPORTED_TARGET GLOBAL cpp-httplib)
endif()
