# Install and export: find_package(OmbrixCore) gives Ombrix::Core and its parts.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

get_property(libraries GLOBAL PROPERTY OMBRIX_LIBRARIES)
install(TARGETS ${libraries} EXPORT OmbrixCoreTargets FILE_SET HEADERS)
install(EXPORT OmbrixCoreTargets NAMESPACE Ombrix::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OmbrixCore)

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/OmbrixCoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OmbrixCoreConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OmbrixCore)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OmbrixCoreConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OmbrixCoreConfig.cmake
              ${PROJECT_BINARY_DIR}/OmbrixCoreConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OmbrixCore)
install(FILES OmbrixC/selectors.def DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/OmbrixC)
if(TARGET ombrix)
  install(TARGETS ombrix)
endif()
