// The formatter behind wvsprintfA, with the conversions that Windows documents for them.

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/texts/Texts.h"
#include "simwin/texts/api.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

namespace machine {

// Windows writes at most 1024 characters, the zero included.
constexpr std::size_t FormatLimit = 1023;

namespace {
enum class Width : std::uint8_t { Plain, Short, Long, Pointer, Wide64 };

struct Conversion {
    bool left = false, alternate = false, zero = false;
    std::size_t width = 0;
    std::size_t precision = std::string::npos;
    Width size = Width::Plain;
    char type = 0;
};
} // namespace

static std::size_t TakeNumber(const char*& at) {
    std::size_t number = 0;
    while (*at >= '0' && *at <= '9') {
        number = number * 10 + static_cast<std::size_t>(*at++ - '0');
    }
    return number;
}

// Reads what follows a '%'.
static Conversion TakeConversion(const char*& at) {
    Conversion conversion;
    if (*at == '-') {
        conversion.left = true;
        ++at;
    }
    if (*at == '#') {
        conversion.alternate = true;
        ++at;
    }
    if (*at == '0') {
        conversion.zero = true;
        ++at;
    }
    conversion.width = TakeNumber(at);
    if (*at == '.') {
        ++at;
        conversion.precision = TakeNumber(at);
    }
    if (*at == 'l') {
        conversion.size = Width::Long;
        ++at;
    } else if (*at == 'h') {
        conversion.size = Width::Short;
        ++at;
    } else if (strncmp(at, "I64", 3) == 0) {
        conversion.size = Width::Wide64;
        at += 3;
    } else if (strncmp(at, "I32", 3) == 0) {
        at += 3;
    } else if (*at == 'I') {
        conversion.size = Width::Pointer;
        ++at;
    }
    conversion.type = *at;
    if (*at) {
        ++at;
    }
    return conversion;
}

static std::string Digits(std::uint64_t number, unsigned base, bool capitals) {
    const char* digits = capitals ? "0123456789ABCDEF" : "0123456789abcdef";
    char text[20]; // what 64 bits need at most, from the end
    std::size_t at = sizeof(text);
    do {
        text[--at] = digits[number % base];
        number /= base;
    } while (number);
    return {text + at, sizeof(text) - at};
}

static void Pad(std::string& out, const Conversion& conversion, std::string_view text, std::string_view sign,
                bool number) {
    const bool isLonger = number && conversion.precision != std::string::npos && text.size() < conversion.precision;
    const std::size_t zeros = isLonger ? conversion.precision - text.size() : 0;
    const std::size_t length = sign.size() + zeros + text.size();
    const std::size_t fill = conversion.width > length ? conversion.width - length : 0;
    const bool isZeroFilled = conversion.zero && !conversion.left;
    out.append(conversion.left || isZeroFilled ? 0 : fill, ' ').append(sign);
    out.append(zeros + (isZeroFilled ? fill : 0), '0').append(text).append(conversion.left ? fill : 0, ' ');
}

static std::string WideText(const simwin::WCHAR* text, std::size_t limit) {
    std::u16string wide;
    while (wide.size() < limit && text[wide.size()]) {
        wide.push_back(static_cast<char16_t>(text[wide.size()]));
    }
    return AnsiFromUtf16(wide);
}

static bool IsIn(char c, std::string_view set) {
    return c && std::any_of(set.begin(), set.end(), [c](char one) { return one == c; }); // faster than find for a few
}

std::string FormatAsWindows(const char* format, __builtin_va_list arguments) {
    std::string out;
    out.reserve(FormatLimit);
    for (const char* at = format; *at;) {
        if (*at != '%') {
            const std::size_t plain = std::strcspn(at, "%");
            out.append(at, plain);
            at += plain;
            continue;
        }
        if (*++at == '%') {
            out += *at++;
            continue;
        }
        const char* start = at;
        const Conversion conversion = TakeConversion(at);
        const bool is64 =
            conversion.size == Width::Wide64 || (conversion.size == Width::Pointer && TheSetup().productIsX64);
        if (IsIn(conversion.type, "diuxX")) {
            std::uint64_t number = is64 ? va_arg(arguments, unsigned long long) : va_arg(arguments, unsigned);
            std::string_view sign;
            if (IsIn(conversion.type, "di")) {
                std::int64_t value = is64 ? static_cast<std::int64_t>(number) : static_cast<std::int32_t>(number);
                if (conversion.size == Width::Short) {
                    value = static_cast<std::int16_t>(value);
                }
                sign = value < 0 ? "-" : "";
                number = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
            } else if (conversion.size == Width::Short) {
                number = static_cast<std::uint16_t>(number);
            }
            const bool hex = IsIn(conversion.type, "xX");
            if (hex && conversion.alternate) {
                sign = conversion.type == 'x' ? "0x" : "0X";
            }
            Pad(out, conversion, Digits(number, hex ? 16 : 10, conversion.type == 'X'), sign, true);
        } else if (conversion.type == 'p') {
            const std::uint64_t address = StableAddress(va_arg(arguments, void*));
            Conversion fixed = conversion;
            fixed.precision = TheSetup().productIsX64 ? 16 : 8;
            Pad(out, fixed, Digits(address, 16, true), {}, true);
        } else if (IsIn(conversion.type, "sS")) {
            const void* text = va_arg(arguments, const void*);
            const bool wide =
                conversion.size == Width::Long || (conversion.type == 'S' && conversion.size != Width::Short);
            const std::string narrowed =
                text && wide ? WideText(static_cast<const simwin::WCHAR*>(text), conversion.precision) : "";
            const auto* narrow = static_cast<const char*>(text);
            const std::string_view part = !text  ? "(null)"
                                          : wide ? narrowed
                                                 : std::string_view(narrow, strnlen(narrow, conversion.precision));
            Pad(out, conversion, part.substr(0, conversion.precision), {}, false);
        } else if (IsIn(conversion.type, "cC")) {
            const int character = va_arg(arguments, int);
            const bool wide =
                conversion.size == Width::Long || (conversion.type == 'C' && conversion.size != Width::Short);
            const std::string text = wide ? AnsiFromUtf16(std::u16string(1, static_cast<char16_t>(character)))
                                          : std::string(1, static_cast<char>(character));
            Pad(out, conversion, text[0] ? text : std::string(), {}, false);
        } else {
            out.append(start, at); // not a conversion of Windows: the text after the sign is kept
        }
    }
    return out;
}

} // namespace machine

namespace simwin {

static int PutFormatted(LPSTR buffer, LPCSTR format, va_list_t arguments) {
    const std::string text = machine::FormatAsWindows(format, arguments);
    const std::size_t length = text.size() < machine::FormatLimit ? text.size() : machine::FormatLimit;
    std::memcpy(buffer, text.data(), length);
    buffer[length] = 0;
    return static_cast<int>(length);
}

int wvsprintfA(LPSTR buffer, LPCSTR format, __builtin_va_list arguments) {
    SIM_CALL("wvsprintfA", "");
    return PutFormatted(buffer, format, arguments);
}

} // namespace simwin
