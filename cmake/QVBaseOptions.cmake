# Compiler warnings shared by every target of the project.
add_library(qvbase_warnings INTERFACE)
target_compile_options(qvbase_warnings INTERFACE -Wall -Wextra)
if(QVBASE_WARNINGS_AS_ERRORS)
  target_compile_options(qvbase_warnings INTERFACE -Werror)
endif()
if(WIN32)
  # Target Windows 7 and later; winsock's and the SDK's min/max macros stay off.
  target_compile_definitions(qvbase_warnings INTERFACE _WIN32_WINNT=0x0601 WINVER=0x0601 NOMINMAX)
endif()
