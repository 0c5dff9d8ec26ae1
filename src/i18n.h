// User-visible texts: English message identifiers, translated through the program's text domain.
#pragma once

#include <libintl.h>

#define TEXT_DOMAIN "gtk-tarnel"
#define _(text) dgettext(TEXT_DOMAIN, text)
