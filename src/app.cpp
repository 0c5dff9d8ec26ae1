#include "app.h"

std::int32_t files_changed = 0;
std::int32_t sectors_changed = 0;

saved_template &template_of(struct app &app, list_kind kind)
{
    return kind == list_kind::files ? app.file_template : app.sector_template;
}
