#include "trace_log.h"

#include "common/owned.h"
#include "common/visible_text.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

std::int32_t trace_enabled = 0;

static thread_local std::string *kept = nullptr;

int(trace_log)(const char *format, ...)
{
    if (!trace_enabled)
        return 0;
    const int error = errno; // which the caller may not have looked at yet
    va_list arguments;
    va_start(arguments, format);
    const owned_gchar text(g_strdup_vprintf(format, arguments));
    va_end(arguments);
    // Names of files and disks may hold what moves a terminal, or looks like another line.
    std::string_view line = text.get();
    const bool is_whole = std::string_view(format).ends_with('\n') && line.ends_with('\n');
    line.remove_suffix(is_whole ? 1 : 0);
    const std::string shown = visible_text(line, text_form::listing) + (is_whole ? "\n" : "");
    const int written = trace_kept(shown);
    errno = error;
    return written;
}

void keep_trace(std::string *lines)
{
    kept = lines;
}

int trace_kept(const std::string &lines)
{
    if (!kept)
        return static_cast<int>(std::fwrite(lines.data(), 1, lines.size(), stderr));
    kept->append(lines);
    return static_cast<int>(lines.size());
}
