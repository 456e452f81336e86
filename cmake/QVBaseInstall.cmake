# Installation and the CMake package: after installing, a client project does
#   find_package(qvbase 1.2 REQUIRED)
#   target_link_libraries(app PRIVATE qvbase::qvbase12)
# and the component registry's C API is qvbase::QVComponent.
include(CMakePackageConfigHelpers)

set(QVBASE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qvbase)

install(TARGETS qvbase12 QVComponent
  EXPORT qvbaseTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/qvcomponent/include/QVResModule.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/qvbase
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/qvcomponent/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_BINARY_DIR}/include/qvbase/QVVersion.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qvbase)
if(WIN32)
  install(FILES ${QVBASE_MINGW_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT qvbaseTargets
  NAMESPACE qvbase::
  DESTINATION ${QVBASE_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/qvbaseConfig.cmake.in
  ${PROJECT_BINARY_DIR}/qvbaseConfig.cmake
  INSTALL_DESTINATION ${QVBASE_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qvbaseConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/qvbaseConfig.cmake
  ${PROJECT_BINARY_DIR}/qvbaseConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/QVBaseResources.cmake
  DESTINATION ${QVBASE_CMAKE_DIR})

# pkg-config: the same library for Makefile projects. The file finds the
# prefix from its own place (${pcfiledir}), so that a copy installed with
# --prefix or staged with DESTDIR, then moved, still describes itself.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  message(FATAL_ERROR "qvbase12.pc needs CMAKE_INSTALL_LIBDIR and CMAKE_INSTALL_INCLUDEDIR relative to the prefix")
endif()
file(RELATIVE_PATH QVBASE_PC_TO_PREFIX "/p/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/p")
configure_file(${PROJECT_SOURCE_DIR}/cmake/qvbase12.pc.in
  ${PROJECT_BINARY_DIR}/qvbase12.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qvbase12.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
