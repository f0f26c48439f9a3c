# Install and export: find_package(OmbrixCore) gives Ombrix::Core and its parts. What was not built is
# left out, so that every preset can be installed, and a build of some targets as well.

include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/OmbrixCore)
get_property(libraries GLOBAL PROPERTY OMBRIX_LIBRARIES)
set(components "")
set(parts "")  # of each component: what it stands on
foreach(library IN LISTS libraries)
  get_target_property(name ${library} EXPORT_NAME)
  list(APPEND components ${name})
  get_target_property(type ${library} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    list(APPEND gathering ${name})
    get_target_property(links ${library} INTERFACE_LINK_LIBRARIES)
    install(TARGETS ${library} EXPORT OmbrixCore${name} FILE_SET HEADERS COMPONENT dev)
  else()
    get_target_property(links ${library} LINK_LIBRARIES)
    install(TARGETS ${library} EXPORT OmbrixCore${name}
            ARCHIVE OPTIONAL COMPONENT dev LIBRARY OPTIONAL COMPONENT dev
            FILE_SET HEADERS COMPONENT dev)
  endif()
  list(FILTER links INCLUDE REGEX "^Ombrix::")
  list(TRANSFORM links REPLACE "^Ombrix::" "")
  list(JOIN links " " links)
  string(APPEND parts "set(ombrix_parts_${name} ${links})\n")
  install(EXPORT OmbrixCore${name} NAMESPACE Ombrix:: DESTINATION ${package_folder} COMPONENT dev)
endforeach()

# The shared library of the C interface, which needs none of the archives above.
if(OMBRIX_BUILD_C)
  install(TARGETS OmbrixCShared EXPORT OmbrixCoreCShared
          LIBRARY OPTIONAL COMPONENT runtime NAMELINK_COMPONENT dev)
  install(EXPORT OmbrixCoreCShared NAMESPACE Ombrix:: DESTINATION ${package_folder} COMPONENT dev)
endif()

# pkg-config, for builds without CMake: the archives, and the shared library.
set(modules ombrixcore)
if(OMBRIX_BUILD_C)
  list(APPEND modules ombrix)
endif()
foreach(module IN LISTS modules)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${module}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()

set(needs_systemd "")
if(OMBRIX_WITH_JOURNAL)
  list(APPEND needs_systemd Platform)
endif()
if(OMBRIX_WITH_NETWORKMANAGER)
  list(APPEND needs_systemd Network)
endif()
set(runtime ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
list(REMOVE_DUPLICATES runtime)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/OmbrixCoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OmbrixCoreConfig.cmake
  INSTALL_DESTINATION ${package_folder} PATH_VARS CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OmbrixCoreConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OmbrixCoreConfig.cmake
              ${PROJECT_BINARY_DIR}/OmbrixCoreConfigVersion.cmake
        DESTINATION ${package_folder} COMPONENT dev)
if(OMBRIX_BUILD_C)
  install(FILES OmbrixC/selectors.def DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/OmbrixC COMPONENT dev)
endif()
if(TARGET ombrix)
  install(TARGETS ombrix OPTIONAL COMPONENT tools)
  # The program writes its manual page and its completion itself, from what its help is made of.
  foreach(written
      "help --man|${CMAKE_INSTALL_MANDIR}/man1|ombrix.1"
      "completion bash|${CMAKE_INSTALL_DATADIR}/bash-completion/completions|ombrix"
      "completion fish|${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d|ombrix.fish"
      "completion zsh|${CMAKE_INSTALL_DATADIR}/zsh/site-functions|_ombrix")
    string(REPLACE "|" ";" written "${written}")
    list(GET written 0 arguments)
    list(GET written 1 folder)
    list(GET written 2 file)
    install(CODE "
      if(EXISTS \"$<TARGET_FILE:ombrix>\")
        file(MAKE_DIRECTORY \"${PROJECT_BINARY_DIR}/written\")
        execute_process(
          COMMAND \"${CMAKE_COMMAND}\" -E env LC_ALL=C LANGUAGE=en
                  \"$<TARGET_FILE:ombrix>\" ${arguments}
          OUTPUT_FILE \"${PROJECT_BINARY_DIR}/written/${file}\" COMMAND_ERROR_IS_FATAL ANY)
        set(written \"${file}\")
        if(written MATCHES \"\\\\.1$\")
          execute_process(COMMAND gzip -9nf \"${PROJECT_BINARY_DIR}/written/${file}\"
                          COMMAND_ERROR_IS_FATAL ANY)
          set(written \"${file}.gz\")
        endif()
        file(INSTALL \"${PROJECT_BINARY_DIR}/written/\${written}\"
             DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${folder}\")
      endif()" COMPONENT tools)
  endforeach()
endif()
