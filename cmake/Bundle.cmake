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

# Where Morvane is distributed from, and where to write: the Help window's Support.
set(MORVANE_HOMEPAGE "https://github.com/morvane/morvane" CACHE STRING "Project web site")
set(MORVANE_SUPPORT_EMAIL "support@morvane.org" CACHE STRING "Support address")
