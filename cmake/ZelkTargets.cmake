# What every target of the project shares: warnings, floating-point rules, output folders. Nothing of it
# reaches a project that this one is part of.

if(PROJECT_IS_TOP_LEVEL)
  find_program(ZELK_CCACHE ccache)
  if(ZELK_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${ZELK_CCACHE})
  endif()
else()
  set(CMAKE_COMPILE_WARNING_AS_ERROR OFF)  # the other project's compiler may know more warnings
endif()

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
# Plug-ins (*.tlb) and their descriptions (*.def) stand here, as a host would find them.
set(ZELK_TOOLBOX_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/toolbox)

# Our own libraries come before any in LD_LIBRARY_PATH: DT_RPATH, not DT_RUNPATH.
add_link_options(LINKER:--disable-new-dtags)

if(PROJECT_IS_TOP_LEVEL)
  add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual)
endif()
# Contraction to fused multiply-adds would make results depend on the processor.
add_compile_options(-ffp-contract=off)

# zelk_optimise_little(<target>): for code that nobody waits for, which compiles a quarter faster then.
function(zelk_optimise_little target)
  target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O1>)
endfunction()

# zelk_add_test(<name> SOURCES … LIBRARIES … [PROPERTIES …]): one GoogleTest executable, its cases known to
# CTest, with properties there.
function(zelk_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES;PROPERTIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} zelk-test-support GTest::gmock_main)
  zelk_optimise_little(${name})
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES ${arg_PROPERTIES})
endfunction()
