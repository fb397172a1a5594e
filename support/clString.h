#pragma once
// Wide text of UTF-16 units, the plug-in's string type on the host side.
// Positions are 1-based and inclusive; 0 means "not found". Size() counts the
// terminating NUL, so an empty string has size 1. Case-insensitive operations
// fold only the ASCII letters A to Z.

#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

class clString {
public:
    clString() = default;
    clString(const char16_t* source);                      // NOLINT: implicit by design
    clString(const char16_t* source, int units);
    explicit clString(std::u16string_view source);
    clString(const clString& other);
    clString(clString&& other) noexcept;
    clString& operator=(const clString& other);
    clString& operator=(clString&& other) noexcept;
    ~clString() = default;

    static clString FromUtf8(std::string_view bytes);
    static clString FromAnsi(std::string_view bytes);
    static clString FromLatin1(std::string_view bytes);

    // `units` 0 measures up to the NUL; a null or empty source clears.
    // Memory is reallocated only when the capacity is too small.
    void Set(const char16_t* source, int units = 0);
    void Set(const clString& source);
    void SetFromUtf8(std::string_view bytes);
    void SetFromAnsi(std::string_view bytes);
    void SetFromLatin1(std::string_view bytes);

    // UTF-8 form, cached; the pointer lives until the next Utf8() or destruction.
    const char* Utf8() const;
    std::string ToUtf8() const;
    std::string ToAnsi() const;
    std::string ToLatin1() const;

    const char16_t* Text() const { return text_.c_str(); }
    const char16_t* c_str() const { return text_.c_str(); }
    int Size() const { return static_cast<int>(text_.size()) + 1; }   // with NUL
    int Length() const { return static_cast<int>(text_.size()); }     // without NUL
    bool Empty() const { return text_.empty(); }
    int Capacity() const { return static_cast<int>(text_.capacity()); }
    std::u16string_view View() const { return text_; }
    const std::u16string& Std() const { return text_; }
    char16_t operator[](int index0) const { return text_[static_cast<size_t>(index0)]; }

    void Reserve(int units, int extra = 0);
    void Append(const char16_t* source);
    void Append(const clString& source);
    void Append(char16_t unit);
    void AppendGrow(const char16_t* source);
    void Insert(const char16_t* source, int pos);
    void Erase(int from, int to);
    clString Mid(int from, int to) const;
    int Find(const char16_t* needle, int start = 1, bool ignoreCase = false) const;
    void SplitAt(clString& head, clString& tail) const;
    void TrimLeft();
    clString FileExtension() const;           // uses the platform's path separator
    void AppendBackslash();                   // appends the platform's path separator
    void Clear();

    // 0 equal, -1 a before b, 1 after. n > 0: first n units; 0: whole strings;
    // -1 or -2: the length of b. A null b gives 1.
    static int Compare(const char16_t* a, const char16_t* b, int n = 0, bool ignoreCase = false);
    static bool EqualsNoCase(const char16_t* a, const char16_t* b);
    bool operator==(const clString& other) const { return text_ == other.text_; }
    bool operator==(const char16_t* other) const { return other && text_ == other; }

    static clString FromInt(int64_t value);
    static clString FromUInt(uint64_t value);
    static clString FromHex(uint64_t value);
    static clString FromDouble(double value, int decimals, bool keepZeros);
    int64_t ToInt() const;
    double ToDouble() const;

    // printf-style, locale-free: %d %i %u %x %X %o %c %f %e %g %p %% with the
    // flags "-+ 0#", width, precision ("*" for both) and the length modifiers
    // hh h l ll j z t L; %s takes a `const char16_t*`, %hs and %S a
    // `const char*` in UTF-8. A broken directive (a second ".", or one cut off
    // by the end of the format) gives an empty result.
    static clString Format(const char16_t* format, ...);
    static clString FormatV(const char16_t* format, va_list arguments);
    // Text of the platform's last error ("(Win:%u)" / "(errno:%d)"), empty when none.
    static clString LastErrorText();

    uint64_t tag = 0;   // the owner's word, carried by copy and move

private:
    bool Holds(const char16_t* source) const;

    std::u16string text_;
    mutable std::string utf8Cache_;
};
