# For programs that want the library: only with "cmake --install BUILD --component development".
include(CMakePackageConfigHelpers)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/larkspur)
set_target_properties(larkspur_core PROPERTIES EXPORT_NAME core)
install(TARGETS larkspur_core EXPORT larkspur ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  EXCLUDE_FROM_ALL)
foreach(room IN LISTS LARKSPUR_ROOMS)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/${room} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/larkspur
    COMPONENT development EXCLUDE_FROM_ALL FILES_MATCHING PATTERN "*.h")
endforeach()
install(EXPORT larkspur NAMESPACE larkspur:: FILE larkspurTargets.cmake DESTINATION ${config_dir}
  COMPONENT development EXCLUDE_FROM_ALL)
write_basic_package_version_file(larkspurConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES larkspurConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/larkspurConfigVersion.cmake DESTINATION ${config_dir}
  COMPONENT development EXCLUDE_FROM_ALL)
