// clString: storage, conversions, positions and comparisons.

#include "support/clString.h"

#include <algorithm>
#include <functional>

#include "support/platform.h"
#include "support/textcodec.h"

namespace {

char16_t FoldAscii(char16_t unit) {
    return (unit >= u'A' && unit <= u'Z') ? static_cast<char16_t>(unit + (u'a' - u'A')) : unit;
}

size_t MeasureUnits(const char16_t* source) {
    size_t n = 0;
    while (source[n] != 0) ++n;
    return n;
}

// 0-based index of the first unit of a 1-based position, or npos when the
// position lies outside 1..length.
size_t IndexOf(int pos, size_t length) {
    if (pos < 1 || static_cast<size_t>(pos) > length) return std::u16string::npos;
    return static_cast<size_t>(pos) - 1;
}

}  // namespace

clString::clString(const char16_t* source) { Set(source); }

clString::clString(const char16_t* source, int units) { Set(source, units); }

clString::clString(std::u16string_view source) : text_(source) {}

clString::clString(const clString& other) : tag(other.tag), text_(other.text_) {}

clString::clString(clString&& other) noexcept : tag(other.tag), text_(std::move(other.text_)) {
    other.text_.clear();
}

clString& clString::operator=(const clString& other) {
    if (this == &other) return *this;
    Set(other);
    tag = other.tag;
    return *this;
}

clString& clString::operator=(clString&& other) noexcept {
    if (this == &other) return *this;
    text_ = std::move(other.text_);
    other.text_.clear();
    tag = other.tag;
    return *this;
}

clString clString::FromUtf8(std::string_view bytes) {
    clString result;
    result.SetFromUtf8(bytes);
    return result;
}

clString clString::FromAnsi(std::string_view bytes) {
    clString result;
    result.SetFromAnsi(bytes);
    return result;
}

clString clString::FromLatin1(std::string_view bytes) {
    clString result;
    result.SetFromLatin1(bytes);
    return result;
}

void clString::Set(const char16_t* source, int units) {
    if (source == nullptr || units < 0) {
        text_.clear();
        return;
    }
    const size_t count = units == 0 ? MeasureUnits(source) : static_cast<size_t>(units);
    if (Holds(source)) {
        text_ = std::u16string(source, count);
        return;
    }
    text_.assign(source, count);
}

// Whether `source` points into this string's own block (its NUL included).
bool clString::Holds(const char16_t* source) const {
    const std::less_equal<const char16_t*> notAfter;
    return notAfter(text_.data(), source) && notAfter(source, text_.data() + text_.size());
}

void clString::Set(const clString& source) {
    if (this == &source) return;
    text_.assign(source.text_);
}

void clString::SetFromUtf8(std::string_view bytes) { text_ = text::Utf8ToUtf16(bytes); }

void clString::SetFromAnsi(std::string_view bytes) { text_ = text::AnsiToUtf16(bytes); }

void clString::SetFromLatin1(std::string_view bytes) { text_ = text::Latin1ToUtf16(bytes); }

const char* clString::Utf8() const {
    utf8Cache_ = text::Utf16ToUtf8(text_);
    return utf8Cache_.c_str();
}

std::string clString::ToUtf8() const { return text::Utf16ToUtf8(text_); }

std::string clString::ToAnsi() const { return text::Utf16ToAnsi(text_); }

std::string clString::ToLatin1() const { return text::Utf16ToLatin1(text_); }

void clString::Reserve(int units, int extra) {
    if (units <= 0 || units <= Capacity()) return;
    text_.reserve(static_cast<size_t>(units) + static_cast<size_t>(std::max(extra, 0)));
}

void clString::Append(const char16_t* source) {
    if (source == nullptr) return;
    if (Holds(source)) {
        // The reserve below would free the block the source lies in.
        const std::u16string copy(source);
        Append(copy.c_str());
        return;
    }
    const std::u16string_view tail(source);
    text_.reserve(text_.size() + tail.size() + 25);
    text_.append(tail);
}

void clString::Append(const clString& source) {
    if (this == &source) {
        const std::u16string copy = text_;
        text_.append(copy);
        return;
    }
    text_.append(source.text_);
}

