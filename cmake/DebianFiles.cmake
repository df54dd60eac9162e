# Run by cpack on the staged files of the Debian packages: compresses manual pages, puts the completion for zsh
# where Debian's zsh looks for that of packages, and gives each package the copyright file and the change log
# in Debian's form that the distribution asks for.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

execute_process(COMMAND date --utc --rfc-email --date=${CPACK_ZELK_RELEASE_DATE}
                OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(changelog "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) stable; urgency=medium

  * See /usr/share/doc/${CPACK_PACKAGE_NAME}/CHANGELOG.md.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")

set(runtime ${CPACK_TEMPORARY_DIRECTORY}/runtime/usr/share)
set(development ${CPACK_TEMPORARY_DIRECTORY}/development/usr/share)
set(runtimeDoc ${runtime}/doc/${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME})
set(developmentDoc ${development}/doc/${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME})

file(GLOB pages ${runtime}/man/man1/*.1)
run(gzip -9n ${pages})
file(RENAME ${runtime}/zsh/site-functions ${runtime}/zsh/vendor-completions)
set(docs ${runtimeDoc} ${developmentDoc})
set(python ${CPACK_TEMPORARY_DIRECTORY}/python/usr/share/doc)
if(EXISTS ${CPACK_TEMPORARY_DIRECTORY}/python)
  list(APPEND docs ${python}/${CPACK_DEBIAN_PYTHON_PACKAGE_NAME})
endif()
foreach(doc IN LISTS docs)
  if(NOT doc STREQUAL runtimeDoc)
    file(COPY ${runtimeDoc}/copyright DESTINATION ${doc})
  endif()
  file(WRITE ${doc}/changelog "${changelog}")
  run(gzip -9n ${doc}/changelog)
endforeach()
