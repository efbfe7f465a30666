#include "Element.hpp"

using lxavigst::Player;

namespace {

constexpr guint kDefaultIndexMemory = 16 << 20;

enum Property { kNoProperty, kIndexMemory, kRebuildIndex };

} // namespace

struct LxaviElementPrivate {
    Player* pPlayer;
    guint indexMemory; // this and the next under the lock of the object
    gboolean rebuildIndex;
};

G_DEFINE_ABSTRACT_TYPE_WITH_PRIVATE(LxaviElement, lxavi_element, GST_TYPE_ELEMENT)

namespace {

LxaviElementPrivate& PrivateOf(gpointer pElement)
{
    return *static_cast<LxaviElementPrivate*>(lxavi_element_get_instance_private(LXAVI_ELEMENT(pElement)));
}

Player& PlayerOf(gpointer pElement) { return *PrivateOf(pElement).pPlayer; }

// ---- Events and queries ----

gboolean OnPadEvent(GstPad* pPad, GstObject* pParent, GstEvent* pEvent)
{
    if (GST_EVENT_TYPE(pEvent) == GST_EVENT_SEEK) {
        const bool done = PlayerOf(pParent).Seek(pEvent);
        gst_event_unref(pEvent);
        return done ? TRUE : FALSE;
    }
    if (GST_EVENT_TYPE(pEvent) == GST_EVENT_RECONFIGURE) {
        gst_event_unref(pEvent);
        return TRUE;
    }
    return gst_pad_event_default(pPad, pParent, pEvent);
}

gboolean OnPadQuery(GstPad* pPad, GstObject* pParent, GstQuery* pQuery)
{
    return PlayerOf(pParent).Query(pPad, pQuery) ? TRUE : gst_pad_query_default(pPad, pParent, pQuery);
}

gboolean OnSendEvent(GstElement* pElement, GstEvent* pEvent)
{
    switch (GST_EVENT_TYPE(pEvent)) {
    case GST_EVENT_SEEK: {
        const bool done = PlayerOf(pElement).Seek(pEvent);
        gst_event_unref(pEvent);
        return done ? TRUE : FALSE;
    }
    case GST_EVENT_EOS:
        PlayerOf(pElement).EndEarly();
        gst_event_unref(pEvent);
        return TRUE;
    default: return GST_ELEMENT_CLASS(lxavi_element_parent_class)->send_event(pElement, pEvent);
    }
}

gboolean OnQuery(GstElement* pElement, GstQuery* pQuery)
{
    return PlayerOf(pElement).Query(nullptr, pQuery)
               ? TRUE
               : GST_ELEMENT_CLASS(lxavi_element_parent_class)->query(pElement, pQuery);
}

// ---- States ----

GstStateChangeReturn OnChangeState(GstElement* pElement, GstStateChange change)
{
    LxaviElementClass* const pClass = LXAVI_ELEMENT_GET_CLASS(pElement);
    if (change == GST_STATE_CHANGE_PAUSED_TO_READY) {
        PlayerOf(pElement).Interrupt();
    }
    const GstStateChangeReturn result = GST_ELEMENT_CLASS(lxavi_element_parent_class)->change_state(pElement, change);
    if (change == GST_STATE_CHANGE_PAUSED_TO_READY) {
        PlayerOf(pElement).Stop();
    }
    if (change == GST_STATE_CHANGE_READY_TO_PAUSED) {
        const bool started = result != GST_STATE_CHANGE_FAILURE &&
                             (pClass->pfnStart == nullptr || pClass->pfnStart(LXAVI_ELEMENT(pElement)));
        if (!started) {
            PlayerOf(pElement).Stop();
            return GST_STATE_CHANGE_FAILURE;
        }
    }
    return result;
}

// ---- Properties ----

void SetProperty(GObject* pObject, guint id, const GValue* pValue, GParamSpec* pSpec)
{
    const lxavigst::ElementLock lock(GST_ELEMENT(pObject));
    switch (id) {
    case kIndexMemory: PrivateOf(pObject).indexMemory = g_value_get_uint(pValue); break;
    case kRebuildIndex: PrivateOf(pObject).rebuildIndex = g_value_get_boolean(pValue); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(pObject, id, pSpec);
    }
}

void GetProperty(GObject* pObject, guint id, GValue* pValue, GParamSpec* pSpec)
{
    const lxavigst::ElementLock lock(GST_ELEMENT(pObject));
    switch (id) {
    case kIndexMemory: g_value_set_uint(pValue, PrivateOf(pObject).indexMemory); break;
    case kRebuildIndex: g_value_set_boolean(pValue, PrivateOf(pObject).rebuildIndex); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(pObject, id, pSpec);
    }
}

void Finalize(GObject* pObject)
{
    delete PrivateOf(pObject).pPlayer;
    G_OBJECT_CLASS(lxavi_element_parent_class)->finalize(pObject);
}

GParamFlags Flags(int more) { return static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | more); }

} // namespace

static void lxavi_element_init(LxaviElement* pElement)
{
    LxaviElementPrivate& element = PrivateOf(pElement);
    element.pPlayer = new Player(GST_ELEMENT(pElement), {OnPadEvent, OnPadQuery});
    element.indexMemory = kDefaultIndexMemory;
    element.rebuildIndex = TRUE;
}

static void lxavi_element_class_init(LxaviElementClass* pClass)
{
    GObjectClass* const pObjectClass = G_OBJECT_CLASS(pClass);
    pObjectClass->set_property = SetProperty;
    pObjectClass->get_property = GetProperty;
    pObjectClass->finalize = Finalize;
    g_object_class_install_property(
        pObjectClass, kIndexMemory,
        g_param_spec_uint("index-memory", "Index memory",
                          "Bytes for the table of key frames, at most. Where they are too few, every n-th key frame is "
                          "in the table.",
                          128 * 1024, G_MAXUINT, kDefaultIndexMemory, Flags(GST_PARAM_MUTABLE_READY)));
    g_object_class_install_property(
        pObjectClass, kRebuildIndex,
        g_param_spec_boolean("rebuild-index", "Rebuild index",
                             "Whether a file without an index is walked through before it plays, so that it can seek",
                             TRUE, Flags(GST_PARAM_MUTABLE_READY)));

    GstElementClass* const pElementClass = GST_ELEMENT_CLASS(pClass);
    pElementClass->change_state = OnChangeState;
    pElementClass->send_event = OnSendEvent;
    pElementClass->query = OnQuery;
    lxavigst::AddTemplates(pElementClass);
}

namespace lxavigst {

bool StartPlayer(LxaviElement* pElement, std::unique_ptr<Input> pInput)
{
    const LxaviElementPrivate& element = PrivateOf(pElement);
    guint indexMemory = 0;
    bool rebuild = false;
    {
        const ElementLock lock(GST_ELEMENT(pElement));
        indexMemory = element.indexMemory;
        rebuild = element.rebuildIndex != FALSE;
    }
    return element.pPlayer->Start(std::move(pInput), indexMemory, rebuild);
}

void InterruptPlayer(LxaviElement* pElement) { PlayerOf(pElement).Interrupt(); }

} // namespace lxavigst