void clString::Append(char16_t unit) { text_.push_back(unit); }

void clString::AppendGrow(const char16_t* source) {
    if (source == nullptr || source[0] == 0) return;
    const std::u16string tail(source);
    const size_t newLength = text_.size() + tail.size();
    if (text_.capacity() < newLength) text_.reserve(newLength + newLength / 3);
    text_.append(tail);
}

void clString::Insert(const char16_t* source, int pos) {
    if (source == nullptr || pos < 1 || static_cast<size_t>(pos) > text_.size() + 1) return;
    const std::u16string piece(source);
    text_.reserve(text_.size() + piece.size() + 32);
    text_.insert(static_cast<size_t>(pos) - 1, piece);
}

void clString::Erase(int from, int to) {
    const size_t first = IndexOf(from, text_.size());
    if (first == std::u16string::npos || to < from) return;
    const size_t last = std::min(static_cast<size_t>(to), text_.size());
    text_.erase(first, last - first);
}

clString clString::Mid(int from, int to) const {
    const size_t first = IndexOf(from, text_.size());
    if (first == std::u16string::npos || to < from) return clString();
    const size_t last = std::min(static_cast<size_t>(to), text_.size());
    return clString(std::u16string_view(text_).substr(first, last - first));
}

int clString::Find(const char16_t* needle, int start, bool ignoreCase) const {
    const size_t first = IndexOf(start, text_.size());
    if (needle == nullptr || needle[0] == 0 || first == std::u16string::npos) return 0;
    const std::u16string_view wanted(needle);
    if (wanted.size() > text_.size()) return 0;
    for (size_t i = first; i + wanted.size() <= text_.size(); ++i) {
        size_t k = 0;
        while (k < wanted.size()) {
            char16_t a = text_[i + k];
            char16_t b = wanted[k];
            if (ignoreCase) {
                a = FoldAscii(a);
                b = FoldAscii(b);
            }
            if (a != b) break;
            ++k;
        }
        if (k == wanted.size()) return static_cast<int>(i) + 1;
    }
    return 0;
}

void clString::SplitAt(clString& head, clString& tail) const {
    const size_t slash = text_.find(u'/');
    std::u16string before = text_.substr(0, slash);
    std::u16string after = slash == std::u16string::npos ? std::u16string() : text_.substr(slash + 1);
    head.text_ = std::move(before);
    tail.text_ = std::move(after);
}

void clString::TrimLeft() {
    const size_t first = text_.find_first_not_of(u' ');
    text_.erase(0, first == std::u16string::npos ? text_.size() : first);
}

clString clString::FileExtension() const {
    const size_t dot = text_.rfind(u'.');
    const size_t separator = text_.rfind(platform::PathSeparator());
    if (dot == std::u16string::npos || (separator != std::u16string::npos && dot < separator)) {
        return clString(u".");
    }
    return clString(std::u16string_view(text_).substr(dot));
}

void clString::AppendBackslash() {
    const char16_t separator = platform::PathSeparator();
    if (!text_.empty() && text_.back() == separator) return;
    text_.push_back(separator);
}

void clString::Clear() { text_.clear(); }

int clString::Compare(const char16_t* a, const char16_t* b, int n, bool ignoreCase) {
    if (b == nullptr) return 1;
    if (a == nullptr) a = u"";
    size_t limit = SIZE_MAX;
    if (n > 0) limit = static_cast<size_t>(n);
    if (n == -1 || n == -2) limit = MeasureUnits(b);
    for (size_t i = 0; i < limit; ++i) {
        char16_t ca = a[i];
        char16_t cb = b[i];
        if (ignoreCase) {
            ca = FoldAscii(ca);
            cb = FoldAscii(cb);
        }
        if (ca != cb) return ca < cb ? -1 : 1;
        if (ca == 0) return 0;
    }
    return 0;
}

bool clString::EqualsNoCase(const char16_t* a, const char16_t* b) {
    if (a == nullptr || b == nullptr) return false;
    return Compare(a, b, 0, true) == 0;
}

clString clString::LastErrorText() {
    const int error = platform::LastError();
    if (error == 0) return clString();
    return clString(u"(" + platform::ErrorText(error) + u")");
}
