# The GStreamer plugin, if it can be built.

find_package(PkgConfig)
set(gstreamer_needed REQUIRED)
if(LXAVIREAD_GSTREAMER STREQUAL AUTO)
  set(gstreamer_needed QUIET)
endif()
if(PkgConfig_FOUND)
  pkg_check_modules(GSTREAMER ${gstreamer_needed} IMPORTED_TARGET GLOBAL
    gstreamer-1.0>=1.20 gstreamer-base-1.0 gstreamer-audio-1.0 gstreamer-tag-1.0 gstreamer-riff-1.0)
elseif(gstreamer_needed STREQUAL REQUIRED)
  message(FATAL_ERROR "The GStreamer plugin needs pkg-config")
endif()
if(GSTREAMER_FOUND)
  add_subdirectory(bindings/gstreamer)
else()
  message(STATUS "GStreamer is not installed: its plugin is not built")
endif()
