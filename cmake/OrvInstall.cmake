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
