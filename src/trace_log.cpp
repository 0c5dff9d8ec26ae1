#include "trace_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

std::int32_t trace_enabled = 0;

int(trace_log)(const char *format, ...)
{
    if (!trace_enabled)
        return 0;
    const int error = errno; // which the caller may not have looked at yet
    va_list arguments;
    va_start(arguments, format);
    const int written = std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    errno = error;
    return written < 0 ? 0 : written;
}
