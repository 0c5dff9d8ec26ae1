# What is packed, before it is: each kind of package gets what runs behind its packages' own work.
set(permissions OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
if(CPACK_GENERATOR STREQUAL "DEB")
  file(COPY ${CMAKE_CURRENT_LIST_DIR}/90gtk-tarnel DESTINATION ${CPACK_TEMPORARY_DIRECTORY}/etc/apt/apt.conf.d
    FILE_PERMISSIONS ${permissions})
else()
  file(COPY ${CMAKE_CURRENT_LIST_DIR}/99-gtk-tarnel.install DESTINATION ${CPACK_TEMPORARY_DIRECTORY}/usr/lib/kernel/install.d
    FILE_PERMISSIONS ${permissions} OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
endif()

# All gets one time, whenever it was made, when the environment names one (scripts/package does).
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  return()
endif()
file(GLOB_RECURSE packed LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
execute_process(COMMAND touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} ${packed} COMMAND_ERROR_IS_FATAL ANY)
