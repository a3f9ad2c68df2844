# Run by cpack over the files it is about to pack: Debian's manual pages are compressed.

file(GLOB pages "${CPACK_TEMPORARY_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX}/share/man/man*/*.[1-8]")
if(pages)
  execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()
