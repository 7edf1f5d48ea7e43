#include "utility/common/diaglib.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <spdlog/details/os.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include "utility/common/source_path.h"

namespace DBG {
namespace {

constexpr std::size_t FIRST_BUFFER_SIZE = 512;
constexpr std::size_t LAST_BUFFER_SIZE = 32768;

struct Log {
    std::shared_ptr<spdlog::logger> logger;  // null when nothing is to be written
    bool failuresOnly = false;
};

std::shared_ptr<spdlog::logger> MakeLogger(spdlog::sink_ptr sink) {
    auto logger = std::make_shared<spdlog::logger>("mgmt", std::move(sink));
    logger->set_pattern("%Y-%m-%dT%H:%M:%S.%f%z %v");
    logger->set_level(spdlog::level::trace);
    logger->flush_on(spdlog::level::trace);
    // A sink that fails (disk full) drops the line; it must not write about it to the caller's terminal.
    logger->set_error_handler([](const std::string&) {});
    return logger;
}

Log OpenLog() {
    const char* setting = secure_getenv("MGMT_LOG");
    const std::string_view target = setting != nullptr ? setting : "";
    if (setting != nullptr && (target.empty() || target == "off")) return {};

    const auto standardError = [] { return MakeLogger(std::make_shared<spdlog::sinks::stderr_sink_mt>()); };
    if (setting == nullptr) return {standardError(), true};
    if (target == "stderr") return {standardError(), false};
    try {
        return {MakeLogger(std::make_shared<spdlog::sinks::basic_file_sink_mt>(std::string(target))), false};
    } catch (const spdlog::spdlog_ex&) {
        return {standardError(), true};
    }
}

// `format` in this C library's dialect: in a wide format of the platform %s and %c stand for wide text.
std::wstring WithWideText(std::wstring_view format) {
    std::wstring result;
    result.reserve(format.size() + 8);
    for (std::size_t at = 0; at < format.size();) {
        const wchar_t unit = format[at++];
        result += unit;
        if (unit != L'%') continue;

        std::size_t end = format.find_first_not_of(L"-+ #0123456789.*", at);
        if (end == std::wstring_view::npos) end = format.size();
        result.append(format, at, end - at);
        at = end;
        if (at == format.size()) continue;
        if (format[at] == L's' || format[at] == L'c') result += L'l';
        result += format[at++];
    }
    return result;
}

std::wstring FormatText(const wchar_t* format, std::va_list arguments) {
    const std::wstring wideFormat = WithWideText(format);
    std::wstring text;
    for (std::size_t size = FIRST_BUFFER_SIZE;; size *= 8) {
        text.assign(size, L'\0');
        std::va_list again;
        va_copy(again, arguments);
        const int length = std::vswprintf(text.data(), size, wideFormat.c_str(), again);
        va_end(again);
        if (length >= 0) {
            text.resize(static_cast<std::size_t>(length));
            return text;
        }
        if (size >= LAST_BUFFER_SIZE) break;
    }
    // Cut, unless nothing could be formatted at all: then the format itself says most.
    text.back() = L'\0';
    text.resize(std::wcslen(text.c_str()));
    return text.empty() ? std::wstring(format) : text;
}

void AppendUtf8(std::string& out, char32_t code) {
    const auto continuation = [](char32_t bits) { return static_cast<char>(0x80 | (bits & 0x3F)); };
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += continuation(code);
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += continuation(code >> 6);
        out += continuation(code);
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += continuation(code >> 12);
        out += continuation(code >> 6);
        out += continuation(code);
    }
}

void AppendEscape(std::string& out, char32_t control) {
    switch (control) {
        case U'\n':
            out += "\\n";
            return;
        case U'\r':
            out += "\\r";
            return;
        case U'\t':
            out += "\\t";
            return;
        default:
            break;
    }
    constexpr char DIGITS[] = "0123456789abcdef";
    out += "\\x";
    out += DIGITS[(control >> 4) & 0xF];
    out += DIGITS[control & 0xF];
}

bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendText(std::string& out, std::wstring_view text) {
    constexpr char32_t REPLACEMENT = 0xFFFD;
    for (std::size_t at = 0; at < text.size(); ++at) {
        auto code = static_cast<char32_t>(text[at]);
        const char32_t next = at + 1 < text.size() ? static_cast<char32_t>(text[at + 1]) : 0;
        if (IsHighSurrogate(code) && IsLowSurrogate(next)) {
            code = 0x10000 + ((code - 0xD800) << 10) + (next - 0xDC00);
            ++at;
        }
        if (code < 0x20 || (code >= 0x7F && code < 0xA0)) {
            AppendEscape(out, code);
        } else if (code > 0x10FFFF || IsHighSurrogate(code) || IsLowSurrogate(code)) {
            AppendUtf8(out, REPLACEMENT);
        } else {
            AppendUtf8(out, code);
        }
    }
}

void AppendLevel(std::string& out, int level) {
    if (level == LEVEL_FAILURE) {
        out += "failure";
    } else if (level == LEVEL_NOTICE) {
        out += "notice";
    } else {
        char number[16];
        std::snprintf(number, sizeof number, "0x%x", static_cast<unsigned>(level));
        out += number;
    }
}

std::string MakeLine(int level, const wchar_t* sourceFile, int line, std::wstring_view text) {
    std::string result;
    result.reserve(text.size() + 64);
    AppendLevel(result, level);
    result += " [" + std::to_string(spdlog::details::os::pid()) + ':' +
              std::to_string(spdlog::details::os::thread_id()) + "] ";
    AppendText(result, OS::FileNameOf(sourceFile != nullptr ? sourceFile : L"?"));
    result += ':' + std::to_string(line) + ' ';
    AppendText(result, text);
    return result;
}

// Never destroyed: subscriptions may still log while the process ends.
union KeptLog {
    KeptLog() : log(OpenLog()) {}
    ~KeptLog() {}
    const Log log;
};

void Write(int level, const wchar_t* sourceFile, int line, const wchar_t* format,
           std::va_list arguments) noexcept {
    try {
        static const KeptLog kept;
        const Log& log = kept.log;
        if (log.logger == nullptr || (log.failuresOnly && level != LEVEL_FAILURE)) return;

        const std::wstring text = FormatText(format, arguments);
        log.logger->log(level == LEVEL_FAILURE ? spdlog::level::err : spdlog::level::info,
                        spdlog::string_view_t(MakeLine(level, sourceFile, line, text)));
    } catch (...) {
        // The line is lost; the caller's work goes on.
    }
}

}  // namespace

void DebugLogEx(HINSTANCE /*module*/, int level, const wchar_t* sourceFile, int line, const wchar_t* format,
                ...) noexcept {
    std::va_list arguments;
    va_start(arguments, format);
    Write(level, sourceFile, line, format, arguments);
    va_end(arguments);
}

}  // namespace DBG
