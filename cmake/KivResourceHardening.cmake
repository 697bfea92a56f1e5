# Compiler and linker flags that make errors in the code harder to exploit; see SECURITY.md. Part of
# kivresource_settings, in optimised builds only, so that they do not get in the way of debuggers
# and sanitizers. Flags that the compiler or linker does not know are left out.

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

# A level that the environment sets is kept.
if(NOT MSVC AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
  target_compile_options(kivresource_settings INTERFACE
    "$<${kivresource_optimised}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()

check_linker_flag(CXX "LINKER:-z,relro,-z,now" KIVRESOURCE_HAS_RELRO)
if(KIVRESOURCE_HAS_RELRO)
  target_link_options(kivresource_settings INTERFACE "$<${kivresource_optimised}:LINKER:-z,relro,-z,now>")
endif()

# Programs are position-independent, so that they are loaded at random addresses as libraries are.
check_pie_supported(LANGUAGES CXX)
set_property(TARGET kivresource_settings PROPERTY INTERFACE_POSITION_INDEPENDENT_CODE ON)
