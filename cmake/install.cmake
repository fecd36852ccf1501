# cmake --install: what somebody who builds a host needs. The lab is not among it.
include(CMakePackageConfigHelpers)

set(package_dir lib/cmake/OstrelFilterLib)

install(TARGETS OstrelFilterLib EXPORT OstrelFilterLibTargets
  RUNTIME DESTINATION bin
  ARCHIVE DESTINATION lib
  INCLUDES DESTINATION include/OstrelFilterLib)
install(TARGETS OstrelHost RUNTIME DESTINATION bin)
if(TARGET OstrelUserHelper)
  install(TARGETS OstrelUserHelper RUNTIME DESTINATION bin)
endif()

# api/exports.h and what it includes. The package test compiles a host against exactly these.
foreach(header
    api/exports.h
    cache/event_records.h
    cache/irp_cache.h
    cache/read_event_cache.h
    cache/sent_event_cache.h
    network/network_event_cache.h
    util/export.h
    util/integers.h
    util/ostrel_filter_lib_util.h)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES src/${header} DESTINATION include/OstrelFilterLib/${folder})
endforeach()

install(FILES README.md CHANGELOG.md DESTINATION share/doc/OstrelFilterLib)
install(DIRECTORY docs/ DESTINATION share/doc/OstrelFilterLib/docs)

configure_package_config_file(cmake/OstrelFilterLibConfig.cmake.in
  ${CMAKE_BINARY_DIR}/OstrelFilterLibConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/OstrelFilterLibConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_BINARY_DIR}/OstrelFilterLibConfig.cmake
  ${CMAKE_BINARY_DIR}/OstrelFilterLibConfigVersion.cmake
  DESTINATION ${package_dir})
install(EXPORT OstrelFilterLibTargets NAMESPACE OstrelFilterLib:: DESTINATION ${package_dir})
