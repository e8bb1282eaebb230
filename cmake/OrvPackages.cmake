# Debian packages of what is installed; `cpack` in the build folder makes three of them:
#
#   orvplayer         the service: orvplayerd, its libraries, units, bus files; liborvclient
#   orvplayer-tools   orvplay, its window, manual page, completion, desktop entry
#   liborvclient-dev  headers and build files for programs that drive the service
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvplayer)
set(CPACK_PACKAGE_VENDOR OrvPlayer)
set(CPACK_PACKAGE_CONTACT "OrvPlayer developers <developers@orvplayer.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL player client tools dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Libraries of our own, and the packaged ones that are found by a path of their own.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${CMAKE_LIBRARY_OUTPUT_DIRECTORY} ${ORV_ANDROID_LIBDIR})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME orvplayer)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION video)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "ISDB-T / SBTVD television service
 Plays digital television for the applications that drive it over D-Bus.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "orvplayer-tools, pipewire-pulse | pulseaudio")

set(CPACK_DEBIAN_PROGRAMS_PACKAGE_NAME orvplayer-tools)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PROGRAMS_DESCRIPTION "programs to watch and inspect digital television
 orvplay plays, records and takes apart broadcasts of ISDB-T and SBTVD.")
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_DEPENDS "orvplayer (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liborvclient-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "development files of the OrvPlayer client library
 Headers, pkg-config and CMake files of liborvclient.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "orvplayer (= ${PROJECT_VERSION})")

# Every package tells its licence, in a folder of its name.
foreach(package player:orvplayer tools:orvplayer-tools dev:liborvclient-dev)
    string(REPLACE ":" ";" package ${package})
    list(GET package 0 component)
    list(GET package 1 name)
    install(FILES ${CMAKE_SOURCE_DIR}/cmake/packages/copyright
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name} COMPONENT ${component})
endforeach()

# What is linked to libfdk-aac depends on Debian's non-free section, and must not be given away with
# FFmpeg as Debian builds it.
option(ORV_PACKAGE_FDK_AAC "Make packages of a build with libfdk-aac" OFF)
if(ORV_WITH_FDK_AAC AND ORV_FDK_AAC_FOUND AND NOT ORV_PACKAGE_FDK_AAC)
    set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/OrvRefusePackages.cmake)
endif()

include(CPack)
cpack_add_component(player GROUP runtime)
cpack_add_component(client GROUP runtime)
cpack_add_component(tools GROUP programs)
cpack_add_component(dev GROUP development)
