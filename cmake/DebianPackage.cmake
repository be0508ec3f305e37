# Run by CPack after the install into its staging folder, and after its strip.
# The package runs the system's ffmpeg and ffprobe, which the package depends on and
# Debian keeps up to date, through links where a build from the checkout has its own
# copies. The programs lose the sections Debian's own packaging drops too.
file(GLOB_RECURSE tool_dirs LIST_DIRECTORIES true "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
foreach(dir IN LISTS tool_dirs)
    if(IS_DIRECTORY "${dir}" AND dir MATCHES "/share/morvane/ffmpeg/bin$")
        file(REMOVE_RECURSE "${dir}")
        file(MAKE_DIRECTORY "${dir}")
        foreach(tool ffmpeg ffprobe)
            # Relative, as Debian links within /usr: share/morvane/ffmpeg/bin to bin.
            file(CREATE_LINK "../../../../bin/${tool}" "${dir}/${tool}" SYMBOLIC)
        endforeach()
        set(linked TRUE)
    endif()
endforeach()
if(NOT linked)
    message(FATAL_ERROR "no share/morvane/ffmpeg/bin in ${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
endif()

file(GLOB programs "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/bin/*")
foreach(program IN LISTS programs)
    execute_process(COMMAND strip --remove-section=.comment --remove-section=.note "${program}"
                    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
