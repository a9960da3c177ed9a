# The type library of the PAC helper object: widl turns the interface
# description into the C++ header the library compiles against and the
# .tlb that the DLL (and any test program that loads it from its own file)
# carries as resource TYPELIB 1. The header's name differs from every source
# file's, whatever the letter case: src/pac holds FindProxyForURL.h, which a
# case-insensitive file system would find instead of a FindProxyForUrl.h.
find_program(WIDL_EXECUTABLE NAMES ${TOOLCHAIN_PREFIX}-widl widl REQUIRED)
# widl's imports come with Wine's development files.
find_path(WIDL_IDL_DIR oaidl.idl
  PATHS /usr/include/wine/wine/windows /usr/include/wine/windows /usr/local/include/wine/windows
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
find_path(WIDL_TLB_DIR stdole2.tlb
  PATHS /usr/lib/x86_64-linux-gnu/wine/x86_64-windows /usr/lib/wine/x86_64-windows
        /usr/lib64/wine/x86_64-windows /usr/local/lib/wine/x86_64-windows
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
if(NOT WIDL_IDL_DIR OR NOT WIDL_TLB_DIR)
  message(FATAL_ERROR "widl needs Wine's oaidl.idl and stdole2.tlb (set WIDL_IDL_DIR, WIDL_TLB_DIR)")
endif()

set(PAC_GENERATED_DIR ${CMAKE_BINARY_DIR}/generated)
set(PAC_IDL ${CMAKE_SOURCE_DIR}/src/pac/FindProxyForUrl.idl)
set(PAC_TYPELIB ${PAC_GENERATED_DIR}/FindProxyForUrl.tlb)
set(PAC_TYPELIB_HEADER ${PAC_GENERATED_DIR}/PacHelperTypeLib.h)
file(MAKE_DIRECTORY ${PAC_GENERATED_DIR})
add_custom_command(
  OUTPUT ${PAC_TYPELIB_HEADER} ${PAC_TYPELIB}
  COMMAND ${WIDL_EXECUTABLE} --win64 -I ${WIDL_IDL_DIR} -L ${WIDL_TLB_DIR}
          -h -H PacHelperTypeLib.h -t -T FindProxyForUrl.tlb ${PAC_IDL}
  WORKING_DIRECTORY ${PAC_GENERATED_DIR}
  DEPENDS ${PAC_IDL}
  COMMENT "Compiling the PAC helper type library"
  VERBATIM)
add_custom_target(pac_typelib DEPENDS ${PAC_TYPELIB_HEADER} ${PAC_TYPELIB})

# The pac layer's headers include the generated one, so its users see it too.
add_dependencies(routvane_pac pac_typelib)
target_include_directories(routvane_pac PUBLIC ${PAC_GENERATED_DIR})

# Makes a target's .rc see the generated .tlb (rc: 1 TYPELIB "FindProxyForUrl.tlb").
function(routvane_embed_typelib target rc)
  add_dependencies(${target} pac_typelib)
  target_include_directories(${target} PRIVATE ${PAC_GENERATED_DIR})
  set_source_files_properties(${rc} PROPERTIES OBJECT_DEPENDS ${PAC_TYPELIB})
endfunction()
