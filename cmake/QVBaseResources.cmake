# Resource modules, built from .rc sources with a standard resource compiler.
#
#   qvbase_add_resource_module(NAME <name> SOURCES <file.rc>
#                              [INCLUDE_DIRECTORIES <dir>...]
#                              [DEPENDS <file>...]
#                              [OUTPUT_DIRECTORY <dir>])
#
# One .rc source makes the module on every target:
#   - Windows: the resource-only DLL <name>.dll (no code, no entry point),
#     compiled by windres and linked by the compiler driver, which the
#     system loads as a data file;
#   - elsewhere: the compiled resource file <name>.res (llvm-rc, else a
#     windres with -O res), which QVComponent reads directly.
# The module lands where the project's shared libraries land (the runtime
# output directory on Windows, the library output directory elsewhere) unless
# OUTPUT_DIRECTORY says where. The
# target <name> builds it with ALL; its property QVBASE_RESOURCE_FILE holds
# the module's full path, for install(FILES) and for tests:
#
#   qvbase_add_resource_module(NAME MyAppRes10 SOURCES res/MyAppRes10.rc)
#   install(FILES $<TARGET_PROPERTY:MyAppRes10,QVBASE_RESOURCE_FILE>
#           DESTINATION ${CMAKE_INSTALL_BINDIR})
#
# The .rc is preprocessed with RC_INVOKED defined and its own folder and
# INCLUDE_DIRECTORIES on the include path; headers it includes are listed
# in DEPENDS, so that changing them rebuilds the module.

include_guard(GLOBAL)

# Where the module lands when nothing says otherwise: beside the shared
# libraries, as the code that loads it looks for it there.
function(_qvbase_resource_output_directory out)
  if(WIN32 AND CMAKE_RUNTIME_OUTPUT_DIRECTORY)
    set(${out} "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}" PARENT_SCOPE)
  elseif(NOT WIN32 AND CMAKE_LIBRARY_OUTPUT_DIRECTORY)
    set(${out} "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}" PARENT_SCOPE)
  else()
    set(${out} "${CMAKE_CURRENT_BINARY_DIR}" PARENT_SCOPE)
  endif()
endfunction()

# The resource compiler: windres for Windows targets (the toolchain's own),
# llvm-rc elsewhere, else any windres that can write .res files.
function(_qvbase_find_resource_compiler)
  if(QVBASE_RC_COMPILER)
    return()
  endif()
  if(WIN32)
    if(CMAKE_RC_COMPILER)
      set(compiler "${CMAKE_RC_COMPILER}")
    else()
      find_program(compiler NAMES windres NO_CACHE)
    endif()
    set(kind windres)
  else()
    find_program(compiler NAMES llvm-rc llvm-rc-16 llvm-rc-15 llvm-rc-14 NO_CACHE)
    set(kind llvm-rc)
    if(NOT compiler)
      find_program(compiler NAMES windres x86_64-w64-mingw32-windres i686-w64-mingw32-windres
        NO_CACHE)
      set(kind windres)
    endif()
  endif()
  if(NOT compiler)
    message(FATAL_ERROR "No resource compiler found (llvm-rc, or windres for Windows targets); "
      "on Debian: apt-get install llvm clang (tools/setup.sh does it)")
  endif()
  set(QVBASE_RC_COMPILER "${compiler}" CACHE FILEPATH "Resource compiler for .rc sources")
  set(QVBASE_RC_KIND "${kind}" CACHE INTERNAL "llvm-rc or windres")
endfunction()

# Compiles `source` into the compiled resource file `output`.
function(_qvbase_compile_res source output includes depends)
  set(include_flags)
  get_filename_component(source_dir "${source}" DIRECTORY)
  foreach(dir IN LISTS source_dir includes)
    if(QVBASE_RC_KIND STREQUAL "llvm-rc")
      list(APPEND include_flags /I "${dir}")
    else()
      list(APPEND include_flags "--include-dir=${dir}")
    endif()
  endforeach()
  if(QVBASE_RC_KIND STREQUAL "llvm-rc")
    # llvm-rc takes options with a slash, so an absolute POSIX path given as
    # the input reads as an option ("/check/..." is "/C heck/..."): "--" ends
    # the options before it.
    set(command "${QVBASE_RC_COMPILER}" ${include_flags} /FO "${output}" -- "${source}")
  else()
    set(command "${QVBASE_RC_COMPILER}" ${include_flags} -O res -o "${output}" "${source}")
  endif()
  add_custom_command(OUTPUT "${output}"
    COMMAND ${command}
    DEPENDS "${source}" ${depends}
    COMMENT "Compiling resources ${source}"
    VERBATIM)
endfunction()

