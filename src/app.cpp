#include "app.h"

std::int32_t files_changed = 0;
std::int32_t sectors_changed = 0;
