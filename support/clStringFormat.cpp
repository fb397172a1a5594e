// clString::Format: a printf-style formatter of our own, so that %s means a
// UTF-16 string on every platform (wchar_t is 32 bits on Linux) and numbers
// never depend on the locale.
//
// A directive is "%" [flags "-+ 0#"] [width or "*"] ["." precision or "*"]
// [length h hh l ll j z t L] conversion. Conversions: d i u x X o c s S p f F
// e E g G and "%%". "%s" takes const char16_t*, "%hs" and "%S" take UTF-8
// const char*. Characters a directive can't use are skipped, a second "."
// or a directive cut off by the end of the format empties the result: a
// broken format gives nothing rather than garbage.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

#include "support/clString.h"
#include "support/textcodec.h"

namespace {

enum class Length { kNone, kChar, kShort, kLong, kLongLong, kMax, kSize, kPtrDiff, kLongDouble };

struct Directive {
    bool leftAlign = false;
    bool plus = false;
    bool space = false;
    bool zeroPad = false;
    bool alternate = false;
    int width = 0;
    int precision = -1;   // -1: none given
    Length length = Length::kNone;
    char16_t conversion = 0;
};

void Pad(std::u16string& out, int count, char16_t unit) {
    if (count > 0) out.append(static_cast<size_t>(count), unit);
}

// Writes `body` with its sign or prefix into `out` in the field `d` asks for.
void Emit(std::u16string& out, const Directive& d, const std::u16string& prefix, const std::u16string& body,
          bool zeroPadAllowed) {
    const int used = static_cast<int>(prefix.size() + body.size());
    const int fill = d.width - used;
    if (d.leftAlign) {
        out += prefix;
        out += body;
        Pad(out, fill, u' ');
        return;
    }
    if (d.zeroPad && zeroPadAllowed) {
        out += prefix;
        Pad(out, fill, u'0');
        out += body;
        return;
    }
    Pad(out, fill, u' ');
    out += prefix;
    out += body;
}

std::u16string SignPrefix(const Directive& d, bool negative) {
    if (negative) return u"-";
    if (d.plus) return u"+";
    if (d.space) return u" ";
    return u"";
}

std::u16string Digits(uint64_t magnitude, int base, bool upper, int precision) {
    char buffer[72];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, magnitude, base);
    std::string digits(buffer, result.ptr);
    if (upper) {
        for (char& c : digits) {
            if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
        }
    }
    if (precision == 0 && magnitude == 0) digits.clear();
    if (precision > 0 && digits.size() < static_cast<size_t>(precision)) {
        digits.insert(0, static_cast<size_t>(precision) - digits.size(), '0');
    }
    return std::u16string(digits.begin(), digits.end());
}

int64_t SignedArgument(const Directive& d, va_list& args) {
    switch (d.length) {
        case Length::kChar: return static_cast<signed char>(va_arg(args, int));
        case Length::kShort: return static_cast<short>(va_arg(args, int));
        case Length::kLong: return va_arg(args, long);
        case Length::kLongLong: return va_arg(args, long long);
        case Length::kMax: return va_arg(args, intmax_t);
        case Length::kSize: return static_cast<int64_t>(va_arg(args, size_t));
        case Length::kPtrDiff: return va_arg(args, std::ptrdiff_t);
        default: return va_arg(args, int);
    }
}

uint64_t UnsignedArgument(const Directive& d, va_list& args) {
    switch (d.length) {
        case Length::kChar: return static_cast<unsigned char>(va_arg(args, unsigned));
        case Length::kShort: return static_cast<unsigned short>(va_arg(args, unsigned));
        case Length::kLong: return va_arg(args, unsigned long);
        case Length::kLongLong: return va_arg(args, unsigned long long);
        case Length::kMax: return va_arg(args, uintmax_t);
        case Length::kSize: return va_arg(args, size_t);
        case Length::kPtrDiff: return static_cast<uint64_t>(va_arg(args, std::ptrdiff_t));
        default: return va_arg(args, unsigned);
    }
}

void FormatSigned(std::u16string& out, const Directive& d, va_list& args) {
    const int64_t value = SignedArgument(d, args);
    const uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    Emit(out, d, SignPrefix(d, value < 0), Digits(magnitude, 10, false, d.precision), d.precision < 0);
}

void FormatUnsigned(std::u16string& out, const Directive& d, va_list& args) {
    const uint64_t value = UnsignedArgument(d, args);
    int base = 10;
    std::u16string prefix;
    if (d.conversion == u'x' || d.conversion == u'X') {
        base = 16;
        if (d.alternate && value != 0) prefix = d.conversion == u'x' ? u"0x" : u"0X";
    } else if (d.conversion == u'o') {
        base = 8;
        if (d.alternate) prefix = u"0";
    }
    Emit(out, d, prefix, Digits(value, base, d.conversion == u'X', d.precision), d.precision < 0);
}

std::chars_format FloatStyle(char16_t conversion) {
    switch (conversion) {
        case u'e':
        case u'E': return std::chars_format::scientific;
        case u'g':
        case u'G': return std::chars_format::general;
        default: return std::chars_format::fixed;
    }
}

