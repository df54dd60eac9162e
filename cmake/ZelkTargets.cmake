# What every target of the project shares: warnings, floating-point rules, output folders.

find_program(ZELK_CCACHE ccache)
if(ZELK_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${ZELK_CCACHE})
endif()

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
# Plug-ins (*.tlb) and their descriptions (*.def) stand here, as a host would find them.
set(ZELK_TOOLBOX_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/toolbox)

# Libraries are found relative to each other, so that the installed tree can be moved.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  message(FATAL_ERROR
          "CMAKE_INSTALL_LIBDIR is ${CMAKE_INSTALL_LIBDIR}, expected a folder relative to the prefix")
endif()

# Where plug-ins are installed, and the libraries that serve nothing else.
if(ZELK_FLOWDESIGNER_ROOT)
  # In one folder where that host looks, whatever the distribution calls its library folder.
  set(ZELK_TOOLBOX_DESTINATION lib/flowdesigner/toolbox/zelk-sss)
  set(ZELK_LIBRARY_DESTINATION ${ZELK_TOOLBOX_DESTINATION})
else()
  set(ZELK_LIBRARY_DESTINATION ${CMAKE_INSTALL_LIBDIR}/zelk-sss)
  set(ZELK_TOOLBOX_DESTINATION ${ZELK_LIBRARY_DESTINATION}/toolbox)
endif()

# Our own libraries come before any in LD_LIBRARY_PATH: DT_RPATH, not DT_RUNPATH.
add_link_options(LINKER:--disable-new-dtags)

# Contraction to fused multiply-adds would make results depend on the processor.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                    -ffp-contract=off)

# zelk_add_test(<name> SOURCES … LIBRARIES …): one GoogleTest executable, its cases known to CTest.
function(zelk_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} zelk-test-support GTest::gmock_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST)
endfunction()
