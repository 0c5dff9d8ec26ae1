#include "gtk_owned.h"
#include "i18n.h"
#include "trace_log.h"
#include "window_description.h"

#include <algorithm>
#include <gtk/gtk.h>
#include <utility>

struct window_description {
    owned_object<GtkBuilder> builder;
};

const char *const window_description_file = "/usr/share/gtk-tarnel//gtk-tarnel.ui";

namespace {

struct connection {
    std::span<const window_handler> handlers;
    void *record;
};

void connect_one(GtkBuilder *, GObject *object, const gchar *signal, const gchar *name, GObject *,
                 GConnectFlags flags, gpointer data)
{
    const auto *wanted = static_cast<connection *>(data);
    const auto found = std::ranges::find_if(
        wanted->handlers, [name](const window_handler &handler) { return g_str_equal(handler.name, name); });
    if (found != wanted->handlers.end())
        g_signal_connect_data(object, signal, found->function, wanted->record, nullptr, flags);
}

// GtkBuilder takes a file that ends too early for a whole one.
bool is_whole(const gchar *text, gsize length, GError **error)
{
    const GMarkupParser nothing = {};
    GMarkupParseContext *context = g_markup_parse_context_new(&nothing, {}, nullptr, nullptr);
    const bool whole = g_markup_parse_context_parse(context, text, static_cast<gssize>(length), error) &&
                       g_markup_parse_context_end_parse(context, error);
    g_markup_parse_context_free(context);
    return whole;
}

} // namespace

window_description *load_window_description(const std::string &file)
{
    owned_object<GtkBuilder> builder(gtk_builder_new());
    gtk_builder_set_translation_domain(builder.get(), TEXT_DOMAIN);
    gchar *read = nullptr;
    gsize length = 0;
    GError *error = nullptr;
    const bool loaded = g_file_get_contents(file.c_str(), &read, &length, &error) &&
                        is_whole(read, length, &error) &&
                        gtk_builder_add_from_string(builder.get(), read, length, &error) != 0;
    g_free(read);
    if (loaded)
        return new window_description{std::move(builder)};
    trace_log("%s", error->message);
    g_error_free(error);
    return nullptr;
}

void release_window_description(window_description *description)
{
    delete description;
}

GtkWidget *described_widget(window_description *description, const char *name)
{
    GObject *object = gtk_builder_get_object(description->builder.get(), name);
    return GTK_IS_WIDGET(object) ? GTK_WIDGET(object) : nullptr;
}

void connect_handlers(window_description *description, std::span<const window_handler> handlers, void *record)
{
    connection wanted = {handlers, record};
    gtk_builder_connect_signals_full(description->builder.get(), connect_one, &wanted);
}
