// What a page says without a question: a bar above its tree tells what the last save or the start could not
// do, and lists the files concerned; and that there are warnings about disks, to which it leads. Without a
// window only the texts are kept.
#pragma once

#include "app.h"

#include <list>
#include <string>

// Sets what the page of this list says of one subject, or takes it away when the text is empty; the text is
// UTF-8. The names are bytes, as files have them; a button shows them, each on a line.
void set_notice(struct app *app, list_kind page, notice_subject subject, const std::string &text,
                std::list<std::string> names = {});

// A text with a number: `format` is the form that belongs to it, with one "%u".
[[nodiscard]] std::string with_count(const char *format, std::size_t count);

// As dialogs show them: a line for each name.
[[nodiscard]] std::string lines_of(const std::list<std::string> &names);

// The bar above the tree that this view shows; null when there is none.
[[nodiscard]] GtkWidget *notice_bar(GtkWidget *view);

// A save did all there was to do: nothing of what was said of the template holds any more.
void clear_notices(struct app *app, list_kind page);
