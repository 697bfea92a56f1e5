# What makes an error that is left in the code harder to use against whoever runs it: see SECURITY.md.
# Linked PRIVATE as a part of kivresource_settings, in optimised builds alone: a debugger and the
# sanitizers see the code as it is. A flag that the compiler or the linker does not know is left out.

include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

set(kivresource_optimised "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")

foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
  string(MAKE_C_IDENTIFIER "KIVRESOURCE_HAS${flag}" known)
  check_cxx_compiler_flag(${flag} ${known})
  if(${known})
    target_compile_options(kivresource_settings INTERFACE $<${kivresource_optimised}:${flag}>)
  endif()
endforeach()

# A level that the environment asks for stays as it is.
if(NOT MSVC AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
  target_compile_options(kivresource_settings INTERFACE
    "$<${kivresource_optimised}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()

check_linker_flag(CXX "LINKER:-z,relro,-z,now" KIVRESOURCE_HAS_RELRO)
if(KIVRESOURCE_HAS_RELRO)
  target_link_options(kivresource_settings INTERFACE "$<${kivresource_optimised}:LINKER:-z,relro,-z,now>")
endif()

# Programs are loaded to an address that nobody can foretell, as libraries always are.
check_pie_supported(LANGUAGES CXX)
set_property(TARGET kivresource_settings PROPERTY INTERFACE_POSITION_INDEPENDENT_CODE ON)
