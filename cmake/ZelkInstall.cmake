# What is installed where: plug-ins, libraries and the command; what other builds find the engine by;
# manuals, completion, documents. A build for an installed FlowDesigner installs its plug-ins alone.

# Libraries are found relative to each other, so that the installed tree can be moved.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  message(FATAL_ERROR
          "CMAKE_INSTALL_LIBDIR is ${CMAKE_INSTALL_LIBDIR}, expected a folder relative to the prefix")
endif()

# What is installed is for users; what only developers need says COMPONENT development.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)
install(FILES LICENSE TYPE DOC RENAME copyright)

# ---- plug-ins, and the libraries that serve nothing else
if(ZELK_FLOWDESIGNER_ROOT)
  # In one folder where that host looks, whatever the distribution calls its library folder.
  set(ZELK_TOOLBOX_DESTINATION lib/flowdesigner/toolbox/zelk-sss)
  set(ZELK_LIBRARY_DESTINATION ${ZELK_TOOLBOX_DESTINATION})
else()
  set(ZELK_LIBRARY_DESTINATION ${CMAKE_INSTALL_LIBDIR}/zelk-sss)
  set(ZELK_TOOLBOX_DESTINATION ${ZELK_LIBRARY_DESTINATION}/toolbox)
endif()

if(TARGET zelk-sofa-reader)
  install(TARGETS zelkfileio zelk-sofa-reader zelk-sofa-writer
          LIBRARY DESTINATION ${ZELK_LIBRARY_DESTINATION}
          RUNTIME DESTINATION ${ZELK_LIBRARY_DESTINATION})
endif()
if(ZELK_BUILD_COMMAND)
  install(TARGETS zelk-audio LIBRARY DESTINATION ${ZELK_TOOLBOX_DESTINATION})
  foreach(plugin IN ITEMS zelk-sss zelk-audio)
    install(FILES ${ZELK_TOOLBOX_OUTPUT_DIRECTORY}/${plugin}.def DESTINATION ${ZELK_TOOLBOX_DESTINATION})
  endforeach()
endif()
if(ZELK_FLOWDESIGNER_ROOT)
  # The library is the plug-in and lies beside it.
  install(TARGETS zelk-sss LIBRARY DESTINATION ${ZELK_LIBRARY_DESTINATION} NAMELINK_SKIP)
  file(CREATE_LINK libzelk-sss.so.${PROJECT_VERSION_MAJOR} ${PROJECT_BINARY_DIR}/nodes/zelk-sss.tlb SYMBOLIC)
  install(FILES ${PROJECT_BINARY_DIR}/nodes/zelk-sss.tlb DESTINATION ${ZELK_TOOLBOX_DESTINATION})
  return()
endif()
if(ZELK_BUILD_COMMAND)
  install(TARGETS flow LIBRARY DESTINATION ${ZELK_LIBRARY_DESTINATION})
  install(TARGETS zelk-sss EXPORT ZelkSSSTargets
          LIBRARY DESTINATION ${ZELK_LIBRARY_DESTINATION} NAMELINK_COMPONENT development)
  install(TARGETS zelk-sss-plugin LIBRARY DESTINATION ${ZELK_TOOLBOX_DESTINATION})
endif()
if(TARGET zelk-sss-cli)
  install(TARGETS zelk-picture-renderer LIBRARY DESTINATION ${ZELK_LIBRARY_DESTINATION})
  install(TARGETS zelk-sss-cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# The version's date stands in the change log, in a heading such as "## 2.1.0 – 2026-11-24".
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md)
file(STRINGS CHANGELOG.md ZELK_RELEASE_DATE ENCODING UTF-8 REGEX "^## ${PROJECT_VERSION} ")
if(NOT ZELK_RELEASE_DATE MATCHES "[0-9]+-[0-9]+-[0-9]+$")
  message(FATAL_ERROR "CHANGELOG.md: no heading \"## ${PROJECT_VERSION} – YYYY-MM-DD\"")
endif()
set(ZELK_RELEASE_DATE ${CMAKE_MATCH_0})

