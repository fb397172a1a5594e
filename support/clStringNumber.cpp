// clString: numbers to text and back. Locale-free on purpose: the text goes
// into logs and tags, which must read the same on every machine.

#include <charconv>
#include <system_error>
#include <cmath>
#include <string>

#include "support/clString.h"

namespace {

// Decimal digits a double carries for an integer part: floor(log10(2^52)) + 1.
constexpr int kSignificantDigits = 16;
// Fraction digits computed exactly; further requested digits are zeros.
constexpr int kMaxFractionDigits = 18;

std::string DigitsOf(uint64_t value) {
    char buffer[24];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

clString FromAscii(const std::string& ascii) {
    std::u16string units(ascii.begin(), ascii.end());
    return clString(std::u16string_view(units));
}

uint64_t PowerOfTen(int exponent) {
    uint64_t result = 1;
    for (int i = 0; i < exponent; ++i) result *= 10;
    return result;
}

// The integer part of a non-negative double below 1e100, with the digits
// beyond what a double can carry written as zeros.
std::string IntegerDigits(double integer) {
    if (integer < 1e16) return DigitsOf(static_cast<uint64_t>(integer));
    int digits = 1;
    double scale = 1;
    while (integer >= scale * 10) {
        scale *= 10;
        ++digits;
    }
    const int dropped = digits - kSignificantDigits;
    double lead = std::floor(integer / std::pow(10.0, dropped));
    const double maxLead = 9999999999999999.0;
    if (lead > maxLead) lead = maxLead;
    return DigitsOf(static_cast<uint64_t>(lead)) + std::string(static_cast<size_t>(dropped), '0');
}

// Exactly `decimals` digits of `fraction` (0 <= fraction < 1), rounded down.
std::string FractionDigits(double fraction, int decimals) {
    const int exact = decimals < kMaxFractionDigits ? decimals : kMaxFractionDigits;
    const uint64_t limit = PowerOfTen(exact);
    double scaled = std::floor(fraction * static_cast<double>(limit));
    uint64_t value = scaled >= static_cast<double>(limit) ? limit - 1 : static_cast<uint64_t>(scaled);
    std::string digits = DigitsOf(value);
    digits.insert(0, static_cast<size_t>(exact) - digits.size(), '0');
    digits.append(static_cast<size_t>(decimals - exact), '0');
    return digits;
}

// Both number readers start alike: leading blanks, then one optional sign.
// Returns whether the sign was "-"; `i` is left behind what was read.
bool SkipBlanksAndSign(const std::u16string& text, size_t& i) {
    while (i < text.size() && text[i] == u' ') ++i;
    if (i >= text.size() || (text[i] != u'-' && text[i] != u'+')) return false;
    return text[i++] == u'-';
}

}  // namespace

clString clString::FromInt(int64_t value) {
    if (value == INT64_MIN) return clString(u"-9223372036854775808");
    if (value < 0) return FromAscii("-" + DigitsOf(static_cast<uint64_t>(-value)));
    return FromAscii(DigitsOf(static_cast<uint64_t>(value)));
}

clString clString::FromUInt(uint64_t value) { return FromAscii(DigitsOf(value)); }

clString clString::FromHex(uint64_t value) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string hex(16, '0');
    for (int i = 15; i >= 0; --i) {
        hex[static_cast<size_t>(i)] = kDigits[value & 0xF];
        value >>= 4;
    }
    return FromAscii(hex);
}

clString clString::FromDouble(double value, int decimals, bool keepZeros) {
    if (std::isnan(value)) return clString(u"NAN");
    if (std::fabs(value) >= 1e100) return clString(u"NaN");
    if (decimals < 0) decimals = 0;
    std::string out = value < 0 ? "-" : "";
    const double rounded = std::fabs(value) + 0.5 * std::pow(10.0, -decimals);
    double integer = 0;
    const double fraction = std::modf(rounded, &integer);
    out += IntegerDigits(integer);
    if (decimals > 0) {
        std::string digits = FractionDigits(fraction, decimals);
        if (!keepZeros) {
            const size_t last = digits.find_last_not_of('0');
            digits.erase(last == std::string::npos ? 0 : last + 1);
        }
        if (!digits.empty()) out += "." + digits;
    }
    return FromAscii(out);
}

int64_t clString::ToInt() const {
    size_t i = 0;
    const bool negative = SkipBlanksAndSign(text_, i);
    // Unsigned arithmetic: an overflow wraps instead of being undefined.
    uint64_t value = 0;
    while (i < text_.size() && text_[i] >= u'0' && text_[i] <= u'9') {
        value = value * 10 + static_cast<uint64_t>(text_[i] - u'0');
        ++i;
    }
    return static_cast<int64_t>(negative ? 0 - value : value);
}

double clString::ToDouble() const {
    size_t i = 0;
    const bool negative = SkipBlanksAndSign(text_, i);
    std::string digits;
    bool seenDot = false;
    for (; i < text_.size(); ++i) {
        const char16_t unit = text_[i];
        if (unit >= u'0' && unit <= u'9') {
            digits.push_back(static_cast<char>(unit));
        } else if (unit == u'.' && !seenDot) {
            seenDot = true;
            digits.push_back('.');
        } else {
            break;   // a blank, a second dot, an exponent: the number ends here
        }
    }
    double value = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed);
    if (result.ec == std::errc::result_out_of_range) {
        // Too large for a double, or too small: from_chars leaves the value alone.
        const bool large = digits.find_first_of("123456789") < digits.find('.');
        value = large ? HUGE_VAL : 0.0;
    }
    return negative ? -value : value;
}
