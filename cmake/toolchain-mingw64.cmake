# Cross-compiling for 64-bit Windows with MinGW-w64.
set(QVBASE_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-common.cmake)
