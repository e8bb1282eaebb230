# Where things go when they are installed. Programs find the libraries relative to themselves, so a
# staged or moved tree works; the folder of the packaged platform utilities comes with their target.
include(GNUInstallDirs)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME player)
file(RELATIVE_PATH orv_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})

# orv_install(TARGETS target ... [COMPONENT name]): programs and libraries.
function(orv_install)
    cmake_parse_arguments(ARG "" "COMPONENT" "TARGETS" ${ARGN})
    set(component player)
    if(ARG_COMPONENT)
        set(component ${ARG_COMPONENT})
    endif()
    foreach(target ${ARG_TARGETS})
        get_target_property(type ${target} TYPE)
        set(path "$ORIGIN")
        if(type STREQUAL EXECUTABLE)
            set(path "$ORIGIN/${orv_bin_to_lib}")
        endif()
        set_target_properties(${target} PROPERTIES INSTALL_RPATH "${path}")
    endforeach()
    install(TARGETS ${ARG_TARGETS} COMPONENT ${component})
endfunction()

# orv_install_configured(input output [variable ...]): a file that names where programs are
# installed, which the installation knows alone: its prefix may be another than the build's. The
# variables are replaced in it, too; `output` is below the prefix.
function(orv_install_configured input output)
    set(given "")
    foreach(variable ${ARGN})
        string(APPEND given "set(${variable} \"${${variable}}\")\n")
    endforeach()
    get_filename_component(folder ${output} DIRECTORY)
    set(made ${CMAKE_CURRENT_BINARY_DIR}/installed/${output})
    install(CODE "
        ${given}
        set(CMAKE_INSTALL_FULL_BINDIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
        set(CMAKE_INSTALL_FULL_DOCDIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}\")
        set(CMAKE_INSTALL_FULL_SYSCONFDIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SYSCONFDIR}\")
        if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
            set(CMAKE_INSTALL_FULL_SYSCONFDIR /etc)
        endif()
        configure_file(\"${CMAKE_CURRENT_SOURCE_DIR}/${input}\" \"${made}\" @ONLY)
        file(INSTALL \"${made}\" DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${folder}\")
    ")
endfunction()
