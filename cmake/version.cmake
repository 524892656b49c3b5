# The version of the product, which is that of the shell's banner, and the day that CHANGELOG.md has for it:
# product_version, product_date.
set(banner_source ${CMAKE_SOURCE_DIR}/src/commands/builtins.cpp)
file(STRINGS ${banner_source} banner REGEX "Recovery Loader v[0-9]")
if(NOT banner MATCHES "Recovery Loader v([0-9A-Za-z.]+)")
  message(FATAL_ERROR "${banner_source} has no banner with a version")
endif()
set(product_version ${CMAKE_MATCH_1})
file(STRINGS ${CMAKE_SOURCE_DIR}/CHANGELOG.md releases REGEX "^## ")
if(NOT releases MATCHES "## ${product_version}, ([0-9-]+)")
  message(FATAL_ERROR "CHANGELOG.md has no entry for ${product_version}")
endif()
set(product_date ${CMAKE_MATCH_1})
set_property(DIRECTORY ${CMAKE_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${banner_source} ${CMAKE_SOURCE_DIR}/CHANGELOG.md)
