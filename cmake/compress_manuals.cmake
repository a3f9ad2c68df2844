# Run by cpack over the files it is about to pack: Debian's manual pages are compressed.

# A package of a component has a folder of its own.
set(pages_of_package "${CPACK_PACKAGING_INSTALL_PREFIX}/share/man/man*/*.[1-8]")
file(GLOB pages "${CPACK_TEMPORARY_DIRECTORY}${pages_of_package}" "${CPACK_TEMPORARY_DIRECTORY}/*${pages_of_package}")
if(pages)
  execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()
