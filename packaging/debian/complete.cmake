# What Debian wants of a package beyond the installed files: run by CPack on the tree to be packed.
cmake_minimum_required(VERSION 3.25)
set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)

file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/copyright ${share}/doc/larkspur/copyright)
file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/changelog ${share}/doc/larkspur/changelog)
file(MAKE_DIRECTORY ${share}/lintian/overrides)
file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/lintian-overrides ${share}/lintian/overrides/larkspur)
file(GLOB programs ${CPACK_TEMPORARY_DIRECTORY}/usr/*bin/*)
execute_process(COMMAND ${CPACK_LARKSPUR_STRIP} --remove-section=.comment ${programs} COMMAND_ERROR_IS_FATAL ANY)
file(GLOB pages ${share}/man/*/*)
execute_process(COMMAND gzip -9n ${share}/doc/larkspur/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
# Nothing in the package may depend on the umask of whoever builds it.
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY}/usr ${CPACK_TEMPORARY_DIRECTORY}/etc
  COMMAND_ERROR_IS_FATAL ANY)
