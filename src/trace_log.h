// The trace log: one line per notable step on standard error, only while tracing is switched on.
#pragma once

#include <cstdint>
#include <string>

// 1 when the environment variable TRACE_PELVA is exactly "1". Read once at start-up; 0 before that.
extern std::int32_t trace_enabled;

// Writes the formatted text, and nothing else, to standard error while `trace_enabled` is non-zero; what is
// no printable text but for the format's own end of line reads like <U+001B> or <0xFF>, as in other listings.
// Returns the number of characters written, 0 when tracing is off or nobody reads. Leaves errno alone.
int trace_log(const char *format, ...) __attribute__((format(printf, 1, 2)));

// From now on what this thread traces is added to `lines` instead, which is the caller's.
void keep_trace(std::string *lines);

// Writes what another thread has kept, or adds it to what this one keeps. Returns what trace_log returns.
int trace_kept(const std::string &lines);

// What the program calls: trace_log("Directory: %s", path) writes
// "[src/filebrowser.cpp 120 load_directory] Directory: /boot\n". The format is a literal, so the compiler
// checks it; the arguments are not evaluated while tracing is off.
#define trace_log(format, ...) trace_log_raw("[%s %d %s] " format "\n" __VA_OPT__(, ) __VA_ARGS__)

// The same without the line end, for the few lines that are left open.
#define trace_log_open(format, ...) trace_log_raw("[%s %d %s] " format __VA_OPT__(, ) __VA_ARGS__)

#define trace_log_raw(format, ...) \
    (trace_enabled ? (trace_log)(format, __FILE__, __LINE__, __func__ __VA_OPT__(, ) __VA_ARGS__) : 0)
