# DuckDB for the Arrow tests and example, when scripts/fetch-duckdb.sh
# has put libduckdb.so and duckdb.h in QEL_DUCKDB_DIR (default: the
# QEL_DUCKDB_DIR environment variable, else ~/.cache/qel-duckdb).  Defines
# the imported target qel_duckdb when both are there; nothing else uses it.
set(_qel_duckdb_default "$ENV{QEL_DUCKDB_DIR}")
if(NOT _qel_duckdb_default)
  set(_qel_duckdb_default "$ENV{HOME}/.cache/qel-duckdb")
endif()
set(QEL_DUCKDB_DIR "${_qel_duckdb_default}" CACHE PATH "Folder holding libduckdb.so and duckdb.h")
if(EXISTS "${QEL_DUCKDB_DIR}/libduckdb.so" AND EXISTS "${QEL_DUCKDB_DIR}/duckdb.h")
  add_library(qel_duckdb SHARED IMPORTED)
  set_target_properties(qel_duckdb PROPERTIES IMPORTED_LOCATION "${QEL_DUCKDB_DIR}/libduckdb.so"
    IMPORTED_NO_SONAME TRUE)
  # The header's folder as a system one: its own warnings are not ours.
  target_include_directories(qel_duckdb SYSTEM INTERFACE "${QEL_DUCKDB_DIR}")
  message(STATUS "qel: DuckDB found in ${QEL_DUCKDB_DIR}")
else()
  message(STATUS "qel: no DuckDB in ${QEL_DUCKDB_DIR} (scripts/fetch-duckdb.sh fetches it); its tests skip")
endif()
