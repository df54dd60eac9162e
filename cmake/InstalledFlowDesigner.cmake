# Targets flow and flow-family for a FlowDesigner installed under ZELK_FLOWDESIGNER_ROOT. Map.h,
# Source.h and Object::setModuleVersion are its own where it has them; otherwise the two headers
# come from host/family and the module announces no version.
include(CheckCXXSourceCompiles)

find_path(ZELK_FLOWDESIGNER_INCLUDE BufferedNode.h REQUIRED NO_DEFAULT_PATH
  PATHS ${ZELK_FLOWDESIGNER_ROOT} PATH_SUFFIXES include/flowdesigner)
find_library(ZELK_FLOWDESIGNER_LIBRARY flow REQUIRED NO_DEFAULT_PATH
  PATHS ${ZELK_FLOWDESIGNER_ROOT} PATH_SUFFIXES lib lib64 lib/${CMAKE_LIBRARY_ARCHITECTURE})

add_library(flow UNKNOWN IMPORTED GLOBAL)
set_target_properties(flow PROPERTIES
  IMPORTED_LOCATION ${ZELK_FLOWDESIGNER_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${ZELK_FLOWDESIGNER_INCLUDE}
  INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${ZELK_FLOWDESIGNER_INCLUDE})

add_library(flow-family INTERFACE)
if(NOT EXISTS ${ZELK_FLOWDESIGNER_INCLUDE}/Map.h OR NOT EXISTS ${ZELK_FLOWDESIGNER_INCLUDE}/Source.h)
  # One header each, so that the host's own one is used where only the other is missing.
  foreach(header IN ITEMS Map.h Source.h)
    if(NOT EXISTS ${ZELK_FLOWDESIGNER_INCLUDE}/${header})
      configure_file(${PROJECT_SOURCE_DIR}/host/family/${header}
                     ${CMAKE_BINARY_DIR}/flow-family/${header} COPYONLY)
    endif()
  endforeach()
  target_include_directories(flow-family SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/flow-family)
endif()
target_link_libraries(flow INTERFACE flow-family)

set(CMAKE_REQUIRED_INCLUDES ${ZELK_FLOWDESIGNER_INCLUDE})
set(CMAKE_REQUIRED_FLAGS "-std=c++20 -w -fsyntax-only")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
check_cxx_source_compiles("
  #include \"Object.h\"
  int registered = FD::Object::setModuleVersion(\"\", \"\", \"\");"
  ZELK_HOST_HAS_MODULE_VERSION)
unset(CMAKE_REQUIRED_FLAGS)
unset(CMAKE_REQUIRED_INCLUDES)
unset(CMAKE_TRY_COMPILE_TARGET_TYPE)
