include(CMakeFindDependencyMacro)
find_dependency(Boost 1.81 CONFIG COMPONENTS filesystem program_options)
find_dependency(LibXml2)
include(${CMAKE_CURRENT_LIST_DIR}/larkspurTargets.cmake)
