# Run by cpack before it packs: manual pages and change logs become .gz, without a time stamp in them.
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_DIRECTORY}/*.1" "${CPACK_TEMPORARY_DIRECTORY}/changelog")
if(pages)
  execute_process(COMMAND gzip -9nf ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()
