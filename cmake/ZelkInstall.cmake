# What is installed beside the libraries and the command: what other builds find the engine by,
# manuals, completion, documents. A build for an installed FlowDesigner installs its plug-ins alone.
if(ZELK_FLOWDESIGNER_ROOT)
  install(FILES LICENSE TYPE DOC)
  return()
endif()
include(CMakePackageConfigHelpers)

# ---- find_package(ZelkSSS)
set(ZELK_PACKAGE_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZelkSSS)
set(ZELK_GENERATED ${CMAKE_BINARY_DIR}/generated)
install(TARGETS zelk-sss-engine EXPORT ZelkSSSTargets
        ARCHIVE COMPONENT development
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zelk-sss COMPONENT development)
install(EXPORT ZelkSSSTargets NAMESPACE ZelkSSS:: DESTINATION ${ZELK_PACKAGE_DESTINATION}
        COMPONENT development)
configure_package_config_file(cmake/ZelkSSSConfig.cmake.in ${ZELK_GENERATED}/ZelkSSSConfig.cmake
                              INSTALL_DESTINATION ${ZELK_PACKAGE_DESTINATION}
                              NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${ZELK_GENERATED}/ZelkSSSConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${ZELK_GENERATED}/ZelkSSSConfig.cmake ${ZELK_GENERATED}/ZelkSSSConfigVersion.cmake
        DESTINATION ${ZELK_PACKAGE_DESTINATION} COMPONENT development)

# ---- pkg-config: the prefix follows from where the file stands
set(ZELK_PC_DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH ZELK_PREFIX_FROM_PC /${ZELK_PC_DESTINATION} /)
string(REGEX REPLACE "/$" "" ZELK_PREFIX_FROM_PC "${ZELK_PREFIX_FROM_PC}")
configure_file(cmake/zelk-sss.pc.in ${ZELK_GENERATED}/zelk-sss.pc @ONLY)
install(FILES ${ZELK_GENERATED}/zelk-sss.pc DESTINATION ${ZELK_PC_DESTINATION}
        COMPONENT development)
