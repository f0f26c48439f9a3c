# Install and export: find_package(OmbrixCore) gives Ombrix::Core and its parts.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

get_property(libraries GLOBAL PROPERTY OMBRIX_LIBRARIES)
install(TARGETS ${libraries} EXPORT OmbrixCoreTargets FILE_SET HEADERS)
install(EXPORT OmbrixCoreTargets NAMESPACE Ombrix::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OmbrixCore)

set(runtime ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
list(REMOVE_DUPLICATES runtime)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/OmbrixCoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OmbrixCoreConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OmbrixCore)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OmbrixCoreConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OmbrixCoreConfig.cmake
              ${PROJECT_BINARY_DIR}/OmbrixCoreConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OmbrixCore)
if(OMBRIX_BUILD_C)
  install(FILES OmbrixC/selectors.def DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/OmbrixC)
endif()
if(TARGET ombrix)
  install(TARGETS ombrix)
endif()
