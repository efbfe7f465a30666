// lxavidemux: demultiplexes what the element before it has, a file source or a buffer that can seek. It pulls.

#include "Element.hpp"

struct LxaviDemux {
    LxaviElement parent;
};

struct LxaviDemuxClass {
    LxaviElementClass parent_class;
};

G_DEFINE_TYPE(LxaviDemux, lxavi_demux, LXAVI_TYPE_ELEMENT)

namespace {

GstStaticPadTemplate s_sink =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-msvideo"));

bool CanPull(GstPad* pPad)
{
    GstQuery* const pQuery = gst_query_new_scheduling();
    const bool can =
        gst_pad_peer_query(pPad, pQuery) != FALSE &&
        gst_query_has_scheduling_mode_with_flags(pQuery, GST_PAD_MODE_PULL, GST_SCHEDULING_FLAG_SEEKABLE) != FALSE;
    gst_query_unref(pQuery);
    return can;
}

gboolean OnActivate(GstPad* pPad, GstObject* pParent)
{
    if (CanPull(pPad)) {
        return gst_pad_activate_mode(pPad, GST_PAD_MODE_PULL, TRUE);
    }
    GST_ELEMENT_ERROR(GST_ELEMENT(pParent), STREAM, WRONG_TYPE, ("This input cannot seek."),
                      ("lxavidemux pulls; lxavisrc also reads pipes."));
    return FALSE;
}

gboolean OnActivateMode(GstPad* pPad, GstObject* pParent, GstPadMode mode, gboolean active)
{
    if (mode != GST_PAD_MODE_PULL) {
        return FALSE;
    }
    if (active == FALSE) {
        lxavigst::InterruptPlayer(LXAVI_ELEMENT(pParent)); // the element ends the task when its other pads are inactive
        return TRUE;
    }
    return lxavigst::StartPlayer(LXAVI_ELEMENT(pParent), lxavigst::OpenPad(pPad)) ? TRUE : FALSE;
}

// What comes from before is of no use to those behind: the streams have events of their own.
gboolean OnEvent(GstPad* /*pPad*/, GstObject* /*pParent*/, GstEvent* pEvent)
{
    gst_event_unref(pEvent);
    return TRUE;
}

} // namespace

static void lxavi_demux_init(LxaviDemux* pDemux)
{
    GstPad* const pPad = gst_pad_new_from_static_template(&s_sink, "sink");
    gst_pad_set_activate_function(pPad, OnActivate);
    gst_pad_set_activatemode_function(pPad, OnActivateMode);
    gst_pad_set_event_function(pPad, OnEvent);
    gst_element_add_pad(GST_ELEMENT(pDemux), pPad);
}

static void lxavi_demux_class_init(LxaviDemuxClass* pClass)
{
    gst_element_class_add_static_pad_template(GST_ELEMENT_CLASS(pClass), &s_sink);
    gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(pClass), "AVI demultiplexer", "Codec/Demuxer",
                                          "Demultiplexes an AVI or OpenDML file", "lxAviRead developers");
}
