#include "notice_bar.h"

#include "dialogs.h"
#include "display_text.h"
#include "i18n.h"
#include "window_description.h"

#include <gtk/gtk.h>
#include <utility>

namespace {

constexpr const char *bar_key = "notice-bar"; // the bar, as data of the box that it is in
constexpr int space = 8;
constexpr int text_width = 560; // pixels; with the button beside it no wider than the page's hint

const notice &notice_of(const saved_template &state, notice_subject subject)
{
    return state.notices.at(static_cast<std::size_t>(subject));
}

// All that is said, or what names go with.
std::string text_of(const saved_template &state, bool only_with_names = false)
{
    std::string text;
    for (const notice &said : state.notices) {
        if (!said.text.empty() && !(only_with_names && said.names.empty()))
            text += (text.empty() ? "" : "\n") + said.text;
    }
    return text;
}

std::string names_of(const saved_template &state)
{
    std::string lines;
    for (const notice &said : state.notices)
        lines += lines_of(said.names);
    return lines;
}

constexpr gint show_information = 1; // a response; the other button's is GTK's "OK"

// Turns to the page with the notes on disks.
void show_disk_notes(struct app *app, GtkInfoBar *bar)
{
    GtkNotebook *pages = GTK_NOTEBOOK(gtk_widget_get_ancestor(GTK_WIDGET(bar), GTK_TYPE_NOTEBOOK));
    GtkWidget *page = described_widget(app->xml, "info_disks");
    while (page && gtk_notebook_page_num(pages, page) < 0)
        page = gtk_widget_get_parent(page);
    if (page)
        gtk_notebook_set_current_page(pages, gtk_notebook_page_num(pages, page));
}

template<list_kind page> void on_response(GtkInfoBar *bar, gint response, struct app *app)
{
    if (response == show_information) {
        show_disk_notes(app, bar);
        return;
    }
    const saved_template &state = template_of(*app, page);
    dialog_ok_list(app->window, page == list_kind::files ? _("Files") : _("Sectors"),
                   text_of(state, true).c_str(), "%s", names_of(state).c_str());
}

GtkWidget *make_bar(struct app *app, list_kind page, const std::string &text)
{
    const saved_template &state = template_of(*app, page);
    GtkWidget *bar = gtk_info_bar_new();
    gtk_info_bar_set_message_type(GTK_INFO_BAR(bar), GTK_MESSAGE_WARNING);
    GtkBox *content = GTK_BOX(gtk_info_bar_get_content_area(GTK_INFO_BAR(bar)));
    GtkWidget *image = gtk_image_new_from_stock(GTK_STOCK_DIALOG_WARNING, GTK_ICON_SIZE_LARGE_TOOLBAR);
    GtkWidget *label = gtk_label_new(text.c_str());
    gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
    gtk_label_set_line_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
    gtk_widget_set_size_request(label, text_width, -1);
    gtk_misc_set_alignment(GTK_MISC(label), 0.0F, 0.5F);
    gtk_box_set_spacing(content, space);
    gtk_box_pack_start(content, image, FALSE, FALSE, 0);
    gtk_box_pack_start(content, label, TRUE, TRUE, 0);
    if (!names_of(state).empty())
        gtk_info_bar_add_button(GTK_INFO_BAR(bar),
                                page == list_kind::files ? _("_List the files") : _("_List the sectors"),
                                GTK_RESPONSE_OK);
    if (!notice_of(state, notice_subject::disks).text.empty())
        gtk_info_bar_add_button(GTK_INFO_BAR(bar), _("_Information"), show_information);
    g_signal_connect(bar, "response",
                     page == list_kind::files ? G_CALLBACK(on_response<list_kind::files>)
                                              : G_CALLBACK(on_response<list_kind::sectors>),
                     app);
    gtk_widget_show_all(bar);
    return bar;
}

// The bar is made anew with every change: it changes rarely.
void update_bar(struct app *app, list_kind page)
{
    GtkWidget *view = page == list_kind::files ? app->filebrowser : app->diskbrowser;
    GtkWidget *box = view ? gtk_widget_get_ancestor(view, GTK_TYPE_VBOX) : nullptr;
    if (!box)
        return;
    if (GtkWidget *old = notice_bar(view))
        gtk_widget_destroy(old);
    g_object_set_data(G_OBJECT(box), bar_key, nullptr);
    const std::string text = text_of(template_of(*app, page));
    if (text.empty())
        return;
    GtkWidget *bar = make_bar(app, page, text);
    GtkWidget *tree = view; // with what scrolls it
    while (gtk_widget_get_parent(tree) != box)
        tree = gtk_widget_get_parent(tree);
    gint place = 0;
    gtk_container_child_get(GTK_CONTAINER(box), tree, "position", &place, nullptr);
    gtk_box_pack_start(GTK_BOX(box), bar, FALSE, TRUE, 0);
    gtk_box_reorder_child(GTK_BOX(box), bar, place);
    g_object_set_data(G_OBJECT(box), bar_key, bar);
}

} // namespace

std::string with_count(const char *format, std::size_t count)
{
    const owned_gchar text(g_strdup_printf(format, static_cast<unsigned>(count)));
    return text.get();
}

std::string lines_of(const std::list<std::string> &names)
{
    std::string lines;
    for (const std::string &name : names)
        lines += display_text(name) + "\n";
    return lines;
}

void set_notice(struct app *app, list_kind page, notice_subject subject, const std::string &text,
                std::list<std::string> names)
{
    template_of(*app, page).notices.at(static_cast<std::size_t>(subject)) = {text, std::move(names)};
    update_bar(app, page);
}

GtkWidget *notice_bar(GtkWidget *view)
{
    GtkWidget *box = view ? gtk_widget_get_ancestor(view, GTK_TYPE_VBOX) : nullptr;
    return box ? static_cast<GtkWidget *>(g_object_get_data(G_OBJECT(box), bar_key)) : nullptr;
}

void clear_notices(struct app *app, list_kind page)
{
    saved_template &state = template_of(*app, page);
    notice disks = notice_of(state, notice_subject::disks), gaps = notice_of(state, notice_subject::gaps);
    state.notices = {};
    state.notices.at(static_cast<std::size_t>(notice_subject::disks)) = std::move(disks);
    set_notice(app, page, notice_subject::gaps, gaps.text, std::move(gaps.names));
}
