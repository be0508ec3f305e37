# Copies ffmpeg-bundle/ to the shared-support location on every build, and
# empties that location when the bundle is gone, so the build mirrors the
# checkout. A missing bundle is no build error: the application reports it.
set(MORVANE_SHARED_SUPPORT ${CMAKE_BINARY_DIR}/share/morvane)
add_custom_target(ffmpeg_bundle ALL
    COMMAND ${CMAKE_COMMAND}
        -DSOURCE=${CMAKE_SOURCE_DIR}/ffmpeg-bundle
        -DDEST=${MORVANE_SHARED_SUPPORT}/ffmpeg/bin
        -P ${CMAKE_SOURCE_DIR}/cmake/CopyBundle.cmake
    COMMENT "Copying ffmpeg-bundle to share/morvane/ffmpeg/bin")

# What the Help window's credits say of the bundled FFmpeg, read when configuring.
set(MORVANE_FFMPEG_VERSION "")
set(MORVANE_FFMPEG_LICENSE "")
if(EXISTS ${CMAKE_SOURCE_DIR}/ffmpeg-bundle/VERSION)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/ffmpeg-bundle/VERSION)
    file(STRINGS ${CMAKE_SOURCE_DIR}/ffmpeg-bundle/VERSION bundle_lines)
    foreach(line IN LISTS bundle_lines)
        if(line MATCHES "^version=(.*)$")
            # The upstream version, without the packager's revision.
            string(REGEX REPLACE "-.*$" "" MORVANE_FFMPEG_VERSION "${CMAKE_MATCH_1}")
        elseif(line MATCHES "^license=(.*)$")
            set(MORVANE_FFMPEG_LICENSE "${CMAKE_MATCH_1}")
        endif()
    endforeach()
endif()

# Where Morvane is distributed from, and where to write: the Help window's Support.
set(MORVANE_HOMEPAGE "https://github.com/morvane/morvane" CACHE STRING "Project web site")
set(MORVANE_SUPPORT_EMAIL "support@morvane.org" CACHE STRING "Support address")
