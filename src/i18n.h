// User-visible texts: English message identifiers, translated through the program's text domain.
#pragma once

#include <libintl.h>

#define TEXT_DOMAIN "gtk-tarnel"
#define _(text) dgettext(TEXT_DOMAIN, text)
// The form of a text that belongs to a number.
#define P_(one, many, number) dngettext(TEXT_DOMAIN, one, many, number)
