# What is packed gets one time, whenever it was made, when the environment names one (scripts/package does).
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  return()
endif()
file(GLOB_RECURSE packed LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
execute_process(COMMAND touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} ${packed} COMMAND_ERROR_IS_FATAL ANY)
