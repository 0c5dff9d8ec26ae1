#include "rtf_export.h"

#include "i18n.h"
#include "trace_log.h"

#include <cstdarg>
#include <new>
#include <string_view>

namespace {

std::string escape_for_rtf(std::string_view text)
{
    std::string escaped;
    escaped.reserve(2 * text.size());
    for (const char c : text) {
        if (c == '{' || c == '}' || c == '\\')
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

} // namespace

owned_gchar re_escape(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const owned_gchar text(g_strdup_vprintf(format, arguments));
    va_end(arguments);

    const std::string escaped = escape_for_rtf(text.get());
    GError *error = nullptr;
    owned_gchar converted(g_convert(escaped.data(), static_cast<gssize>(escaped.size()), "CP1251", "UTF-8",
                                    nullptr, nullptr, &error));
    if (!converted) {
        trace_log("g_convert() failed: %s", error->message);
        g_error_free(error);
        converted.reset(g_strdup(""));
    }
    return converted;
}

std::unique_ptr<rtf_report> rtf_begin(std::FILE *stream)
{
    std::unique_ptr<rtf_report> report(new (std::nothrow) rtf_report{stream});
    if (report) {
        std::fputs("{\\rtf1\\ansi\\ansicpg1251\\deff0\\deflang1049\\plain {\n", stream);
        std::fprintf(stream, "{\\b %s}\\par\n", re_escape("%s", _("Report")).get());
    }
    return report;
}

int rtf_files_begin(rtf_report &report)
{
    report.file_total_size = 0;
    report.file_count = 0;
    std::fprintf(report.stream, "{\\i %s}\\par\n", re_escape("%s", _("File list:")).get());
    return 0;
}

int rtf_file_line(rtf_report &report, const std::string &name, std::uint64_t size)
{
    const owned_gchar text =
        re_escape(_("File: %s, file size: %llu"), name.c_str(), static_cast<unsigned long long>(size));
    std::fprintf(report.stream, "%s\\line\n", text.get());
    if (!*text)
        report.unwritten.push_back(name);
    report.file_total_size += size;
    ++report.file_count;
    return 0;
}

int rtf_files_end(rtf_report &report)
{
    const owned_gchar text = re_escape(_("Total files: %d, total size: %llu"), report.file_count,
                                       static_cast<unsigned long long>(report.file_total_size));
    std::fprintf(report.stream, "{\\b %s}\\par\n", text.get());
    return 0;
}

int rtf_sectors_begin(rtf_report &report)
{
    report.sector_total_size = 0;
    report.sector_count = 0;
    std::fprintf(report.stream, "{\\i %s}\\par\n", re_escape("%s", _("Sector list:")).get());
    return 0;
}

int rtf_sector_line(rtf_report &report, const std::string &name, std::uint32_t size)
{
    const owned_gchar text =
        re_escape(_("Sector: %s, sector size: %d"), name.c_str(), static_cast<std::int32_t>(size));
    std::fprintf(report.stream, "%s\\line\n", text.get());
    report.sector_total_size += size;
    ++report.sector_count;
    return 0;
}

int rtf_sectors_end(rtf_report &report)
{
    const owned_gchar text = re_escape(_("Total sectors: %d, total size: %llu"), report.sector_count,
                                       static_cast<unsigned long long>(report.sector_total_size));
    std::fprintf(report.stream, "{\\b %s}\\par\n", text.get());
    return 0;
}

int rtf_end(std::unique_ptr<rtf_report> report)
{
    std::fputs("}}\n", report->stream);
    return 0;
}
