# What is installed, and where the platform wants it:
#
#   bin/svinfo                       the tool
#   lib/orvantis/                    the module, the suite's components and the tool's verbs, which are loaded by name
#   lib/libovplatform.so             the layer, which clients link (Linux)
#   include/orvantis/                the public header; platform/ below it has the Win32 names of the layer (Linux)
#   lib/cmake/OrvantisServerInfo/    find_package(OrvantisServerInfo); target_link_libraries(... Orvantis::ServerInfo)
#   lib/pkgconfig/                   pkg-config orvantis-server-info
#
# On Windows everything that is loaded lies in bin/.
include(CMakePackageConfigHelpers)

add_library(ov_server_info INTERFACE)
set_target_properties(ov_server_info PROPERTIES EXPORT_NAME ServerInfo)
target_include_directories(ov_server_info INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(ov_server_info INTERFACE cxx_std_17)
set(exported ov_server_info)

install(FILES ${PROJECT_SOURCE_DIR}/include/orvantis/ServerInfo.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orvantis)
install(TARGETS svinfo RUNTIME)
install(TARGETS OvSvInfo OVUserService OVEventLogger OVPTUtils LIBRARY DESTINATION ${OV_MODULE_DIR})
if(WIN32)
    install(TARGETS OVMessages LIBRARY DESTINATION ${OV_MODULE_DIR})
else()
    install(FILES ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/OVMessages.txt DESTINATION ${OV_MODULE_DIR})
    install(TARGETS svinfo_verbs LIBRARY DESTINATION ${OV_MODULE_DIR})
    set_target_properties(ovplatform PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                          EXPORT_NAME Platform)
    target_link_libraries(ov_server_info INTERFACE ovplatform)
    list(APPEND exported ovplatform)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orvantis/platform
            FILES_MATCHING PATTERN "*.h" PATTERN "Platform.h" EXCLUDE)
    # Relative to the file itself, so that an installed tree can be moved.
    file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
    string(REGEX REPLACE "/$" "" up "${up}")
    configure_file(cmake/orvantis-server-info.pc.in orvantis-server-info.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/orvantis-server-info.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/OrvantisServerInfo)
install(TARGETS ${exported} EXPORT OrvantisServerInfo LIBRARY)
install(EXPORT OrvantisServerInfo NAMESPACE Orvantis:: FILE OrvantisServerInfoConfig.cmake DESTINATION ${package})
write_basic_package_version_file(OrvantisServerInfoConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/OrvantisServerInfoConfigVersion.cmake DESTINATION ${package})
