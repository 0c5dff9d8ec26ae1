#include "i18n.h"
#include "window_description.h"

#include <glade/glade.h>

struct window_description {
    GladeXML *xml;
};

const char *const window_description_file = "/usr/share/gtk-tarnel//gtk-tarnel.glade";

window_description *load_window_description(const std::string &file)
{
    GladeXML *xml = glade_xml_new(file.c_str(), nullptr, TEXT_DOMAIN);
    return xml ? new window_description{xml} : nullptr;
}

void release_window_description(window_description *description)
{
    g_object_unref(description->xml);
    delete description;
}

GtkWidget *described_widget(window_description *description, const char *name)
{
    return glade_xml_get_widget(description->xml, name);
}

void connect_handlers(window_description *description, std::span<const window_handler> handlers, void *record)
{
    for (const window_handler &handler : handlers)
        glade_xml_signal_connect_data(description->xml, handler.name, handler.function, record);
}
