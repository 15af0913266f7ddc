# Installed: both libraries, their headers, find_package(nal) and pkg-config files.
#
#   nal::nal       the library with the default host runtime
#   nal::nal-only  the library alone, for a process that supplies its own runtime
#   nal::host      the default host runtime alone
include(CMakePackageConfigHelpers)

add_library(nal_with_host INTERFACE)
target_link_libraries(nal_with_host INTERFACE nal nalhost)
set_target_properties(nal PROPERTIES EXPORT_NAME nal-only)
set_target_properties(nalhost PROPERTIES EXPORT_NAME host)
set_target_properties(nal_with_host PROPERTIES EXPORT_NAME nal)

install(TARGETS nal nalhost nal_with_host nal_headers nal_host_headers EXPORT nalTargets)
install(EXPORT nalTargets NAMESPACE nal:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/nal)
install(DIRECTORY include/nal host/include/too host/include/asnt host/include/ork host/include/orklog
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN *.h)

file(WRITE ${PROJECT_BINARY_DIR}/nalConfig.cmake "include(\${CMAKE_CURRENT_LIST_DIR}/nalTargets.cmake)\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/nalConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/nalConfig.cmake ${PROJECT_BINARY_DIR}/nalConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/nal)

# Relative to the .pc file, so that the installed tree can be moved.
file(RELATIVE_PATH NAL_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
foreach(module nal nal-only nalhost)
  configure_file(cmake/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
