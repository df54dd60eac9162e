# Targets flow and flow-family for a FlowDesigner installed under ZELK_FLOWDESIGNER_ROOT. Map.h,
# Source.h and Object::setModuleVersion are its own where it has them; otherwise the two headers
# come from host/family and the module announces no version.
include(CheckCXXSourceCompiles)

# Looked for anew each time: the root may be another one.
set(libraryFolders lib lib64 lib/${CMAKE_LIBRARY_ARCHITECTURE})
find_path(ZELK_FLOWDESIGNER_INCLUDE BufferedNode.h NO_CACHE NO_DEFAULT_PATH
  PATHS ${ZELK_FLOWDESIGNER_ROOT} PATH_SUFFIXES include/flowdesigner)
find_library(ZELK_FLOWDESIGNER_LIBRARY flow NO_CACHE NO_DEFAULT_PATH
  PATHS ${ZELK_FLOWDESIGNER_ROOT} PATH_SUFFIXES ${libraryFolders})
if(NOT ZELK_FLOWDESIGNER_INCLUDE OR NOT ZELK_FLOWDESIGNER_LIBRARY)
  list(JOIN libraryFolders ", " libraryFolders)
  foreach(found IN ITEMS ZELK_FLOWDESIGNER_INCLUDE ZELK_FLOWDESIGNER_LIBRARY)
    string(REGEX REPLACE ".*-NOTFOUND" "not there" ${found} ${${found}})
  endforeach()
  message(FATAL_ERROR "ZELK_FLOWDESIGNER_ROOT must be the prefix of an installed FlowDesigner. Looked for\n"
    "  ${ZELK_FLOWDESIGNER_ROOT}/include/flowdesigner/BufferedNode.h: ${ZELK_FLOWDESIGNER_INCLUDE}\n"
    "  libflow.so in ${libraryFolders} of ${ZELK_FLOWDESIGNER_ROOT}: ${ZELK_FLOWDESIGNER_LIBRARY}")
endif()

add_library(flow UNKNOWN IMPORTED GLOBAL)
set_target_properties(flow PROPERTIES
  IMPORTED_LOCATION ${ZELK_FLOWDESIGNER_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${ZELK_FLOWDESIGNER_INCLUDE}
  INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${ZELK_FLOWDESIGNER_INCLUDE})

# g++ 12 reports what its optimiser finds in a system header where it inlines that into a file of ours,
# such as a use after free in that host's multithread.h. Warnings in our own code are errors with the
# bundled host.
target_compile_options(flow INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-use-after-free>)
set(CMAKE_COMPILE_WARNING_AS_ERROR OFF)

add_library(flow-family INTERFACE)
if(NOT EXISTS ${ZELK_FLOWDESIGNER_INCLUDE}/Map.h OR NOT EXISTS ${ZELK_FLOWDESIGNER_INCLUDE}/Source.h)
  # One header each, so that the host's own one is used where only the other is missing.
  foreach(header IN ITEMS Map.h Source.h)
    if(NOT EXISTS ${ZELK_FLOWDESIGNER_INCLUDE}/${header})
      configure_file(${PROJECT_SOURCE_DIR}/host/family/${header}
                     ${PROJECT_BINARY_DIR}/flow-family/${header} COPYONLY)
    else()
      file(REMOVE ${PROJECT_BINARY_DIR}/flow-family/${header})
    endif()
  endforeach()
  target_include_directories(flow-family SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/flow-family)
endif()
target_link_libraries(flow INTERFACE flow-family)

set(CMAKE_REQUIRED_INCLUDES ${ZELK_FLOWDESIGNER_INCLUDE})
set(CMAKE_REQUIRED_FLAGS "-std=c++20 -w -fsyntax-only")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
unset(ZELK_HOST_HAS_MODULE_VERSION CACHE)
check_cxx_source_compiles("
  #include \"Object.h\"
  int registered = FD::Object::setModuleVersion(\"\", \"\", \"\");"
  ZELK_HOST_HAS_MODULE_VERSION)
unset(CMAKE_REQUIRED_FLAGS)
unset(CMAKE_REQUIRED_INCLUDES)
unset(CMAKE_TRY_COMPILE_TARGET_TYPE)
