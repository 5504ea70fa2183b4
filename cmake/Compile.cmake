# How everything of ours is compiled: language level, warnings, sanitizers, and paths in diagnostics.

# A compiler cache is used where there is one, unless the caller chose a launcher or this is part of his own build.
find_program(KXPAL_CCACHE ccache)
if(KXPAL_CCACHE AND PROJECT_IS_TOP_LEVEL AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${KXPAL_CCACHE}")
endif()

set(KXPAL_WARNINGS
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual
  -Wcast-qual -Wformat=2 -Wnull-dereference -Wmissing-declarations)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND KXPAL_WARNINGS -Wduplicated-cond -Wlogical-op)
endif()
if(KXPAL_WERROR)
  list(APPEND KXPAL_WARNINGS -Werror)
endif()

# What C hosts have for their own code; the header for them must not warn there.
set(KXPAL_C_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wstrict-prototypes -Wmissing-prototypes)
if(KXPAL_WERROR)
  list(APPEND KXPAL_C_WARNINGS -Werror)
endif()

# Fatal-check lines name sources relative to the project's root. Compilers see absolute paths, but for a compiler cache
# with a base folder, which makes them relative to the folder that Ninja runs in.
file(RELATIVE_PATH KXPAL_ROOT_FROM_BUILD "${CMAKE_BINARY_DIR}" "${kxPAL_SOURCE_DIR}")
set(KXPAL_SOURCE_NAMES "-fmacro-prefix-map=${kxPAL_SOURCE_DIR}/=")
if(KXPAL_ROOT_FROM_BUILD)
  string(REGEX REPLACE "([^/])$" "\\1/" KXPAL_ROOT_FROM_BUILD "${KXPAL_ROOT_FROM_BUILD}")
  list(APPEND KXPAL_SOURCE_NAMES "-fmacro-prefix-map=${KXPAL_ROOT_FROM_BUILD}=")
endif()

# Applies the settings to one target.
function(kxpal_compile_options target)
  target_compile_features(${target} PRIVATE c_std_11 cxx_std_20)
  set_target_properties(${target} PROPERTIES
    C_EXTENSIONS OFF CXX_EXTENSIONS OFF
    C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE
    "$<$<COMPILE_LANGUAGE:CXX>:${KXPAL_WARNINGS}>" "$<$<COMPILE_LANGUAGE:C>:${KXPAL_C_WARNINGS}>"
    ${KXPAL_SOURCE_NAMES})
  if(KXPAL_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${KXPAL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${KXPAL_SANITIZE})
  endif()
endfunction()

# kxpal_count_coverage(target) - counts what runs of a target, and of what links its objects, if KXPAL_COVERAGE asks
# for it. Without optimisation, so that each line and branch is still there; atomically, for the threads' sake.
function(kxpal_count_coverage target)
  if(NOT KXPAL_COVERAGE)
    return()
  endif()
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    message(FATAL_ERROR "KXPAL_COVERAGE counts with gcov, which takes gcc")
  endif()
  target_compile_options(${target} PRIVATE -O0 --coverage -fprofile-update=atomic)
  target_link_options(${target} PUBLIC --coverage)
endfunction()
