# Cross-compiling for 32-bit Windows with MinGW-w64.
set(QVBASE_MINGW_TRIPLE i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR x86)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-common.cmake)
