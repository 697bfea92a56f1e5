# What is installed of libkivsession, and how a project in C or another language finds it: with
# find_package(kivsession) or pkg-config. It needs nothing of the framework's own development files.

set(kivsession_cmakedir "${CMAKE_INSTALL_LIBDIR}/cmake/kivsession")

# It finds the framework, if that is a library of its own, beside itself after the prefix is moved.
if(BUILD_SHARED_LIBS AND NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set_target_properties(kivsession PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()
install(TARGETS kivsession EXPORT kivsessionTargets
  RUNTIME COMPONENT Session
  LIBRARY COMPONENT Session NAMELINK_COMPONENT SessionDevelopment
  ARCHIVE COMPONENT SessionDevelopment
  FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT SessionDevelopment)
install(EXPORT kivsessionTargets NAMESPACE kivsession:: FILE kivsessionConfig.cmake
  DESTINATION "${kivsession_cmakedir}" COMPONENT SessionDevelopment)
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/kivsessionConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/kivsessionConfigVersion.cmake"
  DESTINATION "${kivsession_cmakedir}" COMPONENT SessionDevelopment)

configure_file("${CMAKE_CURRENT_LIST_DIR}/kivsession.pc.in" "${PROJECT_BINARY_DIR}/kivsession.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kivsession.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT SessionDevelopment)

# The header refers to it.
install(FILES "${PROJECT_SOURCE_DIR}/Docs/SESSION.md"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/libkivsession-dev" COMPONENT SessionDevelopment)