# ---- find_package(ZelkSSS)
include(CMakePackageConfigHelpers)
set(ZELK_PACKAGE_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZelkSSS)
set(ZELK_GENERATED ${PROJECT_BINARY_DIR}/generated)
install(TARGETS zelk-sss-engine EXPORT ZelkSSSTargets
        ARCHIVE COMPONENT development
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zelk-sss COMPONENT development)
# Apart, because whoever wants the engine alone needs not what the separator needs.
install(TARGETS zelk-sss-separation EXPORT ZelkSSSSeparationTargets
        ARCHIVE COMPONENT development
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zelk-sss COMPONENT development)
foreach(export IN ITEMS ZelkSSSTargets ZelkSSSSeparationTargets)
  install(EXPORT ${export} NAMESPACE ZelkSSS:: DESTINATION ${ZELK_PACKAGE_DESTINATION}
          COMPONENT development)
endforeach()
configure_package_config_file(cmake/ZelkSSSConfig.cmake.in ${ZELK_GENERATED}/ZelkSSSConfig.cmake
                              INSTALL_DESTINATION ${ZELK_PACKAGE_DESTINATION}
                              NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${ZELK_GENERATED}/ZelkSSSConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${ZELK_GENERATED}/ZelkSSSConfig.cmake ${ZELK_GENERATED}/ZelkSSSConfigVersion.cmake
        DESTINATION ${ZELK_PACKAGE_DESTINATION} COMPONENT development)

# ---- pkg-config: the prefix follows from where the file stands
set(ZELK_PC_DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH ZELK_PREFIX_FROM_PC /${ZELK_PC_DESTINATION} /)
string(REGEX REPLACE "/$" "" ZELK_PREFIX_FROM_PC "${ZELK_PREFIX_FROM_PC}")
foreach(module IN ITEMS zelk-sss zelk-sss-separation)
  configure_file(cmake/${module}.pc.in ${ZELK_GENERATED}/${module}.pc @ONLY)
  install(FILES ${ZELK_GENERATED}/${module}.pc DESTINATION ${ZELK_PC_DESTINATION}
          COMPONENT development)
endforeach()

# ---- manual pages, completion, documents
if(TARGET zelk-sss-cli)
  foreach(page IN ITEMS zelk-sss zelk-sss-separate zelk-sss-tfdb zelk-sss-run zelk-sss-mix zelk-sss-score
                       zelk-sss-evaluate zelk-sss-corpus zelk-sss-live zelk-sss-pattern zelk-sss-spectrogram
                       zelk-sss-scene zelk-sss-report)
    configure_file(docs/man/${page}.1.in ${ZELK_GENERATED}/man/${page}.1 @ONLY)
    install(FILES ${ZELK_GENERATED}/man/${page}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endforeach()
  install(FILES cli/completion/zelk-sss.bash RENAME zelk-sss
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES cli/completion/zelk-sss.zsh RENAME _zelk-sss
          DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  install(FILES cli/completion/zelk-sss.fish
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()
if(TARGET zelk-report)  # the page holds a library of others
  install(FILES report/player/LICENSE TYPE DOC RENAME LICENSE.wavesurfer)
endif()
install(FILES README.md CHANGELOG.md TYPE DOC)
install(FILES docs/architecture.md docs/command.md docs/corpus.md docs/embedding.md docs/errors.md docs/flowdesigner.md
              docs/formats.md docs/limits.md docs/live.md docs/methods.md
              docs/python.md docs/scale.md docs/scores.md docs/speed.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(FILES docs/pictures/map.svg docs/pictures/pattern.svg docs/pictures/spectrogram.png
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs/pictures)
install(FILES examples/callback.cc examples/engine.cc examples/separator.cc
              examples/microphones.json examples/scene.json examples/separate.n
              examples/socket_separator.py examples/two-talkers.json
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(DIRECTORY examples/evaluate DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

if(PROJECT_IS_TOP_LEVEL AND TARGET zelk-sss-cli)
  include(ZelkPackages)
endif()
