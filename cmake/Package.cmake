# What a Windows developer takes away: the COM server, the command-line
# client, the client header, the C++ example and the README, installed by
# `cmake --install` and packed by CPack into routvane-<version>-win64.zip.
# Only the DLL's run-time file is shipped: clients reach it through COM and
# never link against it, so its import library stays behind.
install(TARGETS routvane routvane_cli RUNTIME DESTINATION bin)
install(FILES ${CMAKE_SOURCE_DIR}/include/routvane.h DESTINATION include)
install(FILES ${CMAKE_SOURCE_DIR}/examples/resolve.cpp DESTINATION examples)
install(FILES ${CMAKE_SOURCE_DIR}/README.md DESTINATION .)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME routvane)
set(CPACK_PACKAGE_VENDOR Ovrena)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(ROUTVANE_PACKAGE_NAME routvane-${PROJECT_VERSION}-win64)
set(CPACK_PACKAGE_FILE_NAME ${ROUTVANE_PACKAGE_NAME})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR})
# The archive unpacks into one folder named like itself.
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
include(CPack)

# The test run makes the archive, so every run proves it can be made; the
# check then takes it as a developer would (tests/check-package.sh).
if(ROUTVANE_TESTS)
  add_test(NAME package_archive
    COMMAND ${CMAKE_CPACK_COMMAND} -G ZIP --config ${CMAKE_BINARY_DIR}/CPackConfig.cmake
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
  set_tests_properties(package_archive PROPERTIES FIXTURES_SETUP package TIMEOUT 120)
  add_test(NAME package_check
    COMMAND ${CMAKE_SOURCE_DIR}/tests/check-package.sh
      ${CMAKE_BINARY_DIR}/${ROUTVANE_PACKAGE_NAME}.zip ${CMAKE_BINARY_DIR}/package-check
      ${CMAKE_CXX_COMPILER} ${CMAKE_COMMAND} ${WINE_RUN})
  set_tests_properties(package_check PROPERTIES FIXTURES_REQUIRED package TIMEOUT 300)
endif()
