# Puts the packaged resources beside the programs of a build, where an application that ships them
# has them too. No program knows the source tree.

# Links the bundle into a directory of the build tree, by default the current one. Also for projects
# that add this one as a subdirectory, instead of copying the bundle.
function(kivresource_link_bundle)
  set(directory "${CMAKE_CURRENT_BINARY_DIR}")
  if(ARGC)
    set(directory "${ARGV0}")
  endif()
  set(link "${directory}/InnerAdResources.bundle")
  if(NOT EXISTS "${link}")
    file(MAKE_DIRECTORY "${directory}")
    file(CREATE_LINK "${KivResource_SOURCE_DIR}/InnerAdResources.bundle" "${link}" SYMBOLIC)
  endif()
endfunction()

# Beside the library, if it is shared.
kivresource_link_bundle("${PROJECT_BINARY_DIR}")
