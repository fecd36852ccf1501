# cmake --install: what somebody who builds a host needs. The lab is not among it.
include(CMakePackageConfigHelpers)

set(package_dir lib/cmake/OstrelFilterLib)

install(TARGETS OstrelFilterLib OstrelUserHelper EXPORT OstrelFilterLibTargets
  RUNTIME DESTINATION bin
  ARCHIVE DESTINATION lib
  INCLUDES DESTINATION include/OstrelFilterLib)
install(TARGETS OstrelHost RUNTIME DESTINATION bin)
# Where a service looks for it.
install(TARGETS OstrelUserHelper RUNTIME DESTINATION bin/nlib)

# mingw's import library is not in the format of Microsoft's linker. This one is; it has the C functions only, which is all that a
# host built with another compiler may use.
find_program(OSTREL_DLLTOOL llvm-dlltool REQUIRED)
set(microsoft_import_library ${CMAKE_BINARY_DIR}/lib/OstrelFilterLib.lib)
add_custom_command(OUTPUT ${microsoft_import_library}
  COMMAND ${OSTREL_DLLTOOL} -m i386:x86-64 -d ${PROJECT_SOURCE_DIR}/src/api/exports.def -D OstrelFilterLib.dll
    -l ${microsoft_import_library}
  DEPENDS src/api/exports.def
  VERBATIM)
add_custom_target(OstrelFilterLibMicrosoftImportLibrary ALL DEPENDS ${microsoft_import_library})
install(FILES ${microsoft_import_library} DESTINATION lib)

# api/exports.h and what it includes. The package test compiles a host against exactly these.
foreach(header
    api/exports.h
    cache/event_records.h
    cache/irp_cache.h
    cache/read_event_cache.h
    cache/sent_event_cache.h
    network/network_event_cache.h
    userhelper/process_metadata.h
    userhelper/response_code.h
    util/export.h
    util/integers.h
    util/ostrel_filter_lib_util.h)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES src/${header} DESTINATION include/OstrelFilterLib/${folder})
endforeach()

install(FILES README.md CHANGELOG.md DESTINATION .)
install(DIRECTORY docs DESTINATION .)
install(SCRIPT cmake/link_installed_documents.cmake)

set(MICROSOFT_IMPORT_LIBRARY lib/OstrelFilterLib.lib)
configure_package_config_file(cmake/OstrelFilterLibConfig.cmake.in
  ${CMAKE_BINARY_DIR}/OstrelFilterLibConfig.cmake INSTALL_DESTINATION ${package_dir}
  PATH_VARS MICROSOFT_IMPORT_LIBRARY)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/OstrelFilterLibConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_BINARY_DIR}/OstrelFilterLibConfig.cmake
  ${CMAKE_BINARY_DIR}/OstrelFilterLibConfigVersion.cmake
  DESTINATION ${package_dir})
install(EXPORT OstrelFilterLibTargets NAMESPACE OstrelFilterLib:: DESTINATION ${package_dir})
