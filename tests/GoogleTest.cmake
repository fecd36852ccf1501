# GoogleTest and GoogleMock from the distribution's source package, built by the same compiler with the same sanitizers as
# what they test.
set(OSTREL_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest's sources, as in Debian's package googletest")
if(NOT EXISTS ${OSTREL_GOOGLETEST_SOURCE}/CMakeLists.txt)
  message(FATAL_ERROR "No GoogleTest sources in ${OSTREL_GOOGLETEST_SOURCE}: run scripts/setup.sh, or set "
                      "OSTREL_GOOGLETEST_SOURCE")
endif()
set(INSTALL_GTEST OFF)
add_subdirectory(${OSTREL_GOOGLETEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
foreach(library IN ITEMS gtest gtest_main gmock gmock_main)
  target_compile_options(${library} PRIVATE -w)
endforeach()
