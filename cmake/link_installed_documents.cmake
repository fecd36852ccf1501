# cmake --install runs this when the documents lie in the package. There the public headers are in include/OstrelFilterLib, and not
# in src: the links to them must follow.
set(package "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
file(GLOB_RECURSE documents "${package}/docs/*.md")
foreach(document IN LISTS documents ITEMS "${package}/README.md" "${package}/CHANGELOG.md")
  file(READ "${document}" text)
  string(REPLACE "](src/" "](include/OstrelFilterLib/" text "${text}")
  string(REPLACE "](../src/" "](../include/OstrelFilterLib/" text "${text}")
  file(WRITE "${document}" "${text}")
endforeach()
