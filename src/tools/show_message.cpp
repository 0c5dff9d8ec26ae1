// show-message KIND: shows what it reads from standard input in a window, for a launcher that nobody sees the
// terminal of. KIND is "error" or "info".
#include "common/owned.h"
#include "i18n.h"
#include "wrapped_label.h"

#include <gtk/gtk.h>
#include <string>
#include <string_view>

namespace {

constexpr const char *window_icon = "/usr/share/gtk-tarnel/gtk-tarnel.png";
// Of a program that has printed without end, the last words tell the most.
constexpr std::size_t longest = 4000;

std::string read_message()
{
    std::string text;
    char buffer[4096];
    while (const std::size_t got = std::fread(buffer, 1, sizeof(buffer), stdin)) {
        text.append(buffer, got);
        if (text.size() > 2 * longest)
            text.erase(0, text.size() - longest);
    }
    if (text.size() > longest)
        text.erase(0, text.size() - longest);
    while (text.ends_with('\n'))
        text.pop_back();
    return text;
}

void show(const std::string &text, GtkMessageType kind)
{
    const owned_gchar valid(g_utf8_make_valid(text.c_str(), -1));
    GtkWidget *dialog = gtk_message_dialog_new(nullptr, static_cast<GtkDialogFlags>(0), kind,
                                               GTK_BUTTONS_CLOSE, "%s", valid.get());
    gtk_window_set_title(GTK_WINDOW(dialog), _("Pelva integrity-check templates"));
    GtkWidget *area = gtk_message_dialog_get_message_area(GTK_MESSAGE_DIALOG(dialog));
    const auto wrap = +[](GtkWidget *widget, gpointer) {
        if (GTK_IS_LABEL(widget))
            wrap_label(GTK_LABEL(widget));
    };
    gtk_container_foreach(GTK_CONTAINER(area), wrap, nullptr);
    gtk_dialog_run(GTK_DIALOG(dialog));
    gtk_widget_destroy(dialog);
}

} // namespace

int main(int argc, char **argv)
{
    bindtextdomain(TEXT_DOMAIN, "/usr/share/locale/");
    bind_textdomain_codeset(TEXT_DOMAIN, "UTF-8");
    if (!gtk_init_check(&argc, &argv))
        return 1;
    gtk_window_set_default_icon_from_file(window_icon, nullptr);
    const std::string text = read_message();
    if (!text.empty())
        show(text, argc > 1 && std::string_view(argv[1]) == "info" ? GTK_MESSAGE_INFO : GTK_MESSAGE_ERROR);
    return 0;
}
