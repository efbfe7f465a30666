// lxavisrc: plays the file at a path. It also plays pipes, from start to end.
//
// It is no handler of URIs: those who play a URI give each pad of a source a decoder, and block the first pad until the last
// one is decoded. One task feeds all pads here, so that would never be. lxavidemux is for them.

#include "Element.hpp"

struct LxaviSrc {
    LxaviElement parent;
    gchar* pLocation; // under the lock of the object
};

struct LxaviSrcClass {
    LxaviElementClass parent_class;
};

G_DEFINE_TYPE(LxaviSrc, lxavi_src, LXAVI_TYPE_ELEMENT)

namespace {

enum Property { kNoProperty, kLocation };

LxaviSrc* SourceOf(gpointer pObject) { return reinterpret_cast<LxaviSrc*>(pObject); }

gchar* LocationOf(gpointer pObject)
{
    const lxavigst::ElementLock lock(GST_ELEMENT(pObject));
    return g_strdup(SourceOf(pObject)->pLocation);
}

// False while the element plays.
bool SetLocation(gpointer pObject, const gchar* pLocation)
{
    const lxavigst::ElementLock lock(GST_ELEMENT(pObject));
    if (GST_STATE(pObject) > GST_STATE_READY) {
        return false;
    }
    g_free(SourceOf(pObject)->pLocation);
    SourceOf(pObject)->pLocation = g_strdup(pLocation);
    return true;
}

bool Start(LxaviElement* pElement)
{
    gchar* const pLocation = LocationOf(pElement);
    const std::string path = pLocation != nullptr ? pLocation : "";
    g_free(pLocation);
    if (path.empty()) {
        GST_ELEMENT_ERROR(pElement, RESOURCE, NOT_FOUND, ("No file is given."),
                          ("The property \"location\" is not set."));
        return false;
    }
    GError* pError = nullptr;
    std::unique_ptr<lxavigst::Input> pInput = lxavigst::OpenFile(path, &pError);
    if (pInput == nullptr) {
        gst_element_message_full(GST_ELEMENT(pElement), GST_MESSAGE_ERROR, pError->domain, pError->code,
                                 g_strdup(pError->message), nullptr, __FILE__, __func__, __LINE__);
        g_error_free(pError);
        return false;
    }
    return lxavigst::StartPlayer(pElement, std::move(pInput));
}

// ---- Queries ----

// The names of the streams are made of it.
gchar* UriOf(gpointer pObject)
{
    gchar* const pLocation = LocationOf(pObject);
    gchar* const pUri = pLocation != nullptr ? gst_filename_to_uri(pLocation, nullptr) : nullptr;
    g_free(pLocation);
    return pUri;
}

gboolean OnQuery(GstElement* pElement, GstQuery* pQuery)
{
    if (GST_QUERY_TYPE(pQuery) != GST_QUERY_URI) {
        return GST_ELEMENT_CLASS(lxavi_src_parent_class)->query(pElement, pQuery);
    }
    gchar* const pUri = UriOf(pElement);
    if (pUri == nullptr) {
        return FALSE;
    }
    gst_query_set_uri(pQuery, pUri);
    g_free(pUri);
    return TRUE;
}

// ---- Properties ----

void SetProperty(GObject* pObject, guint id, const GValue* pValue, GParamSpec* pSpec)
{
    if (id != kLocation) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(pObject, id, pSpec);
    } else if (!SetLocation(pObject, g_value_get_string(pValue))) {
        g_warning("The property \"location\" cannot be changed while the element plays.");
    }
}

void GetProperty(GObject* pObject, guint id, GValue* pValue, GParamSpec* pSpec)
{
    if (id != kLocation) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(pObject, id, pSpec);
        return;
    }
    g_value_take_string(pValue, LocationOf(pObject));
}

void Finalize(GObject* pObject)
{
    g_free(SourceOf(pObject)->pLocation);
    G_OBJECT_CLASS(lxavi_src_parent_class)->finalize(pObject);
}

} // namespace

static void lxavi_src_init(LxaviSrc* pSource) { GST_OBJECT_FLAG_SET(pSource, GST_ELEMENT_FLAG_SOURCE); }

static void lxavi_src_class_init(LxaviSrcClass* pClass)
{
    GObjectClass* const pObjectClass = G_OBJECT_CLASS(pClass);
    pObjectClass->set_property = SetProperty;
    pObjectClass->get_property = GetProperty;
    pObjectClass->finalize = Finalize;
    g_object_class_install_property(
        pObjectClass, kLocation,
        g_param_spec_string(
            "location", "Location", "Path of the file, or of a pipe", nullptr,
            static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY)));
    GST_ELEMENT_CLASS(pClass)->query = OnQuery;
    pClass->parent_class.pfnStart = Start;
    gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(pClass), "AVI file reader", "Source/Demuxer/File",
                                          "Reads and demultiplexes an AVI or OpenDML file", "lxAviRead developers");
}
