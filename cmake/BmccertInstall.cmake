# cmake --install: the public headers, libbmccert.so.1, a CMake package
# (find_package(bmccert) gives bmccert::bmccert) and bmccert.pc. A host
# build installs the stand-in beside the library, which needs it at run
# time and finds it there through $ORIGIN; the tools only when asked.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

option(BMCCERT_INSTALL_TOOLS "Install bmccert and bmc-sandbox with the library" OFF)
set(BMCCERT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/bmccert)

set(bmccert_installed bmccert)
if(BMCCERT_PLATFORM STREQUAL "host")
  list(APPEND bmccert_installed bmcplatform)
  set_target_properties(bmccert PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()
install(TARGETS ${bmccert_installed} EXPORT bmccertTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES
  ${PROJECT_SOURCE_DIR}/include/lib_security_sslcert.h
  ${PROJECT_SOURCE_DIR}/include/lib_security_sslcert_ext.h
  ${PROJECT_SOURCE_DIR}/include/lib_ssl_auth.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

install(EXPORT bmccertTargets NAMESPACE bmccert:: DESTINATION ${BMCCERT_CMAKE_DIR}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/bmccertConfig.cmake.in
  ${PROJECT_BINARY_DIR}/bmccertConfig.cmake INSTALL_DESTINATION ${BMCCERT_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/bmccertConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/bmccertConfig.cmake
  ${PROJECT_BINARY_DIR}/bmccertConfigVersion.cmake
  DESTINATION ${BMCCERT_CMAKE_DIR} COMPONENT development)

# pkg-config: the platform libraries are private, as they are in the package.
if(BMCCERT_PLATFORM STREQUAL "host")
  set(BMCCERT_PC_PRIVATE "-lbmcplatform")
else()
  list(TRANSFORM BMCCERT_PLATFORM_LIBS PREPEND "-l" OUTPUT_VARIABLE pc_libs)
  list(JOIN pc_libs " " BMCCERT_PC_PRIVATE)
endif()
# Written at install time, so that the prefix is the one installed to
# (cmake --install --prefix), not the one configured.
install(CODE "
  set(BMCCERT_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  set(BMCCERT_PC_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
  set(BMCCERT_PC_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
  set(BMCCERT_PC_VERSION \"${PROJECT_VERSION}\")
  set(BMCCERT_PC_PRIVATE \"${BMCCERT_PC_PRIVATE}\")
  configure_file(\"${CMAKE_CURRENT_LIST_DIR}/bmccert.pc.in\" \"${PROJECT_BINARY_DIR}/bmccert.pc\" @ONLY)
  " COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/bmccert.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(BMCCERT_INSTALL_TOOLS AND TARGET bmccert_cli)
  install(TARGETS bmccert_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  if(NOT CMAKE_CROSSCOMPILING AND TARGET bmc-sandbox)
    install(TARGETS bmc-sandbox RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  endif()
endif()
