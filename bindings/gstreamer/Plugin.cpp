// The plugin. Its elements have no rank: nothing takes them by itself, because the library reads one file at a time in a
// process, and others may want two.

#include "Element.hpp"

static gboolean Register(GstPlugin* pPlugin)
{
    return gst_element_register(pPlugin, "lxavisrc", GST_RANK_NONE, lxavi_src_get_type()) != FALSE &&
                   gst_element_register(pPlugin, "lxavidemux", GST_RANK_NONE, lxavi_demux_get_type()) != FALSE
               ? TRUE
               : FALSE;
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, lxavi, "Reads AVI and OpenDML files", Register, LXAVI_VERSION,
                  "Proprietary", "lxAviRead", "https://lxaviread.invalid/")