function(qvbase_add_resource_module)
  cmake_parse_arguments(ARG "" "NAME;OUTPUT_DIRECTORY" "SOURCES;INCLUDE_DIRECTORIES;DEPENDS"
    ${ARGN})
  if(NOT ARG_NAME)
    message(FATAL_ERROR "qvbase_add_resource_module: NAME is required")
  endif()
  list(LENGTH ARG_SOURCES source_count)
  if(NOT source_count EQUAL 1)
    message(FATAL_ERROR "qvbase_add_resource_module(${ARG_NAME}): give exactly one .rc in SOURCES")
  endif()
  get_filename_component(source "${ARG_SOURCES}" ABSOLUTE)
  if(ARG_OUTPUT_DIRECTORY)
    set(output_dir "${ARG_OUTPUT_DIRECTORY}")
  else()
    _qvbase_resource_output_directory(output_dir)
  endif()
  _qvbase_find_resource_compiler()
  set(work "${CMAKE_CURRENT_BINARY_DIR}/${ARG_NAME}.resources")

  if(WIN32)
    set(output "${output_dir}/${ARG_NAME}.dll")
    set(object "${work}/${ARG_NAME}.o")
    set(include_flags)
    get_filename_component(source_dir "${source}" DIRECTORY)
    foreach(dir IN LISTS source_dir ARG_INCLUDE_DIRECTORIES)
      list(APPEND include_flags "--include-dir=${dir}")
    endforeach()
    add_custom_command(OUTPUT "${object}"
      COMMAND "${CMAKE_COMMAND}" -E make_directory "${work}"
      COMMAND "${QVBASE_RC_COMPILER}" ${include_flags} -O coff -o "${object}" "${source}"
      DEPENDS "${source}" ${ARG_DEPENDS}
      COMMENT "Compiling resources ${source}"
      VERBATIM)
    # Data only: no start files, no runtime, entry point address 0.
    add_custom_command(OUTPUT "${output}"
      COMMAND "${CMAKE_COMMAND}" -E make_directory "${output_dir}"
      COMMAND "${CMAKE_CXX_COMPILER}" -shared -nostdlib "-Wl,-e,0" "-Wl,--no-insert-timestamp"
        -o "${output}" "${object}"
      DEPENDS "${object}"
      COMMENT "Linking resource module ${ARG_NAME}.dll"
      VERBATIM)
  else()
    set(output "${output_dir}/${ARG_NAME}.res")
    file(MAKE_DIRECTORY "${output_dir}")
    _qvbase_compile_res("${source}" "${output}" "${ARG_INCLUDE_DIRECTORIES}" "${ARG_DEPENDS}")
  endif()

  add_custom_target(${ARG_NAME} ALL DEPENDS "${output}" SOURCES "${source}")
  set_target_properties(${ARG_NAME} PROPERTIES QVBASE_RESOURCE_FILE "${output}")
endfunction()

# For the tests of the module reader on platforms other than Windows: the
# same .rc also linked into a resource-only PE image <name>.dll (64-bit, or
# 32-bit with MACHINE x86) by lld-link, when it is installed. Sets the
# target's QVBASE_RESOURCE_FILE as above; does nothing without lld-link.
function(qvbase_add_pe_resource_image)
  cmake_parse_arguments(ARG "" "NAME;MACHINE;OUTPUT_DIRECTORY" "SOURCES;INCLUDE_DIRECTORIES;DEPENDS"
    ${ARGN})
  find_program(QVBASE_LLD_LINK NAMES lld-link lld-link-16 lld-link-15 lld-link-14)
  if(NOT QVBASE_LLD_LINK OR WIN32)
    return()
  endif()
  _qvbase_find_resource_compiler()
  if(NOT ARG_MACHINE)
    set(ARG_MACHINE x64)
  endif()
  get_filename_component(source "${ARG_SOURCES}" ABSOLUTE)
  set(output_dir "${ARG_OUTPUT_DIRECTORY}")
  if(NOT output_dir)
    _qvbase_resource_output_directory(output_dir)
  endif()
  set(work "${CMAKE_CURRENT_BINARY_DIR}/${ARG_NAME}.resources")
  file(MAKE_DIRECTORY "${work}" "${output_dir}")
  set(res "${work}/${ARG_NAME}.res")
  set(output "${output_dir}/${ARG_NAME}.dll")
  _qvbase_compile_res("${source}" "${res}" "${ARG_INCLUDE_DIRECTORIES}" "${ARG_DEPENDS}")
  add_custom_command(OUTPUT "${output}"
    COMMAND "${QVBASE_LLD_LINK}" /dll /noentry /machine:${ARG_MACHINE} /out:${output} "${res}"
    DEPENDS "${res}"
    COMMENT "Linking PE resource image ${ARG_NAME}.dll"
    VERBATIM)
  add_custom_target(${ARG_NAME} ALL DEPENDS "${output}")
  set_target_properties(${ARG_NAME} PROPERTIES QVBASE_RESOURCE_FILE "${output}")
endfunction()
