# The library and its clients share one C++ runtime, because PError values are
# thrown across DLL boundaries. The MinGW runtime DLLs are copied beside the
# binaries (and installed with them) so that Windows and Wine find them.
set(QVBASE_MINGW_RUNTIME_DLLS "")
foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libgcc_s_dw2-1.dll libwinpthread-1.dll)
  execute_process(
    COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
    OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(IS_ABSOLUTE "${path}" AND EXISTS "${path}")
    list(APPEND QVBASE_MINGW_RUNTIME_DLLS "${path}")
  endif()
endforeach()
if(NOT QVBASE_MINGW_RUNTIME_DLLS)
  message(FATAL_ERROR "Cannot find the MinGW C++ runtime DLLs next to ${CMAKE_CXX_COMPILER}")
endif()
file(MAKE_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
file(COPY ${QVBASE_MINGW_RUNTIME_DLLS} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
