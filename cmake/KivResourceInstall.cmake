# What `cmake --install` installs, and how a consumer finds it: with find_package(KivResource) or
# pkg-config.

include(CMakePackageConfigHelpers)

set(kivresource_includedir "${CMAKE_INSTALL_INCLUDEDIR}/KivResource-${PROJECT_VERSION_MAJOR}")
set(kivresource_cmakedir "${CMAKE_INSTALL_LIBDIR}/cmake/KivResource")

install(TARGETS KivResource EXPORT KivResourceTargets
  RUNTIME COMPONENT Runtime
  LIBRARY COMPONENT Runtime NAMELINK_COMPONENT Development
  ARCHIVE COMPONENT Development
  FILE_SET HEADERS DESTINATION "${kivresource_includedir}" COMPONENT Development)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/InnerAdResources.bundle"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/KivResource" COMPONENT Resources)

install(EXPORT KivResourceTargets NAMESPACE KivResource::
  DESTINATION "${kivresource_cmakedir}" COMPONENT Development)
set(kivresource_resourcesdir "${CMAKE_INSTALL_DATADIR}/KivResource")
configure_package_config_file(
  "${CMAKE_CURRENT_LIST_DIR}/KivResourceConfig.cmake.in" "${PROJECT_BINARY_DIR}/KivResourceConfig.cmake"
  INSTALL_DESTINATION "${kivresource_cmakedir}" PATH_VARS kivresource_resourcesdir)
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/KivResourceConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/KivResourceConfig.cmake"
  "${PROJECT_BINARY_DIR}/KivResourceConfigVersion.cmake"
  DESTINATION "${kivresource_cmakedir}" COMPONENT Development)

# Who links the static library has to link its dependencies too; the shared one links them itself.
if(BUILD_SHARED_LIBS)
  set(kivresource_pc_requires "")
  set(kivresource_pc_libs "")
  set(kivresource_pc_cflags "")
else()
  set(kivresource_pc_requires "libcurl, libutf8proc, libzip, simdjson")
  list(TRANSFORM CMAKE_DL_LIBS PREPEND "-l" OUTPUT_VARIABLE kivresource_dl)
  set(kivresource_pc_libs "-pthread ${kivresource_dl}")
  # A program finds the packaged resources relative to the headers; see InstalledResources.h.
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_DATADIR
    BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}/${kivresource_includedir}/KivPlatform/Foundation/system"
    OUTPUT_VARIABLE kivresource_pc_datadir)
  set(kivresource_pc_cflags "-DKIVRESOURCE_STATIC \
-DKIVRESOURCE_RESOURCES_FROM_HEADER=${kivresource_pc_datadir}/KivResource")
endif()
# The prefix is relative to the file, so that an installed tree can be moved.
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}"
  OUTPUT_VARIABLE kivresource_pc_dir)
cmake_path(APPEND kivresource_pc_dir pkgconfig)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY "${kivresource_pc_dir}"
  OUTPUT_VARIABLE kivresource_pc_up)
configure_file("${CMAKE_CURRENT_LIST_DIR}/KivResource.pc.in" "${PROJECT_BINARY_DIR}/KivResource.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/KivResource.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT Development)