void FormatFloat(std::u16string& out, const Directive& d, va_list& args) {
    const double value = d.length == Length::kLongDouble ? static_cast<double>(va_arg(args, long double))
                                                         : va_arg(args, double);
    const bool upper = d.conversion == u'F' || d.conversion == u'E' || d.conversion == u'G';
    const bool finite = std::isfinite(value);
    std::string body;
    if (!finite) {
        body = std::isnan(value) ? "nan" : "inf";
    } else {
        // Big enough for any fixed double (309 digits) and any precision we allow.
        std::string buffer(330 + static_cast<size_t>(d.precision < 0 ? 6 : d.precision), '\0');
        const int precision = d.precision < 0 ? 6 : d.precision;
        auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), std::fabs(value),
                                    FloatStyle(d.conversion), precision);
        body.assign(buffer.data(), result.ptr);
    }
    if (upper) {
        for (char& c : body) {
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        }
    }
    std::u16string wide(body.begin(), body.end());
    Emit(out, d, SignPrefix(d, std::signbit(value) && !std::isnan(value)), wide, finite);
}

void FormatString(std::u16string& out, const Directive& d, va_list& args) {
    std::u16string text;
    const bool narrow = d.conversion == u'S' || d.length == Length::kShort || d.length == Length::kChar;
    if (narrow) {
        const char* source = va_arg(args, const char*);
        text = source ? text::Utf8ToUtf16(source) : std::u16string(u"(null)");
    } else {
        const char16_t* source = va_arg(args, const char16_t*);
        text = source ? std::u16string(source) : std::u16string(u"(null)");
    }
    if (d.precision >= 0 && text.size() > static_cast<size_t>(d.precision)) {
        text.resize(static_cast<size_t>(d.precision));
    }
    Emit(out, d, u"", text, false);
}

void FormatPointer(std::u16string& out, const Directive& d, va_list& args) {
    const auto value = reinterpret_cast<uintptr_t>(va_arg(args, void*));
    Emit(out, d, u"0x", Digits(value, 16, false, -1), false);
}

void Convert(std::u16string& out, const Directive& d, va_list& args) {
    switch (d.conversion) {
        case u'%': out.push_back(u'%'); return;
        case u'd':
        case u'i': FormatSigned(out, d, args); return;
        case u'u':
        case u'x':
        case u'X':
        case u'o': FormatUnsigned(out, d, args); return;
        case u'c': Emit(out, d, u"", std::u16string(1, static_cast<char16_t>(va_arg(args, int))), false); return;
        case u's':
        case u'S': FormatString(out, d, args); return;
        case u'p': FormatPointer(out, d, args); return;
        default: FormatFloat(out, d, args); return;
    }
}

bool IsConversion(char16_t unit) {
    return std::u16string_view(u"%diuxXocsSpfFeEgG").find(unit) != std::u16string_view::npos;
}

bool IsDigit(char16_t unit) { return unit >= u'0' && unit <= u'9'; }

// Width and precision are clamped so that a hostile format can't ask for
// gigabytes of padding.
constexpr int kMaxField = 1 << 20;

int ReadNumber(const char16_t*& p) {
    int value = 0;
    while (IsDigit(*p)) {
        if (value < kMaxField) value = value * 10 + (*p - u'0');
        ++p;
    }
    return value < kMaxField ? value : kMaxField;
}

int ClampField(int value) { return value > kMaxField ? kMaxField : value; }

void ReadLength(const char16_t*& p, Directive& d) {
    switch (*p) {
        case u'h':
            ++p;
            d.length = Length::kShort;
            if (*p == u'h') {
                ++p;
                d.length = Length::kChar;
            }
            return;
        case u'l':
            ++p;
            d.length = Length::kLong;
            if (*p == u'l') {
                ++p;
                d.length = Length::kLongLong;
            }
            return;
        case u'j': ++p; d.length = Length::kMax; return;
        case u'z': ++p; d.length = Length::kSize; return;
        case u't': ++p; d.length = Length::kPtrDiff; return;
        case u'L': ++p; d.length = Length::kLongDouble; return;
        default: return;
    }
}

// Parses the directive behind a "%" at `p`; false for a broken one.
bool ParseDirective(const char16_t*& p, Directive& d, va_list& args) {
    for (;; ++p) {
        if (*p == u'-') d.leftAlign = true;
        else if (*p == u'+') d.plus = true;
        else if (*p == u' ') d.space = true;
        else if (*p == u'0') d.zeroPad = true;
        else if (*p == u'#') d.alternate = true;
        else break;
    }
    if (*p == u'*') {
        ++p;
        const long long width = va_arg(args, int);   // widened: -INT_MIN must not overflow
        if (width < 0) d.leftAlign = true;
        d.width = static_cast<int>(std::min<long long>(width < 0 ? -width : width, kMaxField));
    } else {
        d.width = ReadNumber(p);
    }
    if (*p == u'.') {
        ++p;
        if (*p == u'*') {
            ++p;
            const int precision = va_arg(args, int);
            d.precision = precision < 0 ? -1 : ClampField(precision);
        } else {
            d.precision = ReadNumber(p);
        }
    }
    for (;;) {
        ReadLength(p, d);
        if (*p == 0 || *p == u'.') return false;
        if (IsConversion(*p)) break;
        ++p;   // a character the directive can't use
    }
    d.conversion = *p++;
    return true;
}

}  // namespace

clString clString::Format(const char16_t* format, ...) {
    va_list args;
    va_start(args, format);
    clString result = FormatV(format, args);
    va_end(args);
    return result;
}

clString clString::FormatV(const char16_t* format, va_list arguments) {
    if (format == nullptr) return clString();
    va_list args;
    va_copy(args, arguments);
    std::u16string out;
    const char16_t* p = format;
    bool broken = false;
    while (*p != 0) {
        if (*p != u'%') {
            out.push_back(*p++);
            continue;
        }
        ++p;
        Directive d;
        if (!ParseDirective(p, d, args)) {
            broken = true;
            break;
        }
        Convert(out, d, args);
    }
    va_end(args);
    if (broken) return clString();
    return clString(std::u16string_view(out));
}
