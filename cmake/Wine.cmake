# Running Windows binaries of a cross build under Wine. CTest prefixes every
# test command with wine-run.sh, which keeps a Wine prefix private to this
# build tree (created on first use) and one wineserver alive across the run,
# since each Wine process start is expensive.
find_program(QVBASE_WINE64 NAMES wine64 PATHS /usr/lib/wine /usr/lib64/wine NO_CACHE)
find_program(QVBASE_WINESERVER NAMES wineserver PATHS /usr/lib/wine /usr/lib64/wine NO_CACHE)
if(NOT QVBASE_WINE64 OR NOT QVBASE_WINESERVER)
  message(WARNING "wine64 not found: Windows tests are built but cannot run here")
  return()
endif()
set(QVBASE_WINEPREFIX "${CMAKE_BINARY_DIR}/wineprefix")
configure_file(${CMAKE_CURRENT_LIST_DIR}/wine-run.sh.in ${CMAKE_BINARY_DIR}/wine-run.sh
  FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE
  @ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_BINARY_DIR}/wine-run.sh)
