// What the two elements have in common: properties, states, and the way of events and queries to the player.

#pragma once

#include "Player.hpp"

#include <gst/gst.h>

G_BEGIN_DECLS

#define LXAVI_TYPE_ELEMENT (lxavi_element_get_type())
G_DECLARE_DERIVABLE_TYPE(LxaviElement, lxavi_element, LXAVI, ELEMENT, GstElement)

struct _LxaviElementClass {
    GstElementClass parent_class;
    // Called on the way to PAUSED; null for an element whose sink pad starts the player.
    bool (*pfnStart)(LxaviElement* pElement);
};

GType lxavi_src_get_type();
GType lxavi_demux_get_type();

G_END_DECLS

namespace lxavigst {

// Starts the player of an element.
bool StartPlayer(LxaviElement* pElement, std::unique_ptr<Input> pInput);
void InterruptPlayer(LxaviElement* pElement);

} // namespace lxavigst
