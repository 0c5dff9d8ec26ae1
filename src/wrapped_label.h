// Labels for messages of any length.
#pragma once

typedef struct _GtkLabel GtkLabel;

// Breaks the lines of a label where they are wider than a message should be, inside a word if need be. GTK's
// own measures cut such lines off instead.
void wrap_label(GtkLabel *label);
