# Libraries and headers for programs outside this tree: a CMake package and a pkg-config file.

include(CMakePackageConfigHelpers)
get_property(rooms GLOBAL PROPERTY MOORLOG_BUILT_ROOMS)
set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/moorlog")

foreach(room IN LISTS rooms)
  install(TARGETS moorlog_${room} EXPORT moorlogTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/${room}/" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/moorlog/${room}
          FILES_MATCHING PATTERN "*.h")
endforeach()
install(TARGETS moorlog RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT moorlogTargets NAMESPACE moorlog:: DESTINATION ${package_dir})

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/moorlogConfig.cmake.in" moorlogConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(moorlogConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/moorlogConfig.cmake"
              "${CMAKE_CURRENT_BINARY_DIR}/moorlogConfigVersion.cmake" DESTINATION ${package_dir})

# A static link wants the users of a library before the library: the rooms from the top down.
set(archives "")
foreach(room IN LISTS rooms)
  string(PREPEND archives "-lmoorlog_${room} ")
endforeach()
string(STRIP "${archives}" archives)
get_property(MOORLOG_SYSTEM_LIBS GLOBAL PROPERTY MOORLOG_SYSTEM_LIBS)
list(REMOVE_DUPLICATES MOORLOG_SYSTEM_LIBS)
list(TRANSFORM MOORLOG_SYSTEM_LIBS PREPEND "-l")
list(JOIN MOORLOG_SYSTEM_LIBS " " MOORLOG_SYSTEM_LIBS)
configure_file("${PROJECT_SOURCE_DIR}/cmake/moorlog.pc.in" moorlog.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/moorlog.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
