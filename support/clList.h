#pragma once
// clPtrList: a list of non-owned pointers with 16 inline slots; it grows by a
// step that doubles (32, 64, ... up to 500000). clStringList owns its strings.

#include <cstdint>
#include <memory>
#include <vector>

#include "support/clString.h"

class clPtrListBase {
public:
    clPtrListBase() = default;
    clPtrListBase(const clPtrListBase&) = delete;
    clPtrListBase& operator=(const clPtrListBase&) = delete;
    clPtrListBase(clPtrListBase&& other) noexcept;
    clPtrListBase& operator=(clPtrListBase&& other) noexcept;
    ~clPtrListBase() = default;

    int Count() const { return count_; }
    int Capacity() const { return capacity_; }
    int Growth() const { return growth_; }
    void* At(int index) const { return items()[index]; }
    void Add(void* item);
    void Insert(int index, void* item);
    void RemoveAt(int index);
    void Clear();   // back to the inline slots, capacity 16, growth 32

private:
    static constexpr int kInline = 16;
    void** items() { return heap_ ? heap_.get() : inline_; }
    void* const* items() const { return heap_ ? heap_.get() : inline_; }
    void Grow();

    std::unique_ptr<void*[]> heap_;
    int count_ = 0;
    int capacity_ = kInline;
    int growth_ = 32;
    void* inline_[kInline] = {};
};

template <class T>
class clPtrList : public clPtrListBase {
public:
    T* operator[](int index) const { return static_cast<T*>(At(index)); }
    void Add(T* item) { clPtrListBase::Add(item); }
    void Insert(int index, T* item) { clPtrListBase::Insert(index, item); }
};

class clStringList {
public:
    clStringList() = default;
    clStringList(const clStringList& other) { AppendCopies(other); }
    clStringList& operator=(const clStringList& other);
    clStringList(clStringList&&) noexcept = default;
    clStringList& operator=(clStringList&&) noexcept = default;

    int Count() const { return static_cast<int>(items_.size()); }
    clString& operator[](int index) { return *items_[static_cast<size_t>(index)]; }
    const clString& operator[](int index) const { return *items_[static_cast<size_t>(index)]; }

    void AddCopy(const clString& source, uint64_t tag = 0);
    void AddMove(clString&& source);
    void Clear();
    void AppendCopies(const clStringList& other);
    void TakeAll(clStringList& other);   // copies each entry, then clears `other`
    // NUL-ended strings ended by an empty one; "[Empty]" stands for an empty
    // entry; reading stops after 2000000000 bytes. A null block gives no entries.
    void FromMultiString(const char16_t* block);
    // Splits at every carriage return; the empty text gives no entries.
    void Split(const clString& text);

private:
    std::vector<std::unique_ptr<clString>> items_;
};
