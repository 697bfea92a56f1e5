# Lets the programs of a build find the packaged resources beside themselves, as those of a host that
# carries them along do. No program knows the source tree.

# Puts a link to the bundle into the directory of the build in which programs are made, the current
# one where none is named. Also for a project that has this one inside, in place of a copy of its own.
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

# Beside the library itself, where it is shared.
kivresource_link_bundle("${PROJECT_BINARY_DIR}")
