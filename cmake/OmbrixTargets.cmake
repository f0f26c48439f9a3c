# The few shapes of target this tree has, so that a folder's CMakeLists.txt only names its files.

# ombrix_library(<target> [INTERFACE] EXPORT_NAME <name> [LINK <public targets>...])
# An installable library; its folders add their files with ombrix_sources. One that is INTERFACE only
# gathers others.
function(ombrix_library target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "INTERFACE" "EXPORT_NAME" "LINK")
  set_property(GLOBAL APPEND PROPERTY OMBRIX_LIBRARIES ${target})
  if(arg_INTERFACE)
    add_library(${target} INTERFACE)
    add_library(Ombrix::${arg_EXPORT_NAME} ALIAS ${target})
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${arg_EXPORT_NAME})
    target_link_libraries(${target} INTERFACE ${arg_LINK})
    return()
  endif()
  add_library(${target})
  add_library(Ombrix::${arg_EXPORT_NAME} ALIAS ${target})
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${arg_EXPORT_NAME}
    VERIFY_INTERFACE_HEADER_SETS ON
    CXX_VISIBILITY_PRESET default
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  target_compile_features(${target} PUBLIC cxx_std_23)
  target_link_libraries(${target} PUBLIC ${arg_LINK} PRIVATE $<BUILD_INTERFACE:OmbrixWarnings>)
endfunction()

# ombrix_string_tables(<variable> <strings files>...)
# Entries of a table of platform::BuiltInTable: each file's language, by its name or its folder's,
# and its contents.
function(ombrix_string_tables variable)
  set(tables "")
  foreach(file IN LISTS ARGN)
    file(READ ${file} strings)
    string(REGEX REPLACE "\\.lproj/.*" "" language ${file})
    get_filename_component(language ${language} NAME_WE)
    string(APPEND tables "    {\"${language}\", R\"strings(${strings})strings\"},\n")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
  endforeach()
  set(${variable} "${tables}" PARENT_SCOPE)
endfunction()

# ombrix_sources(<target> [HEADERS <hpp>...] [SOURCES <cpp and private headers>...])
# Files are named relative to the calling folder.
function(ombrix_sources target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "HEADERS;SOURCES")
  list(TRANSFORM arg_HEADERS PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  list(TRANSFORM arg_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  get_target_property(type ${target} TYPE)
  set(scope PUBLIC)
  if(type STREQUAL "INTERFACE_LIBRARY")
    set(scope INTERFACE)
  endif()
  if(arg_HEADERS)
    target_sources(${target} ${scope}
      FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${arg_HEADERS})
  endif()
  if(arg_SOURCES)
    target_sources(${target} PRIVATE ${arg_SOURCES})
  endif()
endfunction()

# Under the sanitizers a test's own code is not optimised, and not checked at every pointer: the
# libraries are what is examined, and compiling takes most of such a run.
function(ombrix_compile_quickly name)
  if(OMBRIX_SANITIZE)
    target_compile_options(${name} PRIVATE -O0)
  endif()
  if(OMBRIX_SANITIZE MATCHES undefined)
    target_compile_options(${name} PRIVATE -fno-sanitize=null,alignment,vptr,object-size)
  endif()
endfunction()

# ombrix_test(<name> SOURCES <cpp>... [LINK <targets>...])
# A GoogleTest program; each of its tests runs in a process of its own under CTest.
function(ombrix_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE
    Ombrix::Core Ombrix::Testing GTest::gmock OmbrixTestMain OmbrixWarnings ${arg_LINK})
  ombrix_compile_quickly(${name})
  if(OMBRIX_PRECOMPILE_TESTS)
    # From a precompiled header g++ 12 warns of std::string's own copies, as it does with -Wrestrict.
    target_compile_options(${name} PRIVATE -fpch-preprocess -Wno-array-bounds
                           -Wno-stringop-overflow)
    target_precompile_headers(${name} REUSE_FROM OmbrixTestHeaders)
  endif()
  set(timeout 300)  # seconds; a hang is told late rather than a loaded machine taken for one
  if(OMBRIX_SANITIZE OR CMAKE_CROSSCOMPILING)
    set(timeout 900)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    TEST_PREFIX ${name}. PROPERTIES TIMEOUT ${timeout} SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
  set_property(GLOBAL APPEND PROPERTY OMBRIX_TEST_PROGRAMS ${name})
endfunction()

# ombrix_runs(<target> <program> <definition>)
# Tells a test, by a definition, the path of a program of this tree that it starts; under emulation that
# of a script which starts the program in the emulator.
function(ombrix_runs target program definition)
  ombrix_program_path(path ${program})
  target_compile_definitions(${target} PRIVATE ${definition}="${path}")
  add_dependencies(${target} ${program})
endfunction()

function(ombrix_program_path variable program)
  set(path $<TARGET_FILE:${program}>)
  if(CMAKE_CROSSCOMPILING)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    set(path ${CMAKE_BINARY_DIR}/emulated/${program})
    get_property(generated GLOBAL PROPERTY OMBRIX_EMULATED)
    if(NOT program IN_LIST generated)
      set_property(GLOBAL APPEND PROPERTY OMBRIX_EMULATED ${program})
      file(GENERATE OUTPUT ${path}
           CONTENT "#!/bin/sh\nexec ${emulator} $<TARGET_FILE:${program}> \"$@\"\n"
           FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    endif()
  endif()
  set(${variable} ${path} PARENT_SCOPE)
endfunction()

# ombrix_benchmark(<name> SOURCES <cpp>... [LINK <targets>...])
function(ombrix_benchmark name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE
    Ombrix::Core benchmark::benchmark_main OmbrixWarnings ${arg_LINK})
  set_property(GLOBAL APPEND PROPERTY OMBRIX_BENCHMARKS ${name})
endfunction()

# ombrix_fuzzer(<name> SOURCES <cpp>... [LINK <targets>...])
# With OMBRIX_BUILD_FUZZERS a libFuzzer program; always a CTest replay of Fuzz/corpora/<name>.
function(ombrix_fuzzer name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK")
  if(OMBRIX_BUILD_FUZZERS)
    add_executable(fuzz-${name} ${arg_SOURCES})
    target_link_options(fuzz-${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(fuzz-${name} PRIVATE Ombrix::Core Ombrix::Testing OmbrixWarnings ${arg_LINK})
  endif()
  if(OMBRIX_BUILD_TESTS)
    add_executable(replay-${name} ${arg_SOURCES} ${PROJECT_SOURCE_DIR}/Fuzz/ReplayMain.cpp)
    target_link_libraries(replay-${name} PRIVATE Ombrix::Core Ombrix::Testing OmbrixWarnings ${arg_LINK})
    ombrix_compile_quickly(replay-${name})
    add_test(NAME Fuzz.replay-${name}
             COMMAND replay-${name} ${PROJECT_SOURCE_DIR}/Fuzz/corpora/${name})
  endif()
endfunction()
