# Debian packages by CPack (scripts/packages): the shared library, what one builds with, the program,
# and the Python package.

set(packages runtime=libombrixcore dev=libombrixcore-dev tools=ombrix)
if(OMBRIX_BUILD_PYTHON)
  list(APPEND packages python=python3-ombrix)
  set(python_folder lib/python3/dist-packages)
  install(DIRECTORY Bindings/Python/ombrix DESTINATION ${python_folder} COMPONENT python
          FILES_MATCHING PATTERN "*.py" PATTERN "py.typed" PATTERN "__pycache__" EXCLUDE)
  file(CONFIGURE OUTPUT METADATA
       CONTENT "Metadata-Version: 2.1\nName: ombrix\nVersion: ${PROJECT_VERSION}\n")
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/METADATA COMPONENT python
          DESTINATION ${python_folder}/ombrix-${PROJECT_VERSION}.dist-info)
endif()

# Debian's changelog, of the day of the last commit: the same packages come of the same tree.
execute_process(COMMAND git log -1 --format=%cD WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
                OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT date)
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)  # heeds SOURCE_DATE_EPOCH
endif()
set(maintainer "OmbrixCore maintainers <maintainers@users.noreply.c-seed-7e5ed4e9.example>")
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/packages/changelog CONTENT
"ombrixcore (${PROJECT_VERSION}) unstable; urgency=medium

  * Version ${PROJECT_VERSION}; CHANGELOG.md tells what is new.

 -- ${maintainer}  ${date}
")
execute_process(COMMAND gzip -9nc ${PROJECT_BINARY_DIR}/packages/changelog
                OUTPUT_FILE ${PROJECT_BINARY_DIR}/packages/changelog.gz)

set(copyright "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n\nFiles: *\nCopyright: 2026 the OmbrixCore maintainers\nLicense: all-rights-reserved\n All rights reserved.\n")
foreach(package IN LISTS packages)
  string(REPLACE "=" ";" package ${package})
  list(GET package 0 component)
  list(GET package 1 name)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(folder ${PROJECT_BINARY_DIR}/packages/${name})
  file(CONFIGURE OUTPUT ${folder}/copyright CONTENT "${copyright}")
  install(FILES ${folder}/copyright DESTINATION share/doc/${name} COMPONENT ${component})
  install(FILES ${PROJECT_BINARY_DIR}/packages/changelog.gz
          DESTINATION share/doc/${name} COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ombrixcore)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${maintainer}")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libcurl4 (>= 7.87)")  # loaded by the first request
# What others are to depend on, and the linker's cache.
set(series ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
file(CONFIGURE OUTPUT packages/shlibs
     CONTENT "libombrix ${series} libombrixcore (>= ${PROJECT_VERSION})\n")
file(CONFIGURE OUTPUT packages/triggers CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    "${PROJECT_BINARY_DIR}/packages/shlibs;${PROJECT_BINARY_DIR}/packages/triggers")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "The shared library: recorded tracks and the days that are measured from
them, units and formatting, settings, and the client of the tracker's web
service, behind a C interface.")

set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "libombrixcore (= ${PROJECT_VERSION}), pkg-config, libicu-dev, libcurl4 (>= 7.87), libssl-dev, libsqlite3-dev, libfmt-dev, libsystemd-dev, libpugixml-dev, libgeographiclib-dev, zlib1g-dev, libexpat1-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "Headers and archives for C++23, headers for C, and what CMake and
pkg-config find them by.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libcurl4 (>= 7.87)")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "The command ombrix measures and converts recorded days of skiing: tracks in
CSV, GPX, TCX, GeoJSON and FIT, their runs and lifts, pages of them, and the
tracker's web service.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "libombrixcore (>= ${PROJECT_VERSION}), python3 (>= 3.11)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-numpy)
# Bytecode is made at the installation, and goes with the package.
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
    "${PROJECT_SOURCE_DIR}/cmake/debian/python/postinst;${PROJECT_SOURCE_DIR}/cmake/debian/python/prerm")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "The Python package: tracks, days of skiing, formatting, settings and
requests, with context managers, iterators, buffers for numpy and asyncio.")

include(CPack)
