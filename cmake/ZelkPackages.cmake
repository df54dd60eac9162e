# Debian packages by `cpack -G DEB`: zelk-sss for users, libzelk-sss-dev for developers and, with
# ZELK_BUILD_PYTHON, python3-zelk-sss.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zelk-sss)
set(CPACK_PACKAGE_CONTACT "the zelk-sss authors <maintainers@users.noreply.zelk-sss.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The private libraries depend on each other; they are all in one package.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY} ${PROJECT_BINARY_DIR})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME zelk-sss)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION sound)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"Takes a recording made by several microphones and writes one file per sound
source, with fixed and adaptive beamformers built from a database of transfer
functions (SOFA), or from the sources' activity alone.

This package holds the command zelk-sss, its dataflow nodes and their host,
manual pages and documents.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzelk-sss-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# The libraries are static, and what they call is not.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libhwy-dev, libkissfft-dev, libtbb-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"The separator of zelk-sss, which takes samples and gives one signal per sound
source, and its engine for C++20 programs: headers, static libraries that need
no dataflow host, and the files by which CMake (package ZelkSSS) and pkg-config
find them.")

if(ZELK_BUILD_PYTHON)
  list(APPEND CPACK_COMPONENTS_ALL python)
  set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-zelk-sss)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  # The module is built for one version of Python.
  find_package(Python REQUIRED COMPONENTS Interpreter)
  math(EXPR next "${Python_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
      "python3 (>= 3.${Python_VERSION_MINOR}), python3 (<< 3.${next}), python3-numpy")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/python3-zelk-sss/postinst
      ${CMAKE_CURRENT_LIST_DIR}/python3-zelk-sss/prerm)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION
"The separator of zelk-sss for Python: numpy arrays go in, one signal per sound
source comes out, of a whole recording or block by block.

This package holds the module zelksss for Python 3.")
endif()

# Debian wants some files compressed and a change log of its own.
set(CPACK_ZELK_RELEASE_DATE ${ZELK_RELEASE_DATE})
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/DebianFiles.cmake)
include(CPack)
