#include "trace_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

std::int32_t trace_enabled = 0;

static thread_local std::string *kept = nullptr;

int(trace_log)(const char *format, ...)
{
    if (!trace_enabled)
        return 0;
    const int error = errno; // which the caller may not have looked at yet
    va_list arguments;
    va_start(arguments, format);
    int written = 0;
    char *text = nullptr;
    if (!kept)
        written = std::vfprintf(stderr, format, arguments);
    else if ((written = vasprintf(&text, format, arguments)) >= 0)
        kept->append(text);
    va_end(arguments);
    std::free(text);
    errno = error;
    return written < 0 ? 0 : written;
}

void keep_trace(std::string *lines)
{
    kept = lines;
}

void trace_kept(const std::string &lines)
{
    if (kept)
        kept->append(lines);
    else
        std::fwrite(lines.data(), 1, lines.size(), stderr);
}
