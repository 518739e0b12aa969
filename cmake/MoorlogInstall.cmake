# Libraries and headers for programs outside this tree: a CMake package, and a pkg-config file for each component and one
# for all of them. What a component links is named where the room is built, by moorlog_room.

include(CMakePackageConfigHelpers)
get_property(components GLOBAL PROPERTY MOORLOG_COMPONENTS)
set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/moorlog")
set(pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
# From where the file is found to the prefix, so that what is installed may be moved.
file(RELATIVE_PATH MOORLOG_TO_PREFIX "/${pkgconfig_dir}/" "/")
string(REGEX REPLACE "/$" "" MOORLOG_TO_PREFIX "${MOORLOG_TO_PREFIX}")

# moorlog_pkgconfig(NAME REQUIRES FLAGS): NAME.pc
function(moorlog_pkgconfig name requires flags)
  list(JOIN requires ", " requires)
  list(JOIN flags " " flags)
  configure_file("${PROJECT_SOURCE_DIR}/cmake/moorlog.pc.in" ${name}.pc @ONLY)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${name}.pc" DESTINATION ${pkgconfig_dir})
endfunction()

set(targets moorlog moorlog-station moorlog-verify)
foreach(component IN LISTS components)
  get_property(folder GLOBAL PROPERTY MOORLOG_FOLDER_${component})
  get_property(links GLOBAL PROPERTY MOORLOG_LINKS_${component})
  list(APPEND targets moorlog_${component})
  install(TARGETS moorlog_${component} EXPORT moorlogTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/${folder}/" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/moorlog/${folder}
          FILES_MATCHING PATTERN "*.h")
  set(requires ${links})
  list(FILTER requires INCLUDE REGEX "::")
  list(TRANSFORM requires REPLACE "::" "-")
  list(FILTER links EXCLUDE REGEX "::")
  list(TRANSFORM links PREPEND "-l")
  moorlog_pkgconfig(moorlog-${component} "${requires}" "-lmoorlog_${component};${links}")
endforeach()
set(requires ${components})
list(TRANSFORM requires PREPEND "moorlog-")
list(REVERSE requires)  # a static link wants the users of a library before the library
moorlog_pkgconfig(moorlog "${requires}" "")

install(TARGETS moorlog RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT moorlogTargets NAMESPACE moorlog:: DESTINATION ${package_dir})
list(JOIN components " " MOORLOG_COMPONENTS)
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/moorlogConfig.cmake.in" moorlogConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(moorlogConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/moorlogConfig.cmake"
              "${CMAKE_CURRENT_BINARY_DIR}/moorlogConfigVersion.cmake" DESTINATION ${package_dir})

# All that an installation takes along, and nothing else.
add_custom_target(installable DEPENDS ${targets})
