# Run by CPack between installing and packing: compresses manual pages and change logs, the same in
# every build.
file(GLOB pages
  ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog
  ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man*/*)
foreach(page IN LISTS pages)
  execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
