# cpack runs it on the collected files: manual pages and changelogs are stored compressed.
set(share ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share)
file(GLOB pages ${share}/man/man*/*.[1-9] ${share}/doc/*/changelog ${share}/doc/*/changelog.Debian)
if(NOT pages)
  message(FATAL_ERROR "no manual page or changelog in ${CPACK_TEMPORARY_DIRECTORY}")
endif()
execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)
