# The library in layers, each a static library that links only to the layers
# below it and compiles seeing only their headers (tests/check-layers.sh
# refuses an include against that order also in headers nothing compiles):
#   routvane_base      util and trace, which use each other
#   routvane_com       the COM object templates and the module counts
#   routvane_pac       the PAC script runtime     routvane_dhcp   DHCP discovery
#   routvane_resolver  the resolver object and its settings sources
#   routvane_server    the class object and self-registration
set(ROUTVANE_BASE_SOURCES
  src/util/ComOwners.cpp
  src/util/Owners.cpp
  src/util/Registry.cpp
  src/util/qorException.cpp
  src/util/UnicodeUtilInclude.cpp
  src/trace/ZelComponent.cpp
  src/trace/ZelTraceManager.cpp
  src/trace/tracefunc.cpp
  src/trace/Clock.cpp
)
set(ROUTVANE_COM_SOURCES
  src/com/ComGuard.cpp
  src/com/Module.cpp
)
set(ROUTVANE_PAC_SOURCES
  src/pac/SafeRegex.cpp
  src/pac/PacGuids.cpp
  src/pac/MyScriptSite.cpp
  src/pac/HostSecurity.cpp
  src/pac/ScriptHost.cpp
  src/pac/FindProxyForURL.cpp
  src/pac/HostFunctions.cpp
  src/pac/DateFunctions.cpp
)
set(ROUTVANE_DHCP_SOURCES
  src/dhcp/DHCPPacket.cpp
  src/dhcp/NetworkInfo.cpp
  src/dhcp/NetworkFacts.cpp
  src/dhcp/DhcpInform.cpp
)
set(ROUTVANE_RESOLVER_SOURCES
  src/resolver/Routvane.cpp
  src/resolver/WinInetSettings.cpp
  src/resolver/WinInetDownload.cpp
  src/resolver/ProcessToken.cpp
  src/resolver/ProxyParsing.cpp
  src/resolver/BoundedWorker.cpp
  src/resolver/PacRetrieval.cpp
  src/resolver/PacAnswer.cpp
  src/resolver/PacEvaluation.cpp
  src/resolver/Netscape.cpp
  src/resolver/AutoDetect.cpp
)
set(ROUTVANE_SERVER_SOURCES
  src/server/ClassObject.cpp
  src/server/Registration.cpp
)

# One library per layer; its link dependencies name the layers below it.
# Its sources see only the src/ folders of USES, its own and those of the
# layers below, through an include view of links made in the build tree:
# an include of a higher layer's header does not compile.
function(routvane_layer name)
  cmake_parse_arguments(L "" "" "SOURCES;USES;DEPENDS" ${ARGN})
  add_library(${name} STATIC ${L_SOURCES})
  set(view ${CMAKE_BINARY_DIR}/include-views/${name})
  file(REMOVE_RECURSE ${view})
  file(MAKE_DIRECTORY ${view})
  foreach(folder ${L_USES})
    file(CREATE_LINK ${CMAKE_SOURCE_DIR}/src/${folder} ${view}/${folder} SYMBOLIC)
  endforeach()
  target_include_directories(${name} PRIVATE ${view})
  target_link_libraries(${name} PUBLIC ${L_DEPENDS})
endfunction()

routvane_layer(routvane_base SOURCES ${ROUTVANE_BASE_SOURCES} USES util trace
  DEPENDS ace ole32 oleaut32 advapi32)
routvane_layer(routvane_com SOURCES ${ROUTVANE_COM_SOURCES} USES com util trace
  DEPENDS routvane_base ole32 oleaut32 uuid)
routvane_layer(routvane_pac SOURCES ${ROUTVANE_PAC_SOURCES} USES pac com util trace
  DEPENDS routvane_com routvane_base tre ws2_32)
routvane_layer(routvane_dhcp SOURCES ${ROUTVANE_DHCP_SOURCES} USES dhcp util trace
  DEPENDS routvane_base ws2_32 netapi32)
routvane_layer(routvane_resolver SOURCES ${ROUTVANE_RESOLVER_SOURCES}
  USES resolver pac dhcp com util trace
  DEPENDS routvane_pac routvane_dhcp routvane_com routvane_base)
# The resolver's class header includes the client header.
target_include_directories(routvane_resolver PUBLIC ${CMAKE_SOURCE_DIR}/include)
routvane_layer(routvane_server SOURCES ${ROUTVANE_SERVER_SOURCES}
  USES server resolver pac dhcp com util trace
  DEPENDS routvane_resolver advapi32)

# Everything, for the DLL, the programs, the tests and the benchmarks, which
# include any layer's headers.
add_library(routvane_core INTERFACE)
target_include_directories(routvane_core INTERFACE ${CMAKE_SOURCE_DIR}/src)
target_link_libraries(routvane_core INTERFACE routvane_server)
