// Labels for messages of any length.
#pragma once

typedef struct _GtkLabel GtkLabel;

// Wraps a label's text, within its words where nothing else helps. A name gets no hyphen that it does not
// have.
void wrap_anywhere(GtkLabel *label);

// Breaks the lines of a label where they are wider than a message should be, inside a word if need be. GTK's
// own measures cut such lines off instead.
void wrap_label(GtkLabel *label);
