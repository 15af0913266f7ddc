# Every outside library, found once. docs/dependencies.md says what each is for.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(Boost 1.74 REQUIRED)
find_package(fmt REQUIRED)
find_package(spdlog REQUIRED)
# spdlog's own target brings the shared fmt library; the headers are all that is used here.
add_library(nal_spdlog INTERFACE)
target_link_libraries(nal_spdlog INTERFACE fmt::fmt-header-only)
target_compile_definitions(nal_spdlog INTERFACE SPDLOG_FMT_EXTERNAL)

pkg_check_modules(gcrypt REQUIRED IMPORTED_TARGET libgcrypt)
pkg_check_modules(sqlite3 REQUIRED IMPORTED_TARGET sqlite3)

# Berkeley DB 5.3, through its 1.85 interface (db_185.h) and DB->verify (db.h).
find_path(NAL_DB_INCLUDE db_185.h REQUIRED)
find_library(NAL_DB_LIBRARY NAMES db-5.3 db REQUIRED)
add_library(nal_berkeley_db INTERFACE)
target_include_directories(nal_berkeley_db SYSTEM INTERFACE ${NAL_DB_INCLUDE})
target_link_libraries(nal_berkeley_db INTERFACE ${NAL_DB_LIBRARY})

if(NAL_BUILD_TESTS OR NAL_BUILD_BENCH)
  pkg_check_modules(nettle REQUIRED IMPORTED_TARGET nettle)
endif()
if(NAL_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(NAL_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
