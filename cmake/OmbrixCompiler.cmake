# Compiler settings that every target of this tree shares: ccache, warnings, sanitizers.

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Relative paths in the hash let clones and work trees share one cache.
  set(launcher env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1
      CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
  set(CMAKE_C_COMPILER_LAUNCHER ${launcher})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${launcher})
endif()

add_library(OmbrixWarnings INTERFACE)
target_compile_options(OmbrixWarnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wno-format-nonliteral -Wundef -Wno-missing-field-initializers)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(OmbrixWarnings INTERFACE
    -Wduplicated-cond -Wlogical-op $<$<COMPILE_LANGUAGE:CXX>:-Wsuggest-override>)
  # g++ 12 sees overlapping copies in its own std::string when it inlines (GCC bug 105329).
  target_compile_options(OmbrixWarnings INTERFACE -Wno-restrict)
  if(OMBRIX_SANITIZE)
    # g++ 12 reports values as maybe uninitialised in instrumented standard headers.
    target_compile_options(OmbrixWarnings INTERFACE -Wno-maybe-uninitialized)
  endif()
  if(OMBRIX_SANITIZE MATCHES "thread")
    target_compile_options(OmbrixWarnings INTERFACE -Wno-tsan)
  endif()
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # What locks guard: OmbrixPlatform/Locks/ThreadSafety.hpp.
  target_compile_options(OmbrixWarnings INTERFACE -Wthread-safety)
  # libstdc++ 12's own stable_sort calls what it declares deprecated.
  target_compile_options(OmbrixWarnings INTERFACE -Wno-deprecated-declarations)
endif()
if(OMBRIX_WARNINGS_AS_ERRORS)
  target_compile_options(OmbrixWarnings INTERFACE -Werror)
endif()

# Results are the same on every processor only as long as no product is fused into a sum: arm64 has an
# instruction for that, and a compiler may use it wherever it is not told otherwise.
add_compile_options(-ffp-contract=off)

if(OMBRIX_SANITIZE)
  add_compile_options(-fsanitize=${OMBRIX_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${OMBRIX_SANITIZE})
endif()
