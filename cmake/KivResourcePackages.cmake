# The Debian packages that `cpack` creates: the libraries, their development files, the packaged
# resources and the tool.
# Configure with BUILD_SHARED_LIBS and the prefix /usr, as script/check-packages does.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kivresource)
set(CPACK_PACKAGE_CONTACT "KivResource maintainers <maintainers@kivresource.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_COMPONENTS_ALL Runtime Development Resources Tool)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

set(kivresource_library "libkivresource${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}")
set(kivresource_same "(= ${PROJECT_VERSION})")

# In a package of its own, since packages of libraries with different sonames are installed side by
# side.
set(CPACK_DEBIAN_RESOURCES_PACKAGE_NAME kivresource-data)
set(CPACK_DEBIAN_RESOURCES_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_RESOURCES_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_RESOURCES_DESCRIPTION "The resources that are packaged with the framework.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "${kivresource_library}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS kivresource-data)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
# Without the certificates of public authorities, no https server is trusted.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS ca-certificates)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "The shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkivresource-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${kivresource_library} ${kivresource_same}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers, CMake package and pkg-config file.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME kivresource)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${kivresource_library} ${kivresource_same}")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "The host for the command line, its manual page and completions.")
# The tool's dependencies are read from the program, which needs the library of the same version.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")

set(kivresource_packages "${kivresource_library}" libkivresource-dev kivresource-data kivresource)
if(TARGET kivsession)
  get_target_property(kivsession_number kivsession SOVERSION)
  set(kivsession_library "libkivsession${kivsession_number}")
  list(APPEND CPACK_COMPONENTS_ALL Session SessionDevelopment)

  set(CPACK_DEBIAN_SESSION_PACKAGE_NAME "${kivsession_library}")
  set(CPACK_DEBIAN_SESSION_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_SESSION_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_SESSION_PACKAGE_GENERATE_SHLIBS ON)
  # It uses classes of the framework that may change within a minor version.
  set(CPACK_DEBIAN_SESSION_PACKAGE_DEPENDS "${kivresource_library} ${kivresource_same}")
  set(CPACK_COMPONENT_SESSION_DESCRIPTION "The library with the C interface.")

  set(CPACK_DEBIAN_SESSIONDEVELOPMENT_PACKAGE_NAME libkivsession-dev)
  set(CPACK_DEBIAN_SESSIONDEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_SESSIONDEVELOPMENT_PACKAGE_DEPENDS "${kivsession_library} ${kivresource_same}")
  set(CPACK_COMPONENT_SESSIONDEVELOPMENT_DESCRIPTION
    "The C header, CMake package and pkg-config file.")
  list(APPEND kivresource_packages "${kivsession_library}" libkivsession-dev)
endif()

foreach(component package IN ZIP_LISTS CPACK_COMPONENTS_ALL kivresource_packages)
  install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}"
    RENAME copyright COMPONENT "${component}")
endforeach()

include(CPack)
