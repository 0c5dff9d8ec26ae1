#include "display_text.h"

#include "common/visible_text.h"

std::string display_text(std::string_view bytes)
{
    return visible_text(bytes, text_form::screen);
}
